#include "conversations/summary_json.hpp"

#include <cstddef>

#include "conversations/indicators.hpp"
#include "conversations/sender_fillers.hpp"
#include "json/event_time.hpp"
#include "json/ipv6_text.hpp"
#include "zq/zq_address_text.hpp"

namespace varn::conversations {

namespace {

// The event time of a capture time in nanoseconds since 1970: microseconds, or nanoseconds
// (IN_NS) when the capture gave them.
std::string timestamp_text(json::timestamp_texts& texts, int64_t ns, bool in_ns) {
  const uint64_t t = static_cast<uint64_t>(ns < 0 ? 0 : ns);
  char text[json::timestamp_room];
  const char* end = texts.put(text, t / 1000000000u, in_ns ? t % 1000000000u : t % 1000000000u / 1000u, in_ns ? 9 : 6);
  return std::string(text, static_cast<size_t>(end - text));
}

std::string address_text(const uint8_t* a, bool ipv6) {
  char text[json::ipv6_text_room + 16];
  const char* end = ipv6 ? json::put_ipv6_text(text, a) : zq::put_ipv4_text(text, a);
  return std::string(text, static_cast<size_t>(end - text));
}

const char* match_name(reply_match m) {
  switch (m) {
    case reply_match::answered: return "answered";
    case reply_match::duplicate: return "duplicate";
    default: return "orphan";
  }
}

}  // namespace

void write_conversation_event(json::text& j, const closed_conversation& cc, std::string_view first_file,
                              std::string_view last_file) {
  const conversation& c = cc.c;
  const bool v6 = cc.pair.ipv6;
  json::timestamp_texts texts;
  const std::string start = timestamp_text(texts, c.first_ns, c.first_in_ns);
  j.begin_object();
  j.member("timestamp", start).member("event_type", "icmp_conversation");
  j.exact_string("pcap_file", first_file);
  if (last_file != first_file) j.exact_string("last_pcap_file", last_file);
  j.member("start", start).member("end", timestamp_text(texts, c.last_ns, c.last_in_ns));
  j.member("first_frame", c.first_frame).member("last_frame", c.last_frame);
  j.member("proto", v6 ? "IPv6-ICMP" : "ICMP");
  j.member("src_ip", address_text(cc.initiator, v6)).member("dest_ip", address_text(cc.responder, v6));
  if (c.echo()) {
    j.member("icmp_id", static_cast<uint32_t>(c.discriminator));
    j.member("request_type", static_cast<uint32_t>(c.kind));
  } else {
    j.member("icmp_type", static_cast<uint32_t>(c.discriminator));
  }
  j.member("frames", c.frames).member("requests", c.requests).member("replies", c.replies);
  j.member("unanswered", c.unanswered).member("orphan_replies", c.orphans);
  j.member("mismatched_replies", c.mismatched).member("duplicate_replies", c.duplicates);
  j.key("rtt_ms");
  if (c.rtt_count == 0) {
    j.null();
  } else {
    j.begin_object();
    j.key("min").decimal(c.rtt_min_ns, 6);
    j.key("mean").decimal((c.rtt_sum_ns + c.rtt_count / 2) / c.rtt_count, 6);
    j.key("max").decimal(c.rtt_max_ns, 6);
    j.end_object();
  }
  j.member("payload_bytes_to_responder", c.bytes_out).member("payload_bytes_to_initiator", c.bytes_in);
  j.key("fillers").begin_array();
  for (unsigned i = 0; i < static_cast<unsigned>(filler::count_); ++i)
    if ((c.fillers & (1u << i)) != 0) j.string(filler_name(static_cast<filler>(i)));
  j.end_array();
  j.key("indicators").begin_array();
  for (size_t i = 0; i < k_indicators.size(); ++i)
    if ((cc.indicators & (1u << i)) != 0) j.string(k_indicators[i].name);
  j.end_array();
  j.member("flagged", cc.flagged);
  j.end_object().end_line();
}

void write_frame_members(json::text& j, const frame_analysis& a, uint32_t current_file,
                         std::string_view request_file_name) {
  if (!a.read || a.role == echo_role::none) return;
  j.member("filler", filler_name(a.label));
  if (a.role != echo_role::reply) return;
  const reply_pairing& p = a.pairing;
  j.member("reply", match_name(p.match));
  if (p.match == reply_match::orphan) return;
  j.member("request_frame", p.request.frame);
  if (p.request.file != current_file) j.exact_string("request_file", request_file_name);
  if (p.match == reply_match::answered) j.key("rtt_ms").decimal(p.rtt_ns, 6);
  j.key("echoed");
  if (p.echo == echo_check::unknown) j.null();
  else j.boolean(p.echo == echo_check::echoed);
}

}  // namespace varn::conversations
