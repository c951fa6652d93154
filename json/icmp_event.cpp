#include "json/icmp_event.hpp"

#include <cstring>

#include "json/base64.hpp"
#include "json/ipv6_text.hpp"
#include "json/json_text.hpp"
#include "report/icmp_names.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_md5.hpp"
#include "zq/zq_stats.hpp"
#include "zq/zq_strings.hpp"
#include "zq/zq_text.hpp"

namespace varn::json {

namespace {

// A batch is written when it holds this many events, payload bytes or text bytes.
constexpr size_t k_batch_events = 256;
constexpr size_t k_batch_payload_bytes = 512 * 1024;
constexpr size_t k_batch_text_bytes = 1024 * 1024;

// The head of an event without the file's members: the longest texts of every member, with room
// to spare (the IPv4 text writer may store a byte past its end).
constexpr size_t k_head_room = 640;

// Strings shorter than this are not listed, as in the text report's strings format.
constexpr uint32_t k_min_string_length = 5;

}  // namespace

// The member names of a dumped region, already in JSON form.
struct icmp_event_writer::region_names {
  std::string_view bytes, printable, ascii_strings, utf16_strings;
};

namespace {

constexpr icmp_event_writer::region_names k_packet_names = {
    ",\"packet\":", ",\"packet_printable\":", ",\"packet_ascii_strings\":", ",\"packet_utf16_strings\":"};
constexpr icmp_event_writer::region_names k_payload_names = {
    ",\"payload\":", ",\"payload_printable\":", ",\"payload_ascii_strings\":", ",\"payload_utf16_strings\":"};

template <size_t N>
inline char* put_literal(char* p, const char (&text)[N]) noexcept {
  std::memcpy(p, text, N - 1);
  return p + N - 1;
}

}  // namespace

icmp_event_writer::icmp_event_writer(const icmp_event_content& content) : m_content(content) {
  m_events.reserve(k_batch_events);
  m_jobs.reserve(k_batch_events);
  m_payloads.reserve(k_batch_payload_bytes + 256 * 1024);
}

icmp_event_writer::~icmp_event_writer() { flush(); }

void icmp_event_writer::begin_file(std::string_view name, uni::out_stream& out) {
  flush();
  m_out = &out;
  text_buffer members;
  members.json().continue_object().exact_string("pcap_file", name);
  m_file_members.assign(members.view());
}

char* icmp_event_writer::text_room(size_t n) {
  if (m_text_capacity - m_text_length < n) {
    size_t capacity = m_text_capacity == 0 ? 64 * 1024 : m_text_capacity;
    while (capacity - m_text_length < n) capacity *= 2;
    std::unique_ptr<char[]> grown(new char[capacity]);
    if (m_text_length > 0) std::memcpy(grown.get(), m_text.get(), m_text_length);
    m_text = std::move(grown);
    m_text_capacity = capacity;
  }
  return m_text.get() + m_text_length;
}

void icmp_event_writer::write_head(const icmp_frame& f) {
  char* p = text_room(k_head_room + m_file_members.size());
  p = put_literal(p, "{\"timestamp\":\"");
  p = m_times.put(p, f.ts_sec, f.ts_frac, f.ts_digits);
  p = put_literal(p, "\",\"event_type\":\"icmp\"");
  std::memcpy(p, m_file_members.data(), m_file_members.size());
  p += m_file_members.size();
  p = put_literal(p, ",\"frame\":");
  p = zq::put_u64(p, f.number);
  if (f.ipv6) {
    p = put_literal(p, ",\"proto\":\"IPv6-ICMP\",\"src_ip\":\"");
    p = put_ipv6_text(p, f.source());
    p = put_literal(p, "\",\"dest_ip\":\"");
    p = put_ipv6_text(p, f.destination());
  } else {
    p = put_literal(p, ",\"proto\":\"ICMP\",\"src_ip\":\"");
    p = zq::put_ipv4_text(p, f.source());
    p = put_literal(p, "\",\"dest_ip\":\"");
    p = zq::put_ipv4_text(p, f.destination());
  }
  p = put_literal(p, "\",\"ttl\":");
  p = zq::put_u64(p, f.ttl());
  p = put_literal(p, ",\"wire_len\":");
  p = zq::put_u64(p, f.wire_len);
  p = put_literal(p, ",\"cap_len\":");
  p = zq::put_u64(p, f.cap_len);
  p = put_literal(p, ",\"payload_len\":");
  p = zq::put_u64(p, f.payload_length);
  const uint8_t type = f.type();
  const uint8_t code = f.code();
  p = put_literal(p, ",\"icmp_type\":");
  p = zq::put_u64(p, type);
  p = put_literal(p, ",\"icmp_code\":");
  p = zq::put_u64(p, code);
  if (icmp_carries_sequence(f.ipv6, type)) {
    p = put_literal(p, ",\"icmp_id\":");
    p = zq::put_u64(p, f.identifier());
    p = put_literal(p, ",\"icmp_seq\":");
    p = zq::put_u64(p, f.sequence());
  }
  p = put_literal(p, ",\"type_name\":");
  p = put_string(p, icmp_type_name(f.ipv6, type, code));
  p = f.cap_len < f.header_length ? put_literal(p, ",\"header_truncated\":true")
                                  : put_literal(p, ",\"header_truncated\":false");
  p = put_literal(p, ",\"payload_md5\":");
  text_used(p);
}

void icmp_event_writer::write_strings(std::string_view member, const std::vector<std::string>& strings) {
  size_t room = member.size() + 2;
  for (const std::string& s : strings) room += string_room(s.size()) + 1;
  char* p = text_room(room);
  std::memcpy(p, member.data(), member.size());
  p += member.size();
  *p++ = '[';
  for (size_t i = 0; i < strings.size(); ++i) {
    if (i > 0) *p++ = ',';
    p = put_string(p, strings[i]);
  }
  *p++ = ']';
  text_used(p);
}

void icmp_event_writer::write_region(const region_names& names, const uint8_t* bytes, uint32_t length) {
  char* p = text_room(names.bytes.size() + 2 + base64_size(length));
  std::memcpy(p, names.bytes.data(), names.bytes.size());
  p += names.bytes.size();
  *p++ = '"';
  p = put_base64(p, bytes, length);
  *p++ = '"';
  text_used(p);
  switch (m_content.form) {
    case icmp_event_content::rendering::bytes_only:
      break;
    case icmp_event_content::rendering::printable:
      p = text_room(names.printable.size() + 2 + 2 * static_cast<size_t>(length));
      std::memcpy(p, names.printable.data(), names.printable.size());
      p += names.printable.size();
      *p++ = '"';
      p = put_printable_body(p, bytes, length);
      *p++ = '"';
      text_used(p);
      break;
    case icmp_event_content::rendering::strings:
      zq::extract_ascii_strings(bytes, length, k_min_string_length, m_strings, m_offsets, false, false);
      write_strings(names.ascii_strings, m_strings);
      zq::extract_unicode_strings(bytes, length, k_min_string_length, m_strings, m_offsets, false, false);
      write_strings(names.utf16_strings, m_strings);
      break;
  }
}

void icmp_event_writer::add(const icmp_frame& f, std::string_view extra_members) {
  queued q;
  q.head_at = m_text_length;
  write_head(f);
  q.head_length = m_text_length - q.head_at;
  q.tail_at = m_text_length;
  if (m_content.packet) write_region(k_packet_names, f.frame, f.header_dump_length);
  if (m_content.payload) write_region(k_payload_names, f.payload, f.payload_length);
  char* p = text_room(extra_members.size() + 2);
  if (!extra_members.empty()) {
    std::memcpy(p, extra_members.data(), extra_members.size());
    p += extra_members.size();
  }
  *p++ = '}';
  *p++ = '\n';
  text_used(p);
  q.tail_length = m_text_length - q.tail_at;
  q.payload_at = m_payloads.size();
  q.payload_length = f.payload_length;
  if (f.payload_length != 0) m_payloads.insert(m_payloads.end(), f.payload, f.payload + f.payload_length);
  m_events.push_back(q);
  if (m_events.size() >= k_batch_events || m_payloads.size() >= k_batch_payload_bytes ||
      m_text_length >= k_batch_text_bytes)
    flush();
}

void icmp_event_writer::flush() {
  if (m_events.empty()) return;
  m_jobs.resize(m_events.size());
  for (size_t i = 0; i < m_events.size(); ++i) {
    const queued& q = m_events[i];
    m_jobs[i].data = q.payload_length != 0 ? m_payloads.data() + q.payload_at : nullptr;
    m_jobs[i].length = q.payload_length;
  }
  zq::md5_many(m_jobs.data(), m_jobs.size());
  if (m_out != nullptr) {
    uni::out_stream& out = *m_out;
    const char* text = m_text.get();
    for (size_t i = 0; i < m_events.size(); ++i) {
      const queued& q = m_events[i];
      const zq::md5_job& job = m_jobs[i];
      out.write(text + q.head_at, q.head_length);
      char* p = out.reserve(64);
      if (job.ok) {
        *p++ = '"';
        zq::md5_to_text(job.digest, p);
        p += 32;
        *p++ = '"';
      } else {
        p = put_literal(p, "null");
      }
      p = zq::payload_entropy_high(job.data, q.payload_length) ? put_literal(p, ",\"entropy_high\":true")
                                                                : put_literal(p, ",\"entropy_high\":false");
      out.commit(p);
      out.write(text + q.tail_at, q.tail_length);
    }
  }
  m_events.clear();
  m_payloads.clear();
  m_text_length = 0;
}

}  // namespace varn::json
