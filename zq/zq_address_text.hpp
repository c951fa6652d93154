// Text forms of IPv4, hardware and IPv6 addresses, and the IPv6 option-text reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zq/zq_byterun.hpp"

namespace zq {

// Length 4: dotted decimal; 6 or 8: colon-separated two-digit hex bytes; otherwise empty.
void format_address_bytes(const uint8_t* bytes, size_t length, std::string& result);

// IPv6 text of LENGTH / 2 big-endian 16-bit groups at GROUPS. The first run of zero groups is
// the one compressed to "::", however short, even when a later run is longer. A null pointer or
// a zero length leaves RESULT untouched.
void format_ipv6_groups(const uint8_t* groups, size_t length, std::string& result);

// Writes the same texts to DST and returns the end: dotted decimal (at most 15 characters; DST
// needs room for 16, the byte after the end may be overwritten) and the IPv6 text of a 16-byte
// address (at most 39 characters).
char* put_ipv4_text(char* dst, const uint8_t bytes[4]) noexcept;
char* put_ipv6_text(char* dst, const uint8_t* groups, size_t length) noexcept;

// Reads IPv6 text into RESULT, two bytes per non-empty colon-separated field (each field read
// as hex, low 16 bits kept), so "2001:db8::1" gives 6 bytes and only an eight-group text gives
// 16. Empty text gives 16 zero bytes. False when the text holds no field at all.
bool parse_ipv6_text(std::string_view text, byte_run& result);

}  // namespace zq
