// Where the handler finds things in an Ethernet II frame carrying IPv4/ICMP or IPv6/ICMPv6.
#pragma once

#include <cstdint>

namespace varn {

inline uint16_t be16_at(const uint8_t* p, uint32_t offset) noexcept {
  return static_cast<uint16_t>(p[offset] << 8 | p[offset + 1]);
}

// Frame offsets (from the first byte of the Ethernet header).
constexpr uint32_t eth_type = 12;
constexpr uint32_t eth_header_size = 14;
constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint16_t ethertype_ipv6 = 0x86DD;

constexpr uint32_t ipv4_version_ihl = 14;
constexpr uint32_t ipv4_ttl = 22;
constexpr uint32_t ipv4_protocol = 23;
constexpr uint32_t ipv4_source = 26;
constexpr uint32_t ipv4_destination = 30;
constexpr uint8_t ip_protocol_icmp = 1;

constexpr uint32_t ipv6_next_header = 20;
constexpr uint32_t ipv6_hop_limit = 21;
constexpr uint32_t ipv6_source = 22;
constexpr uint32_t ipv6_destination = 38;
constexpr uint32_t ipv6_icmp = 54;
constexpr uint8_t ip_next_header_icmpv6 = 58;

constexpr uint8_t ip_protocol_tcp = 6;
constexpr uint8_t ip_protocol_udp = 17;

// ICMP header offsets (from the ICMP header).
constexpr uint32_t icmp_type = 0;
constexpr uint32_t icmp_code = 1;
constexpr uint32_t icmp_identifier = 4;
constexpr uint32_t icmp_header_size = 8;

inline bool is_ipv4_frame(const uint8_t* frame) noexcept { return be16_at(frame, eth_type) == ethertype_ipv4; }
inline bool is_ipv6_frame(const uint8_t* frame) noexcept { return be16_at(frame, eth_type) == ethertype_ipv6; }

// Offset of the ICMP header behind an IPv4 header: 14 + 4 x IHL.
inline uint32_t ipv4_icmp_offset(const uint8_t* frame) noexcept {
  return eth_header_size + 4u * (frame[ipv4_version_ihl] & 0x0f);
}

}  // namespace varn
