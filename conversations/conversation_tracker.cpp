#include "conversations/conversation_tracker.hpp"

#include <cstddef>
#include <algorithm>
#include <cstring>

#include "conversations/indicators.hpp"
#include "conversations/payload_content.hpp"
#include "conversations/tunnel_signatures.hpp"
#include "conversations/verdict.hpp"

namespace varn::conversations {

namespace {

constexpr size_t k_fragment_slots = 1024;
// Unrecognised payloads longer than this are compared from byte 16 on: an unknown sender's clock
// at the front does not make its payloads "change".
constexpr uint32_t k_compare_from_16_above = 24;

void add_rtt(conversation& c, int64_t rtt) noexcept {
  if (rtt < 0) return;  // a capture whose clock stepped back
  if (c.rtt_count == 0 || rtt < c.rtt_min_ns) c.rtt_min_ns = rtt;
  if (c.rtt_count == 0 || rtt > c.rtt_max_ns) c.rtt_max_ns = rtt;
  c.rtt_sum_ns += rtt;
  ++c.rtt_count;
}

void note_frame(conversation& c, const icmp_message& m, uint32_t file, uint64_t frame) noexcept {
  if (c.frames == 0) {
    c.first_ns = m.time_ns;
    c.first_in_ns = m.time_in_ns;
    c.first_file = file;
    c.first_frame = frame;
  }
  if (c.frames == 0 || m.time_ns >= c.last_ns) {
    c.last_ns = m.time_ns;
    c.last_in_ns = m.time_in_ns;
  }
  c.last_file = file;
  c.last_frame = frame;
  ++c.frames;
}

}  // namespace

conversation_tracker::conversation_tracker(int64_t idle_timeout_ns, conversation_sink& sink)
    : m_timeout_ns(idle_timeout_ns), m_sink(sink), m_fragments(k_fragment_slots) {}

conversation_tracker::~conversation_tracker() = default;

uint64_t conversation_tracker::fragment_key(const icmp_message& m) noexcept {
  const uint32_t n = m.address_length();
  uint64_t h = payload_fingerprint(m.source, n) ^ (payload_fingerprint(m.destination, n) * 0x9e3779b97f4a7c15ull);
  return (h ^ (static_cast<uint64_t>(m.ip_identification) * 0xbf58476d1ce4e5b9ull)) | 1;
}

void conversation_tracker::close_idle() {
  for (uint32_t c = m_table.least_recent(); c != k_no_index; c = m_table.least_recent()) {
    if (m_table.conv(c).last_ns + m_timeout_ns >= m_now_ns) break;
    close(c);
  }
}

void conversation_tracker::emit(uint32_t ci) {
  const conversation& c = m_table.conv(ci);
  const host_pair& p = m_table.pair(c.pair);
  const uint8_t* first = p.first.data();
  const uint8_t* second = p.second.data();
  uint32_t shown = 0;
  bool flagged = false;
  if (c.echo()) {
    const uint32_t fired = fired_indicators(p.evidence);
    flagged = is_flagged(fired, p.evidence);
    shown = fired;
  }
  m_sink.conversation_closed(closed_conversation{c, p, c.initiator_first ? first : second,
                                                 c.initiator_first ? second : first, shown, flagged});
}

void conversation_tracker::release(uint32_t c) { m_table.release_conversation(c); }

void conversation_tracker::close(uint32_t ci) {
  conversation& c = m_table.conv(ci);
  c.unanswered += c.book.close();
  m_table.retire(ci);
  const uint32_t pi = c.pair;
  host_pair& p = m_table.pair(pi);
  if (!c.echo() || is_flagged(fired_indicators(p.evidence), p.evidence)) {
    emit(ci);
    release(ci);
  } else {
    c.held = true;
    p.held.push_back(ci);
    if (p.held.size() > k_max_held) {
      emit(p.held.front());
      release(p.held.front());
      p.held.erase(p.held.begin());
    }
  }
  if (p.live == 0) close_pair(pi);
}

void conversation_tracker::close_pair(uint32_t pi) {
  host_pair& p = m_table.pair(pi);
  for (uint32_t c : p.held) {
    emit(c);
    release(c);
  }
  m_table.release_pair(pi);
}

void conversation_tracker::finish() {
  // Every verdict is final now: write all conversations, live and held, in the order they began.
  std::vector<uint32_t> all;
  std::vector<uint32_t> pairs;
  for (uint32_t c = m_table.least_recent(); c != k_no_index; c = m_table.conv(c).lru_next) {
    all.push_back(c);
    pairs.push_back(m_table.conv(c).pair);
  }
  std::sort(pairs.begin(), pairs.end());
  pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
  for (uint32_t p : pairs) all.insert(all.end(), m_table.pair(p).held.begin(), m_table.pair(p).held.end());
  struct start {
    uint32_t file;
    uint64_t frame;
    uint32_t conversation;
    bool operator<(const start& o) const noexcept { return file != o.file ? file < o.file : frame < o.frame; }
  };
  std::vector<start> order;
  order.reserve(all.size());
  for (uint32_t c : all) order.push_back({m_table.conv(c).first_file, m_table.conv(c).first_frame, c});
  std::sort(order.begin(), order.end());
  for (size_t i = 0; i < order.size(); ++i) all[i] = order[i].conversation;
  for (uint32_t c : all) {
    conversation& conv = m_table.conv(c);
    conv.unanswered += conv.book.close();
    emit(c);
  }
  for (uint32_t c : all) {
    if (!m_table.conv(c).held) m_table.retire(c);
    release(c);
  }
  for (uint32_t p : pairs) m_table.release_pair(p);
}

void conversation_tracker::record_sent_data(pair_evidence& e, const filler_match& fm, const icmp_message& m,
                                            const payload_prints& prints) {
  if (fm.variant != 0) {
    const auto end = e.patterns.begin() + e.distinct_patterns;
    if (std::find(e.patterns.begin(), end, fm.variant) == end && e.distinct_patterns < e.patterns.size())
      e.patterns[e.distinct_patterns++] = fm.variant;
  }
  if (fm.label != filler::none || m.captured == 0) return;
  const uint64_t compared = m.captured > k_compare_from_16_above ? prints.from_16 : prints.whole;
  if (e.data_payloads > 0 && compared != e.last_data_print) ++e.data_changes;
  e.last_data_print = compared;
  ++e.data_payloads;
  e.data_bytes += m.captured;
  // Once text or random payloads have fired their indicator, more of them change nothing.
  const uint64_t text_enough = k_indicators[static_cast<size_t>(indicator::text_payload)].threshold;
  const uint64_t random_enough = k_indicators[static_cast<size_t>(indicator::high_entropy)].threshold;
  if (e.text_payloads >= text_enough || e.random_payloads >= random_enough) return;
  switch (judge_content(m.payload, m.captured)) {
    case content_kind::text: ++e.text_payloads; break;
    case content_kind::random: ++e.random_payloads; break;
    default: break;
  }
}

void conversation_tracker::add_echo(const icmp_message& m, uint32_t file, uint64_t frame, frame_analysis& out) {
  const bool request = m.role == echo_role::request;
  const uint8_t* initiator = request ? m.source : m.destination;
  const uint8_t* responder = request ? m.destination : m.source;
  bool initiator_first = true, added = false;
  const uint32_t pi = m_table.find_or_add_pair(m.ipv6, initiator, responder, initiator_first);
  const uint32_t ci = m_table.find_or_add_conversation(pi, m.identifier, m.echo_kind, initiator_first, added);
  conversation& c = m_table.conv(ci);
  pair_evidence& e = m_table.pair(pi).evidence;
  note_frame(c, m, file, frame);

  const filler_match fm = recognise_payload(m.echo_kind, m.payload, m.captured, m.length);
  out.label = fm.label;
  c.fillers |= 1u << static_cast<unsigned>(fm.label);
  const payload_prints prints = fingerprint_payload(m.payload, m.captured);
  const uint64_t print = prints.whole;
  if (fm.label == filler::none) {
    const tunnel_signature s = find_tunnel_signature(m.payload, m.captured, m.length);
    if (s != tunnel_signature::none) {
      ++e.signature_frames;
      e.signatures |= 1u << static_cast<unsigned>(s);
    }
  }
  if (request) {
    ++c.requests;
    c.bytes_out += m.length;
    echo_request r;
    r.time_ns = m.time_ns;
    r.frame = frame;
    r.print = print;
    r.file = file;
    r.captured = m.captured;
    r.length = m.length;
    r.sequence = m.sequence;
    c.unanswered += c.book.add_request(r);
    record_sent_data(e, fm, m, prints);
  } else {
    ++c.replies;
    c.bytes_in += m.length;
    out.pairing = c.book.match_reply(m.sequence, print, m.captured, m.length, m.time_ns);
    switch (out.pairing.match) {
      case reply_match::answered:
        add_rtt(c, out.pairing.rtt_ns);
        break;
      case reply_match::duplicate:
        ++c.duplicates;
        break;
      case reply_match::orphan:
        ++c.orphans;
        if (fm.label == filler::none && m.captured > 0) ++e.data_orphans;
        record_sent_data(e, fm, m, prints);  // stands for the request the capture missed
        break;
    }
    // Only echo replies return the request's data: timestamp and mask replies fill in fields.
    if (m.echo_kind != 8 && m.echo_kind != 128) out.pairing.echo = echo_check::unknown;
    if (out.pairing.match != reply_match::orphan && out.pairing.echo == echo_check::differs) {
      ++c.mismatched;
      ++e.mismatched_replies;
    }
  }
  if (m.fragment == fragment_place::first) {
    const uint64_t key = fragment_key(m);
    m_fragments[key % k_fragment_slots] = fragment_entry{key, ci, request};
  }
}

void conversation_tracker::add_other(const icmp_message& m, uint32_t file, uint64_t frame) {
  bool source_first = true, added = false;
  const uint32_t pi = m_table.find_or_add_pair(m.ipv6, m.source, m.destination, source_first);
  const uint32_t ci = m_table.find_or_add_conversation(pi, m.type, 0, source_first, added);
  conversation& c = m_table.conv(ci);
  note_frame(c, m, file, frame);
  c.bytes_out += m.length;
}

void conversation_tracker::add_fragment(const icmp_message& m) {
  const uint64_t key = fragment_key(m);
  const fragment_entry& f = m_fragments[key % k_fragment_slots];
  if (f.key != key || f.conversation == k_no_index) return;
  conversation& c = m_table.conv(f.conversation);
  if (c.pair == k_no_index || c.held) return;
  (f.from_initiator ? c.bytes_out : c.bytes_in) += m.length;
}

frame_analysis conversation_tracker::add_frame(const icmp_frame& f, uint32_t file) {
  frame_analysis out;
  icmp_message m;
  if (!read_icmp_message(f, m)) return out;
  out.read = true;
  out.role = m.role;
  out.fragment = m.fragment;
  if (!m_started || m.time_ns > m_now_ns) m_now_ns = m.time_ns;
  m_started = true;
  close_idle();
  if (m.fragment == fragment_place::later) {
    out.role = echo_role::none;
    add_fragment(m);
  } else if (m.role != echo_role::none) {
    add_echo(m, file, f.number, out);
  } else {
    add_other(m, file, f.number);
  }
  return out;
}

}  // namespace varn::conversations
