// Finding the ICMP or ICMPv6 header behind an IP header: IPv4 through its header length (options
// included), IPv6 through the extension headers that may stand before ICMPv6.
#pragma once

#include <cstdint>

namespace varn {

enum class icmp_search : uint8_t {
  found,      // the IP header and the whole 8-byte ICMP header lie within the captured bytes
  not_icmp,   // another protocol, or a fragment other than the first
  truncated,  // the captured bytes end before the ICMP header does, or before varn can tell
};

struct icmp_position {
  icmp_search result;
  uint32_t icmp_offset;  // first byte of the ICMP header, from the frame's first byte (when found)
};

// IPv4 at IP_OFFSET of FRAME (CAP_LEN captured bytes): ICMP when the protocol is 1 and the
// packet is not a fragment other than the first (offset 0); its header starts 4 x IHL bytes in.
// The version nibble is not checked (the link layer has said IPv4).
icmp_position find_icmp_in_ipv4(const uint8_t* frame, uint32_t cap_len, uint32_t ip_offset) noexcept;

// IPv6 at IP_OFFSET: ICMPv6 when next header 58 follows the fixed header, or follows a chain of
// hop-by-hop options, routing, destination options and fragment headers in which the fragment
// (if any) is the first one (offset 0).
icmp_position find_icmp_in_ipv6(const uint8_t* frame, uint32_t cap_len, uint32_t ip_offset) noexcept;

}  // namespace varn
