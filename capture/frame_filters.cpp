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

bool ipv4_addresses_pass(const icmp_frame& f, const frame_context& ctx) {
  if (!ctx.src_ipv6.empty() || !ctx.dst_ipv6.empty()) return false;
  if (ctx.src_ip == 0 && ctx.dst_ip == 0) return true;
  const uint32_t src = le32_at(f.source(), 0);
  const uint32_t dst = le32_at(f.destination(), 0);
  if (!ctx.track_replies) {
    if (ctx.dst_ip != 0 && ctx.dst_ip != dst) return false;
    if (ctx.src_ip != 0 && ctx.src_ip != src) return false;
  } else {
    if (ctx.dst_ip != 0 && ctx.dst_ip != dst && ctx.dst_ip != src) return false;
    if (ctx.src_ip != 0 && ctx.src_ip != src && ctx.src_ip != dst) return false;
  }
  return true;
}

bool ipv6_addresses_pass(const icmp_frame& f, const frame_context& ctx) {
  if (ctx.src_ip != 0 || ctx.dst_ip != 0) return false;
  const uint8_t* src = f.source();
  const uint8_t* dst = f.destination();
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

// The transport header would start where the ICMP header does.
bool ports_pass(const icmp_frame& f, const frame_context& ctx) {
  if (ctx.src_port > 65535 && ctx.dst_port > 65535) return true;
  const uint8_t proto = f.ip_protocol();
  if (proto != ip_protocol_tcp && proto != ip_protocol_udp) return false;
  const uint32_t src = be16_at(f.icmp(), 0);
  const uint32_t dst = be16_at(f.icmp(), 2);
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

bool frame_passes_filters(const icmp_frame& f, const frame_context* ctx) {
  if (ctx == nullptr || f.frame == nullptr) return false;
  if (ctx->min_size > f.wire_len) return false;
  if (!ctx->frames.empty() && ctx->frames.find(f.number) == ctx->frames.end()) return false;
  if (ctx->start_time != 0 || ctx->stop_time != 0) {
    const uint64_t t = f.time_value();
    if (ctx->start_time != 0 && ctx->start_time > t) return false;
    if (ctx->stop_time != 0 && ctx->stop_time < t) return false;
  }
  if (f.ipv6 ? !ipv6_addresses_pass(f, *ctx) : !ipv4_addresses_pass(f, *ctx)) return false;
  if (!ports_pass(f, *ctx)) return false;
  if (!ctx->pattern.valid()) return true;
  if (ctx->pattern.scope() == byte_pattern::scope_payload) return ctx->pattern.find(f.payload, f.payload_length);
  return ctx->pattern.find(f.frame, f.cap_len);
}

}  // namespace varn
