// Short English names of ICMP and ICMPv6 message types (and, where used, codes).
#pragma once

#include <cstdint>

namespace varn {

// The name of an ICMP (IPv4) message. The code matters only for type 0, whose names carry the
// unreachable reasons in brackets; type 3 is always plain "dst unreachable". Never null.
const char* icmpv4_type_name(uint8_t type, uint8_t code) noexcept;

// The name of an ICMPv6 message. The code matters only for type 1. Never null.
const char* icmpv6_type_name(uint8_t type, uint8_t code) noexcept;

// The name of the message of an ICMP (IPV6 false) or ICMPv6 frame.
inline const char* icmp_type_name(bool ipv6, uint8_t type, uint8_t code) noexcept {
  return ipv6 ? icmpv6_type_name(type, code) : icmpv4_type_name(type, code);
}

// Whether the metadata line's comments show the identifier (ICMP header bytes 4 and 5) of a
// message of this type: echo request and reply, timestamp and address mask request and reply
// (ICMP); echo request and reply (ICMPv6).
constexpr bool icmp_carries_identifier(bool ipv6, uint8_t type) noexcept {
  if (ipv6) return type == 128 || type == 129;
  return type == 0 || type == 8 || type == 13 || type == 14 || type == 17 || type == 18;
}

// Whether ICMP header bytes 4 to 7 of a message of this type are an identifier and a sequence
// number: the types above and the ICMP information request and reply (15, 16), which the
// comments leave without an identifier.
constexpr bool icmp_carries_sequence(bool ipv6, uint8_t type) noexcept {
  return icmp_carries_identifier(ipv6, type) || (!ipv6 && (type == 15 || type == 16));
}

}  // namespace varn
