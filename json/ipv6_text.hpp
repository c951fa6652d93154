// IPv6 addresses in the recommended text form of RFC 5952, the form other tools print and
// parse: lower-case groups without leading zeros; the longest run of two or more zero groups
// (the first of equally long runs) written as "::", a lone zero group as "0"; IPv4-mapped
// addresses (::ffff:0:0/96) as "::ffff:" and dotted decimal (section 5).
#pragma once

#include <cstddef>
#include <cstdint>

namespace varn::json {

// Longest text: eight groups of four digits and seven colons.
constexpr size_t ipv6_text_room = 40;

// Writes the text of the 16-byte address at ADDRESS at P and returns the end (at most 39
// characters).
char* put_ipv6_text(char* p, const uint8_t* address) noexcept;

}  // namespace varn::json
