#include "report/metadata_record.hpp"

#include <cstring>
#include <string_view>

#include "capture/frame_layout.hpp"
#include "capture/pcap_format.hpp"
#include "report/icmp_names.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_md5.hpp"
#include "zq/zq_md5_lanes.hpp"
#include "zq/zq_stats.hpp"
#include "zq/zq_text.hpp"
#include "zq/zq_time.hpp"

namespace varn {

namespace {

std::string_view separator_for(bool comma_separated, bool padded) {
  if (!comma_separated) return " | ";
  return padded ? " , " : ", ";
}

// The line is built in place in the sink's buffer. Fields are copied with fixed-size stores
// that may run a few bytes past the field's end; the next field overwrites them, and the
// reserved room has this much slack behind the longest line.
constexpr size_t k_line_room = 512;
constexpr size_t k_slack = 64;

inline char* put_text(char* p, std::string_view s) {
  if (s.empty()) return p;
  std::memcpy(p, s.data(), s.size());
  return p + s.size();
}

// Pads [field, end) with blanks to WIDTH characters; wider texts are kept whole.
inline char* pad_to(char* field, char* end, size_t width) {
  static constexpr char blanks[32] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                      ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                      ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
  if (static_cast<size_t>(end - field) >= width) return end;
  std::memcpy(end, blanks, sizeof blanks);  // widths are at most 25
  return field + width;
}

// V in decimal, right-aligned in WIDTH (at most 8) characters.
inline char* put_right(char* p, uint64_t v, unsigned width) {
  static constexpr uint64_t limits[9] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
  if (v >= limits[width]) return zq::put_u64(p, v);
  std::memcpy(p, "        ", 8);
  char* q = p + width;
  do {
    *--q = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  return p + width;
}

}  // namespace

std::string metadata_column_header(bool comma_separated, bool padded) {
  const std::string sep(separator_for(comma_separated, padded));
  std::string h;
  if (!padded) {
    const char* names[] = {"frame", "date [utc]", "time [utc]", "proto", "source ip", "destination ip",
                           "ttl",   "Tsize",      "Psize",      "payload md5 hash"};
    for (const char* n : names) h += std::string(n) + sep;
    h += "comments\n\n";
    return h;
  }
  auto spaces = [](size_t n) { return std::string(n, ' '); };
  h += spaces(2) + "frame" + sep;
  h += "date [utc]" + sep;
  h += spaces(2) + "time [utc]" + sep;
  h += "proto " + sep;
  h += spaces(8) + "source ip" + spaces(8) + sep;
  h += spaces(5) + "destination ip" + spaces(5) + sep;
  h += "ttl" + sep + "Tsize" + sep + "Psize" + sep;
  h += spaces(9) + "payload md5 hash" + spaces(7) + sep;
  h += spaces(8) + "comments\n\n";
  return h;
}

namespace {

// The separator as four bytes (the last ones spare) and its length.
struct separator {
  const char* text;
  size_t length;
};

separator separator_of(const frame_context& ctx) {
  if (!ctx.meta_comma_separated) return {" |  ", 3};
  return ctx.meta_padded ? separator{" ,  ", 3} : separator{",   ", 2};
}

// Writes the line from its head (frame number through the payload size and the separator after
// it), the digest text (null when there is none), the comments and the randomness warning.
char* finish_line(char* p, std::string_view head, const char* digest_text, const separator& sep,
                  std::string_view comments, bool entropy_high) {
  std::memcpy(p, head.data(), head.size());
  p += head.size();
  if (digest_text != nullptr) {
    std::memcpy(p, digest_text, 32);
    p += 32;
  }
  std::memcpy(p, sep.text, 4);
  p += sep.length;
  p = put_text(p, comments);
  if (entropy_high) {
    if (!comments.empty()) p = put_text(p, ", ");
    p = put_text(p, "payload has entropy high");
  } else {
    *p++ = ' ';
  }
  *p++ = '\n';
  return p;
}

}  // namespace

bool write_metadata_record(const icmp_frame& f, frame_context* ctx) {
  if (ctx == nullptr || ctx->out == nullptr || !ctx->dump_meta || ctx->output_format == 3) return false;
  uni::out_stream& out = *ctx->out;
  const bool padded = ctx->meta_padded;
  const separator sep = separator_of(*ctx);
  if (ctx->meta_header_pending) {
    ctx->meta_header_pending = false;
    out.write(metadata_column_header(ctx->meta_comma_separated, padded));
  }
  const bool ipv6 = f.ipv6;

  // The head: frame number through the payload size.
  char head[k_line_room + k_slack];
  char* p = head;
  auto put_sep = [&] {
    std::memcpy(p, sep.text, 4);
    p += sep.length;
  };
  p = padded ? put_right(p, f.number, 7) : zq::put_u64(p, f.number);
  put_sep();
  static zq::capture_time_texts time_texts;  // the run is single-threaded
  char date[10], time_of_day[12];
  const bool dated = time_texts.format(f.text_seconds(), f.text_microseconds(), date, time_of_day);
  if (dated) {
    std::memcpy(p, date, 10);
    p += 10;
  }
  put_sep();
  if (dated) {
    std::memcpy(p, time_of_day, 12);
    p += 12;
  }
  put_sep();
  std::memcpy(p, ipv6 ? "icmpv6" : "icmp  ", 6);
  p += 6;
  put_sep();
  char* field = p;
  p = ipv6 ? zq::put_ipv6_text(p, f.source(), 16) : zq::put_ipv4_text(p, f.source());
  if (padded) p = pad_to(field, p, 25);
  put_sep();
  field = p;
  p = ipv6 ? zq::put_ipv6_text(p, f.destination(), 16) : zq::put_ipv4_text(p, f.destination());
  if (padded) p = pad_to(field, p, 24);
  put_sep();
  p = put_right(p, f.ttl(), 3);
  put_sep();
  p = padded ? put_right(p, f.wire_len, 5) : zq::put_u64(p, f.wire_len);
  put_sep();
  p = padded ? put_right(p, f.payload_length, 5) : zq::put_u64(p, f.payload_length);
  put_sep();
  const std::string_view head_text(head, static_cast<size_t>(p - head));

  // The comments: the identifier where the type carries one, and the type's name.
  char comments[96];
  char* c = comments;
  {
    const uint8_t type = f.type();
    const uint8_t code = f.code();
    if (icmp_carries_identifier(ipv6, type)) {
      std::memcpy(c, "id: 0x", 6);
      c = zq::put_hex_fixed(c + 6, f.identifier(), 4);
      std::memcpy(c, ", ", 2);
      c += 2;
    }
    c = put_text(c, icmp_type_name(ipv6, type, code));
  }
  const std::string_view comments_text(comments, static_cast<size_t>(c - comments));

  if (ctx->deferred_lines != nullptr) {
    ctx->deferred_lines->add(head_text, comments_text, f.payload, f.payload_length);
    return true;
  }

  char digest_text[32];
  bool digested = false;
  bool entropy_high = false;
  const uint8_t* payload = f.payload;
  const uint32_t payload_length = f.payload_length;
  if (payload_length != 0) {
    // One pass over the payload gives the digest and, where the randomness test can pass at
    // all (256 bytes or more), the byte-value counts it needs.
    uint8_t digest[16];
    uint32_t histogram[256];
    const bool counting = payload_length >= 256;
    if (counting) std::memset(histogram, 0, sizeof histogram);
    if (zq::md5_of_buffer_counting(payload, payload_length, digest, counting ? histogram : nullptr)) {
      zq::md5_to_text(digest, digest_text);
      digested = true;
    }
    entropy_high = counting && zq::entropy_high_from_histogram(histogram, payload_length);
  }
  char* line = out.reserve(k_line_room + k_slack);
  out.commit(finish_line(line, head_text, digested ? digest_text : nullptr, sep, comments_text, entropy_high));
  return true;
}

metadata_batch::metadata_batch(const frame_context& ctx) : m_out(ctx.out), m_ctx(&ctx) {
  m_payloads.reserve(k_payload_bytes + record_buffer_size);
  m_texts.reserve(k_lines * 256);
  m_lines.reserve(k_lines);
}

metadata_batch::~metadata_batch() { flush(); }

void metadata_batch::add(std::string_view head, std::string_view comments, const uint8_t* payload,
                         uint32_t payload_length) {
  queued q;
  q.text_at = m_texts.size();
  q.head_length = head.size();
  q.comments_length = comments.size();
  q.payload_at = m_payloads.size();
  q.payload_length = payload_length;
  m_texts.append(head);
  m_texts.append(comments);
  if (payload_length != 0) m_payloads.insert(m_payloads.end(), payload, payload + payload_length);
  m_lines.push_back(q);
  if (m_lines.size() >= k_lines || m_payloads.size() >= k_payload_bytes) flush();
}

void metadata_batch::flush() {
  if (m_lines.empty() || m_out == nullptr) return;
  m_jobs.resize(m_lines.size());
  for (size_t i = 0; i < m_lines.size(); ++i) {
    m_jobs[i].data = m_lines[i].payload_length != 0 ? m_payloads.data() + m_lines[i].payload_at : nullptr;
    m_jobs[i].length = m_lines[i].payload_length;
  }
  zq::md5_many(m_jobs.data(), m_jobs.size());
  const separator sep = separator_of(*m_ctx);
  for (size_t i = 0; i < m_lines.size(); ++i) {
    const queued& q = m_lines[i];
    char digest_text[32];
    if (m_jobs[i].ok) zq::md5_to_text(m_jobs[i].digest, digest_text);
    const bool entropy_high = zq::payload_entropy_high(m_jobs[i].data, q.payload_length);
    char* line = m_out->reserve(k_line_room + k_slack);
    const std::string_view head(m_texts.data() + q.text_at, q.head_length);
    const std::string_view comments(m_texts.data() + q.text_at + q.head_length, q.comments_length);
    m_out->commit(finish_line(line, head, m_jobs[i].ok ? digest_text : nullptr, sep, comments, entropy_high));
  }
  m_lines.clear();
  m_texts.clear();
  m_payloads.clear();
}

}  // namespace varn
