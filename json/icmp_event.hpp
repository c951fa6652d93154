// The "icmp" event: one JSON object per selected frame, on a line of its own, carrying what the
// text report's metadata line shows (computed by the same rules) and, as the dump options ask,
// the frame's bytes. Members, in this order (schema/varn-events.schema.json and varn(1) say the
// same):
//
//   timestamp         capture time, "2024-01-02T03:04:05.123456+0000" (nanoseconds when the
//                     capture has them); also for times the text report leaves blank
//   event_type        "icmp"
//   pcap_file         the input file's name (pcap_file_base64: its exact bytes, only when the
//                     name is not UTF-8)
//   frame             1-based record number in the file (the text report's frame number)
//   proto             "ICMP" or "IPv6-ICMP"
//   src_ip, dest_ip   dotted decimal, or IPv6 in the RFC 5952 form
//   ttl               TTL, or the IPv6 hop limit
//   wire_len          bytes on the wire (Tsize); cap_len: bytes captured
//   payload_len       bytes of ICMP payload captured after the 8-byte ICMP header (Psize)
//   icmp_type, icmp_code
//   icmp_id, icmp_seq only for messages that carry them (icmp_carries_sequence: the types whose
//                     comments show the identifier, and ICMP information request and reply)
//   type_name         the comments column's name of the message, without the "id: " part
//   header_truncated  true when the capture ends before the end of the ICMP header: the header
//                     fields past its end were read from beyond the captured bytes, as the text
//                     report reads them
//   payload_md5       MD5 of the payload in 32 lower-case hex digits; null for an empty payload
//   entropy_high      the text report's "payload has entropy high" test
//   packet            (-dump_hdr) the header region: the frame from its first byte through the
//                     ICMP header, cut at the captured length, base64
//   packet_printable  (-dump_hdr -ascii) that region with bytes outside 32..126 shown as "."
//   packet_ascii_strings, packet_utf16_strings
//                     (-dump_hdr -strings) the strings of at least 5 characters found in it
//   payload, payload_printable, payload_ascii_strings, payload_utf16_strings
//                     (-dump_payload, with -ascii or -strings) the same for the ICMP payload
//   ...               members another writer appends (icmp_event_writer::add)
//
// packet and payload together are the captured frame. The text report's ascii and strings
// formats show one region only (the payload when both are asked for); the event carries every
// region asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "capture/icmp_frame.hpp"
#include "json/event_time.hpp"
#include "zq/zq_md5_lanes.hpp"

namespace uni {
class out_stream;
}

namespace varn::json {

// What the dump options add to each event.
struct icmp_event_content {
  enum class rendering { bytes_only, printable, strings };
  bool packet = false;   // the header region (-dump_hdr)
  bool payload = false;  // the ICMP payload (-dump_payload)
  rendering form = rendering::bytes_only;  // -ascii: printable, -strings: strings
};

// Writes "icmp" events to a stream. Events are queued and completed in batches, their payload
// digests computed many at a time (zq::md5_many), then written in the order queued; flush()
// before anything else is written to the same stream.
//
// Another writer (the conversation analysis, for one) writes the event of a frame with members
// of its own by handing them to add() as JSON text:
//
//   json::text_buffer extra;
//   extra.json().continue_object().member("request_frame", uint64_t{7}).key("rtt").decimal(rtt_us, 6);
//   events.add(frame, extra.view());
//   extra.clear();
//   ...
//   events.flush();  // before writing an event of its own to the stream
class icmp_event_writer {
 public:
  explicit icmp_event_writer(const icmp_event_content& content);
  ~icmp_event_writer();  // flushes
  icmp_event_writer(const icmp_event_writer&) = delete;
  icmp_event_writer& operator=(const icmp_event_writer&) = delete;

  // The frames that follow come from the file NAME; their events go to OUT. Flushes first.
  void begin_file(std::string_view name, uni::out_stream& out);

  // Queues the event of F. EXTRA_MEMBERS, when not empty, is JSON text of members each starting
  // with a comma (",\"rtt\":0.000125,\"request_frame\":7", as a json::text_buffer writes them
  // after continue_object()); it is placed after the event's own members, before the closing
  // brace, as it stands. The frame's bytes and EXTRA_MEMBERS are copied: they need not outlive
  // the call.
  void add(const icmp_frame& f, std::string_view extra_members = {});

  // Completes and writes every queued event, in the order queued.
  void flush();

  // The members that name the current file (",\"pcap_file\":\"...\"", and pcap_file_base64
  // when needed), for events of another writer about the same file.
  const std::string& file_members() const noexcept { return m_file_members; }

  struct region_names;

 private:
  struct queued {
    size_t head_at, head_length;  // "{...,\"payload_md5\":" in m_text
    size_t tail_at, tail_length;  // dumps, extra members and "}\n"
    size_t payload_at;            // in m_payloads
    uint32_t payload_length;
  };
  // Room for N more bytes of text; the pointer stays valid until the next call.
  char* text_room(size_t n);
  void text_used(char* end) { m_text_length = static_cast<size_t>(end - m_text.get()); }
  void write_head(const icmp_frame& f);
  void write_region(const region_names& names, const uint8_t* bytes, uint32_t length);
  void write_strings(std::string_view member, const std::vector<std::string>& strings);

  icmp_event_content m_content;
  uni::out_stream* m_out = nullptr;
  std::string m_file_members;  // ",\"pcap_file\":..." of the current file
  timestamp_texts m_times;

  std::unique_ptr<char[]> m_text;  // heads and tails of the queued events
  size_t m_text_length = 0;
  size_t m_text_capacity = 0;
  std::vector<queued> m_events;
  std::vector<uint8_t> m_payloads;
  std::vector<zq::md5_job> m_jobs;
  std::vector<std::string> m_strings;  // scratch lists of the strings rendering
  std::vector<uint64_t> m_offsets;
};

}  // namespace varn::json
