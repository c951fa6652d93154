#include "capture/frame_filters.hpp"

#include <cstring>

#include "capture/frame_layout.hpp"
#include "capture/pcap_format.hpp"
#include "zq/zq_time.hpp"

namespace varn {

bool ipv6_filter_matches(const std::vector<uint8_t>& value, const uint8_t* address) noexcept {
  const size_t n = value.size();
  if (n == 16) return std::memcmp(value.data(), address, 16) == 0;
  if (n == 0 || n > 16 || n % 2 != 0) return false;
  const size_t zeros = 16 - n;  // bytes of the inserted zero run
  for (size_t cut = 0; cut <= n; cut += 2) {
    if (std::memcmp(address, value.data(), cut) != 0) continue;
    bool zero_run = true;
    for (size_t i = cut; i < cut + zeros; ++i)
      if (address[i] != 0) {
        zero_run = false;
        break;
      }
    if (zero_run && std::memcmp(address + cut + zeros, value.data() + cut, n - cut) == 0) return true;
  }
  return false;
}

namespace {

bool ipv4_addresses_pass(const uint8_t* frame, const frame_context& ctx) {
  if (!ctx.src_ipv6.empty() || !ctx.dst_ipv6.empty()) return false;
  if (ctx.src_ip == 0 && ctx.dst_ip == 0) return true;
  const uint32_t src = le32_at(frame, ipv4_source);
  const uint32_t dst = le32_at(frame, ipv4_destination);
  if (!ctx.track_replies) {
    if (ctx.dst_ip != 0 && ctx.dst_ip != dst) return false;
    if (ctx.src_ip != 0 && ctx.src_ip != src) return false;
  } else {
    if (ctx.dst_ip != 0 && ctx.dst_ip != dst && ctx.dst_ip != src) return false;
    if (ctx.src_ip != 0 && ctx.src_ip != src && ctx.src_ip != dst) return false;
  }
  return true;
}

bool ipv6_addresses_pass(const uint8_t* frame, const frame_context& ctx) {
  if (ctx.src_ip != 0 || ctx.dst_ip != 0) return false;
  const uint8_t* src = frame + ipv6_source;
  const uint8_t* dst = frame + ipv6_destination;
  if (!ctx.track_replies) {
    if (!ctx.src_ipv6.empty() && !ipv6_filter_matches(ctx.src_ipv6, src)) return false;
    if (!ctx.dst_ipv6.empty() && !ipv6_filter_matches(ctx.dst_ipv6, dst)) return false;
  } else {
    if (!ctx.src_ipv6.empty() && !ipv6_filter_matches(ctx.src_ipv6, src) &&
        !ipv6_filter_matches(ctx.src_ipv6, dst))
      return false;
    if (!ctx.dst_ipv6.empty() && !ipv6_filter_matches(ctx.dst_ipv6, dst) &&
        !ipv6_filter_matches(ctx.dst_ipv6, src))
      return false;
  }
  return true;
}

bool ports_pass(const uint8_t* frame, bool ipv4, const frame_context& ctx) {
  if (ctx.src_port > 65535 && ctx.dst_port > 65535) return true;
  const uint8_t proto = ipv4 ? frame[ipv4_protocol] : frame[ipv6_next_header];
  if (proto != ip_protocol_tcp && proto != ip_protocol_udp) return false;
  const uint32_t transport = ipv4 ? ipv4_icmp_offset(frame) : ipv6_icmp;
  const uint32_t src = be16_at(frame, transport);
  const uint32_t dst = be16_at(frame, transport + 2);
  if (!ctx.track_replies) {
    if (ctx.src_port <= 65535 && ctx.src_port != src) return false;
    if (ctx.dst_port <= 65535 && ctx.dst_port != dst) return false;
  } else {
    if (ctx.src_port <= 65535 && ctx.src_port != src && ctx.src_port != dst) return false;
    if (ctx.dst_port <= 65535 && ctx.dst_port != dst && ctx.dst_port != src) return false;
  }
  return true;
}

}  // namespace

bool frame_passes_filters(uint64_t frame_number, const uint8_t* record, const uint8_t* frame,
                          const uint8_t* payload, uint32_t payload_length, const frame_context* ctx) {
  if (record == nullptr || ctx == nullptr || frame == nullptr) return false;
  const bool ipv4 = is_ipv4_frame(frame);
  if (!ipv4 && !is_ipv6_frame(frame)) return false;
  if (ctx->min_size > le32_at(record, rec_orig_len)) return false;
  if (!ctx->frames.empty() && ctx->frames.find(frame_number) == ctx->frames.end()) return false;
  if (ctx->start_time != 0 || ctx->stop_time != 0) {
    const uint64_t t = zq::capture_time_value(le32_at(record, rec_ts_sec), le32_at(record, rec_ts_usec));
    if (ctx->start_time != 0 && ctx->start_time > t) return false;
    if (ctx->stop_time != 0 && ctx->stop_time < t) return false;
  }
  if (ipv4 ? !ipv4_addresses_pass(frame, *ctx) : !ipv6_addresses_pass(frame, *ctx)) return false;
  if (!ports_pass(frame, ipv4, *ctx)) return false;
  if (!ctx->pattern.valid()) return true;
  if (ctx->pattern.scope() == byte_pattern::scope_payload)
    return ctx->pattern.find(payload, payload_length);
  return ctx->pattern.find(frame, le32_at(record, rec_incl_len));
}

}  // namespace varn
