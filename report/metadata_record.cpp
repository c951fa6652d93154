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

inline char* put_text(char* p, std::string_view s) {
  if (s.empty()) return p;
  std::memcpy(p, s.data(), s.size());
  return p + s.size();
}

inline char* put_left(char* p, const char* begin, const char* end, size_t width) {
  const size_t n = static_cast<size_t>(end - begin);
  if (n > 0) std::memmove(p, begin, n);
  p += n;
  if (n < width) {
    std::memset(p, ' ', width - n);
    p += width - n;
  }
  return p;
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
  const std::string_view sep = separator_for(ctx->meta_comma_separated, padded);
  if (ctx->meta_header_pending) {
    ctx->meta_header_pending = false;
    out.write(metadata_column_header(ctx->meta_comma_separated, padded));
  }

  // Field texts, empty until set.
  char src[48], dst[48], ttl[8], comments[96];
  char *src_end = src, *dst_end = dst, *ttl_end = ttl, *comments_end = comments;
  std::string_view proto = "";
  uint32_t icmp_at = 0;
  bool has_icmp = false, ipv6 = false;
  if (is_ipv4_frame(frame)) {
    src_end = zq::put_ipv4_text(src, frame + ipv4_source);
    dst_end = zq::put_ipv4_text(dst, frame + ipv4_destination);
    ttl_end = zq::put_u64_right(ttl, frame[ipv4_ttl], 3);
    if (frame[ipv4_protocol] == ip_protocol_icmp) {
      proto = "icmp  ";
      icmp_at = ipv4_icmp_offset(frame);
      has_icmp = true;
    }
  } else if (is_ipv6_frame(frame)) {
    src_end = zq::put_ipv6_text(src, frame + ipv6_source, 16);
    dst_end = zq::put_ipv6_text(dst, frame + ipv6_destination, 16);
    ttl_end = zq::put_u64_right(ttl, frame[ipv6_hop_limit], 3);
    if (frame[ipv6_next_header] == ip_next_header_icmpv6) {
      proto = "icmpv6";
      icmp_at = ipv6_icmp;
      has_icmp = true;
      ipv6 = true;
    }
  }
  if (has_icmp) {
    const uint8_t type = frame[icmp_at + icmp_type];
    const uint8_t code = frame[icmp_at + icmp_code];
    const bool has_id = ipv6 ? (type == 128 || type == 129) : icmpv4_has_identifier(type);
    if (has_id) {
      comments_end = put_text(comments_end, "id: 0x");
      comments_end = zq::put_hex_fixed(comments_end, be16_at(frame, icmp_at + icmp_identifier), 4);
      comments_end = put_text(comments_end, ", ");
    }
    comments_end = put_text(comments_end, ipv6 ? icmpv6_type_name(type, code) : icmpv4_type_name(type, code));
  }

  char digest_text[32];
  size_t digest_len = 0;
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
      digest_len = 32;
    }
    entropy_high = counting && zq::entropy_high_from_histogram(histogram, payload_length);
  }

  char date[10], time_of_day[12];
  static zq::capture_time_texts time_texts;  // the run is single-threaded
  const bool dated = time_texts.format(le32_at(record, rec_ts_sec), le32_at(record, rec_ts_usec), date, time_of_day);

  char line[512];
  char* p = line;
  p = padded ? zq::put_u64_right(p, frame_number, 7) : zq::put_u64(p, frame_number);
  p = put_text(p, sep);
  if (dated) p = put_text(p, std::string_view(date, 10));
  p = put_text(p, sep);
  if (dated) p = put_text(p, std::string_view(time_of_day, 12));
  p = put_text(p, sep);
  p = put_text(p, proto);
  p = put_text(p, sep);
  p = put_left(p, src, src_end, padded ? 25 : 0);
  p = put_text(p, sep);
  p = put_left(p, dst, dst_end, padded ? 24 : 0);
  p = put_text(p, sep);
  p = put_text(p, std::string_view(ttl, static_cast<size_t>(ttl_end - ttl)));
  p = put_text(p, sep);
  const uint32_t orig_len = le32_at(record, rec_orig_len);
  p = padded ? zq::put_u64_right(p, orig_len, 5) : zq::put_u64(p, orig_len);
  p = put_text(p, sep);
  p = padded ? zq::put_u64_right(p, payload_length, 5) : zq::put_u64(p, payload_length);
  p = put_text(p, sep);
  p = put_text(p, std::string_view(digest_text, digest_len));
  p = put_text(p, sep);
  p = put_text(p, std::string_view(comments, static_cast<size_t>(comments_end - comments)));
  if (entropy_high) {
    if (comments_end != comments) p = put_text(p, ", ");
    p = put_text(p, "payload has entropy high");
  } else {
    *p++ = ' ';
  }
  *p++ = '\n';
  out.write(line, static_cast<size_t>(p - line));
  return true;
}

}  // namespace varn
