#include "conversations/conversation_tracker.hpp"

#include <cstddef>
#include <algorithm>
#include <cstring>

#include "conversations/indicators.hpp"
#include "conversations/payload_content.hpp"
#include "conversations/sent_values.hpp"
#include "conversations/tunnel_signatures.hpp"
#include "conversations/verdict.hpp"

namespace varn::conversations {

namespace {

constexpr size_t k_fragment_slots = 1024;
// The key of a sender's pattern in the value book, apart from payload fingerprints.
uint64_t pattern_key(uint32_t variant) noexcept {
  uint64_t h = (static_cast<uint64_t>(variant) | 0x5a00000000ull) * 0x9e3779b97f4a7c15ull;
  return h ^ (h >> 31);
}

bool pair_flagged(const pair_evidence& e) noexcept {
  const evidence_measures m = measure_evidence(e);
  return is_flagged(fired_indicators(m), m);
}

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
    const evidence_measures measures = measure_evidence(p.evidence);
    shown = fired_indicators(measures);
    flagged = is_flagged(shown, measures);
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
  if (!c.echo() || pair_flagged(p.evidence)) {
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

void conversation_tracker::note_value(uint32_t pi, const icmp_message& m, sent_value value, const uint8_t* bytes,
                                      uint32_t n) {
  std::unique_ptr<value_book>& values = m_table.pair(pi).evidence.values;
  if (!values) values = std::make_unique<value_book>();
  value_book& book = *values;
  const sent_value* v = book.find(value.key);
  if (v != nullptr) {
    book.sent_again(*v, value.flags);
    // Its receiver is noted already; again at 2, 4, 8, ... sends, in case another value took
    // its slot in the run's table.
    if ((v->flags & k_value_shared) != 0 || (v->sends & (v->sends - 1)) != 0) return;
  } else {
    // Once text or random values have fired their indicator, more of them change nothing.
    const uint64_t text_enough = k_indicators[static_cast<size_t>(indicator::text_payload)].threshold;
    const uint64_t random_enough = k_indicators[static_cast<size_t>(indicator::high_entropy)].threshold;
    if (bytes != nullptr && book.judged_text() < text_enough && book.judged_random() < random_enough)
      value.kind = static_cast<uint8_t>(judge_content(bytes, n));
    value.sends = 1;
    v = &book.add(value);
  }
  const shared_values::sighting seen = m_shared.note(value.key, pi, receiver_hash(m.ipv6, m.destination));
  if (!seen.shared) return;
  book.mark(*v, k_value_shared);
  if (seen.first == k_no_index || seen.first == pi) return;
  value_book* first = m_table.pair(seen.first).evidence.values.get();
  if (first == nullptr) return;
  if (const sent_value* w = first->find(value.key)) first->mark(*w, k_value_shared);
}

void conversation_tracker::record_sent_data(uint32_t pi, conversation& c, const filler_match& fm, const icmp_message& m,
                                            const payload_prints& prints) {
  pair_evidence& e = m_table.pair(pi).evidence;
  if (fm.variant != 0 && fm.pattern_length != 0) {
    sent_value v{pattern_key(fm.variant), fm.pattern_length, 0, 0, k_value_pattern};
    if (fm.label == filler::mtr) {
      // ping -p keeps its pattern for the whole process; mtr's fill byte, when it changes inside
      // one conversation, is drawn at random (-B above 255, one per round).
      if (c.fill != 0 && c.fill != fm.variant && !c.fill_changed) {
        c.fill_changed = true;
        const sent_value* before = e.values ? e.values->find(pattern_key(c.fill)) : nullptr;
        if (before != nullptr) e.values->mark(*before, k_value_fill);
      }
      c.fill = fm.variant;
      if (c.fill_changed) v.flags |= k_value_fill;
    }
    const bool judged = fm.pattern_length >= k_min_pattern_data && m.captured >= fm.clock_bytes + fm.pattern_length;
    note_value(pi, m, v, judged ? m.payload + fm.clock_bytes : nullptr, fm.pattern_length);
    return;
  }
  if (fm.label == filler::icmplib) {
    ++e.letter_payloads;
    e.letter_bytes += m.captured;
    return;
  }
  if (fm.label != filler::none) return;
  // Data: behind a timestamp or mask message's fields, behind an unknown sender's clock.
  const uint32_t from = fm.clock_bytes;
  if (m.captured <= from) return;
  const uint8_t* p = m.payload + from;
  const uint32_t n = m.captured - from;
  const uint64_t key = from == 0 ? prints.whole : from == 16 ? prints.from_16 : payload_fingerprint(p, n);
  if (!e.base64_seen && shows_base64(p, n)) e.base64_seen = true;
  note_value(pi, m, sent_value{key, n, 0, 0, 0}, p, n);
}

void conversation_tracker::add_echo(const icmp_message& m, uint32_t file, uint64_t frame, frame_analysis& out) {
  const bool request = m.role == echo_role::request;
  const uint8_t* initiator = request ? m.source : m.destination;
  const uint8_t* responder = request ? m.destination : m.source;
  bool initiator_first = true, added = false;
  const uint32_t pi = m_table.find_or_add_pair(m.ipv6, initiator, responder, initiator_first);
  // The pair's values are read again below if the payload is data: start fetching them.
  if (const value_book* values = m_table.pair(pi).evidence.values.get()) __builtin_prefetch(values);
  const uint32_t ci = m_table.find_or_add_conversation(pi, m.identifier, m.echo_kind, initiator_first, added);
  conversation& c = m_table.conv(ci);
  pair_evidence& e = m_table.pair(pi).evidence;
  note_frame(c, m, file, frame);

  const filler_match fm = recognise_payload(m.echo_kind, request, m.payload, m.captured, m.length, m.time_ns);
  out.label = fm.label;
  c.fillers |= 1u << static_cast<unsigned>(fm.label);
  const payload_prints prints = fingerprint_payload(m.payload, m.captured);
  const uint64_t print = prints.whole;
  if (fm.label == filler::none && (fm.clock_bytes == 0 || fm.clock_bytes == 16))
    m_shared.prefetch(fm.clock_bytes == 0 ? prints.whole : prints.from_16);
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
    record_sent_data(pi, c, fm, m, prints);
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
        record_sent_data(pi, c, fm, m, prints);  // stands for the request the capture missed
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
