#include "layers/ip_layer.hpp"

#include "capture/frame_layout.hpp"

namespace varn {

namespace {

constexpr uint32_t ipv4_header_min = 20;  // through the destination address
constexpr uint32_t ipv4_fragment_at = 6;  // flags and fragment offset
constexpr uint32_t ipv4_protocol_at = 9;
constexpr uint32_t ipv6_header_size = 40;
constexpr uint32_t ipv6_next_header_at = 6;

// IPv6 extension headers walked on the way to ICMPv6.
constexpr uint8_t ext_hop_by_hop = 0;
constexpr uint8_t ext_routing = 43;
constexpr uint8_t ext_fragment = 44;
constexpr uint8_t ext_destination = 60;
constexpr uint32_t fragment_header_size = 8;

constexpr icmp_position k_not_icmp = {icmp_search::not_icmp, 0};
constexpr icmp_position k_truncated = {icmp_search::truncated, 0};

// Found when both the fixed IP header (through HEADER_END) and the ICMP header fit.
icmp_position icmp_at(uint32_t icmp_offset, uint32_t header_end, uint32_t cap_len) noexcept {
  const uint64_t icmp_end = static_cast<uint64_t>(icmp_offset) + icmp_header_size;
  if (cap_len < header_end || cap_len < icmp_end) return k_truncated;
  return {icmp_search::found, icmp_offset};
}

}  // namespace

icmp_position find_icmp_in_ipv4(const uint8_t* frame, uint32_t cap_len, uint32_t ip_offset) noexcept {
  if (cap_len <= ip_offset + ipv4_protocol_at) return k_truncated;
  if (frame[ip_offset + ipv4_protocol_at] != ip_protocol_icmp) return k_not_icmp;
  if ((be16_at(frame, ip_offset + ipv4_fragment_at) & 0x1fff) != 0) return k_not_icmp;  // a later fragment
  const uint32_t ihl = frame[ip_offset] & 0x0f;
  return icmp_at(ip_offset + 4 * ihl, ip_offset + ipv4_header_min, cap_len);
}

icmp_position find_icmp_in_ipv6(const uint8_t* frame, uint32_t cap_len, uint32_t ip_offset) noexcept {
  if (cap_len <= ip_offset + ipv6_next_header_at) return k_truncated;
  uint8_t next = frame[ip_offset + ipv6_next_header_at];
  uint32_t at = ip_offset + ipv6_header_size;
  for (;;) {
    if (next == ip_next_header_icmpv6) return icmp_at(at, ip_offset + ipv6_header_size, cap_len);
    if (next == ext_fragment) {
      if (cap_len < at + fragment_header_size) return k_truncated;
      if ((be16_at(frame, at + 2) & 0xfff8) != 0) return k_not_icmp;  // a later fragment: no ICMP header
      next = frame[at];
      at += fragment_header_size;
    } else if (next == ext_hop_by_hop || next == ext_routing || next == ext_destination) {
      if (cap_len < at + 2) return k_truncated;
      next = frame[at];
      at += 8u * (frame[at + 1] + 1u);  // header extension length in 8-byte units, the first 8 not counted
    } else {
      return k_not_icmp;
    }
  }
}

}  // namespace varn
