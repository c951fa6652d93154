// Small text helpers: ASCII case folding and number formatting into char buffers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zq {

inline char to_lower_ascii(char c) noexcept {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// A lower-cased copy (ASCII letters only).
std::string to_lower(std::string_view text);

// True when both texts have the same length and are equal after lower-casing.
bool equals_ci(std::string_view a, std::string_view b) noexcept;

// Printable byte: 32 to 126 inclusive.
inline bool is_printable(uint8_t b) noexcept { return b >= 32 && b <= 126; }

// Writes V in decimal at P and returns the end. At most 20 characters.
char* put_u64(char* p, uint64_t v) noexcept;

// Writes V in decimal right-aligned in WIDTH characters (blank-filled; wider numbers are not cut).
char* put_u64_right(char* p, uint64_t v, unsigned width) noexcept;

// Writes V as exactly DIGITS lower-case hex digits (leading zeros), DIGITS from 1 to 16.
char* put_hex_fixed(char* p, uint64_t v, unsigned digits) noexcept;

// Writes V in lower-case hex without leading zeros ("0" for zero).
char* put_hex(char* p, uint64_t v) noexcept;

}  // namespace zq
