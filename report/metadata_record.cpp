#include "report/metadata_record.hpp"

#include <cstring>
#include <string_view>

#include "capture/frame_layout.hpp"
#include "capture/pcap_format.hpp"
#include "report/icmp_names.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_md5.hpp"
#include "zq/zq_stats.hpp"
#include "zq/zq_text.hpp"
#include "zq/zq_time.hpp"

namespace varn {

namespace {

std::string_view separator_for(bool comma_separated, bool padded) {
  if (!comma_separated) return " | ";
  return padded ? " , " : ", ";
}

// Does the ICMP message type carry an identifier in bytes 4 and 5?
bool icmpv4_has_identifier(uint8_t type) {
  return type == 0 || type == 8 || type == 13 || type == 14 || type == 17 || type == 18;
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

bool write_metadata_record(uint64_t frame_number, const uint8_t* record, const uint8_t* frame,
                           const uint8_t* payload, uint32_t payload_length, frame_context* ctx) {
  if (ctx == nullptr || ctx->out == nullptr || !ctx->dump_meta || ctx->output_format == 3) return false;
  uni::out_stream& out = *ctx->out;
  const bool padded = ctx->meta_padded;
  // The separator as four bytes (the last ones spare) and its length.
  const char* const sep = !ctx->meta_comma_separated ? " |  " : padded ? " ,  " : ",   ";
  const size_t sep_len = !ctx->meta_comma_separated || padded ? 3 : 2;
  if (ctx->meta_header_pending) {
    ctx->meta_header_pending = false;
    out.write(metadata_column_header(ctx->meta_comma_separated, padded));
  }

  // Which protocol, and where the ICMP header is (addresses and TTL need only the ethertype).
  const bool ipv4 = is_ipv4_frame(frame);
  const bool ipv6 = !ipv4 && is_ipv6_frame(frame);
  bool has_icmp = false;
  uint32_t icmp_at = 0;
  if (ipv4 && frame[ipv4_protocol] == ip_protocol_icmp) {
    has_icmp = true;
    icmp_at = ipv4_icmp_offset(frame);
  } else if (ipv6 && frame[ipv6_next_header] == ip_next_header_icmpv6) {
    has_icmp = true;
    icmp_at = ipv6_icmp;
  }

  char digest_text[32];
  bool digested = false;
  bool entropy_high = false;
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

  char* const line = out.reserve(k_line_room + k_slack);
  char* p = line;
  auto put_sep = [&] {
    std::memcpy(p, sep, 4);
    p += sep_len;
  };

  p = padded ? put_right(p, frame_number, 7) : zq::put_u64(p, frame_number);
  put_sep();
  static zq::capture_time_texts time_texts;  // the run is single-threaded
  char date[10], time_of_day[12];
  const bool dated = time_texts.format(le32_at(record, rec_ts_sec), le32_at(record, rec_ts_usec), date, time_of_day);
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
  if (has_icmp) {
    std::memcpy(p, ipv6 ? "icmpv6" : "icmp  ", 6);
    p += 6;
  }
  put_sep();

  char* field = p;
  if (ipv4) p = zq::put_ipv4_text(p, frame + ipv4_source);
  if (ipv6) p = zq::put_ipv6_text(p, frame + ipv6_source, 16);
  if (padded) p = pad_to(field, p, 25);
  put_sep();
  field = p;
  if (ipv4) p = zq::put_ipv4_text(p, frame + ipv4_destination);
  if (ipv6) p = zq::put_ipv6_text(p, frame + ipv6_destination, 16);
  if (padded) p = pad_to(field, p, 24);
  put_sep();
  if (ipv4 || ipv6) p = put_right(p, frame[ipv4 ? ipv4_ttl : ipv6_hop_limit], 3);
  put_sep();
  const uint32_t orig_len = le32_at(record, rec_orig_len);
  p = padded ? put_right(p, orig_len, 5) : zq::put_u64(p, orig_len);
  put_sep();
  p = padded ? put_right(p, payload_length, 5) : zq::put_u64(p, payload_length);
  put_sep();
  if (digested) {
    std::memcpy(p, digest_text, 32);
    p += 32;
  }
  put_sep();

  bool has_comments = false;
  if (has_icmp) {
    const uint8_t type = frame[icmp_at + icmp_type];
    const uint8_t code = frame[icmp_at + icmp_code];
    if (ipv6 ? (type == 128 || type == 129) : icmpv4_has_identifier(type)) {
      std::memcpy(p, "id: 0x", 6);
      p = zq::put_hex_fixed(p + 6, be16_at(frame, icmp_at + icmp_identifier), 4);
      std::memcpy(p, ", ", 2);
      p += 2;
    }
    const char* name = ipv6 ? icmpv6_type_name(type, code) : icmpv4_type_name(type, code);
    p = put_text(p, name);
    has_comments = true;
  }
  if (entropy_high) {
    if (has_comments) p = put_text(p, ", ");
    p = put_text(p, "payload has entropy high");
  } else {
    *p++ = ' ';
  }
  *p++ = '\n';
  out.commit(p);
  return true;
}

}  // namespace varn
