// Short English names of ICMP and ICMPv6 message types (and, where used, codes).
#pragma once

#include <cstdint>

namespace varn {

// The name of an ICMP (IPv4) message. The code matters only for type 0, whose names carry the
// unreachable reasons in brackets; type 3 is always plain "dst unreachable". Never null.
const char* icmpv4_type_name(uint8_t type, uint8_t code) noexcept;

// The name of an ICMPv6 message. The code matters only for type 1. Never null.
const char* icmpv6_type_name(uint8_t type, uint8_t code) noexcept;

}  // namespace varn
