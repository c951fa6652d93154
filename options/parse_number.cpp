#include "options/parse_number.hpp"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "zq/zq_text.hpp"

namespace varn {

namespace {

inline bool starts_number(char c) noexcept { return (c >= '0' && c <= '9') || c == '+' || c == '-'; }

uint32_t convert(const std::string& digits, int base) {
  return static_cast<uint32_t>(std::strtoul(digits.c_str(), nullptr, base));
}

// The digits of an unsigned number in BASE with an optional sign, as stream extraction reads
// them; false when no digit follows.
bool read_u64(std::string_view text, int base, uint64_t& out) {
  size_t i = 0;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint64_t value = 0;
  size_t digits = 0;
  for (; i < text.size(); ++i, ++digits) {
    const char c = zq::to_lower_ascii(text[i]);
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (c >= 'a' && c <= 'f')
      d = c - 'a' + 10;
    else
      break;
    if (d >= base) break;
    const uint64_t next = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    if (value > (UINT64_MAX - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) return false;
    value = next;
  }
  if (digits == 0) return false;
  out = negative ? 0 - value : value;
  return true;
}

}  // namespace

bool parse_number(std::string_view text, uint32_t& out) {
  out = 0;
  if (text.empty()) return false;
  const std::string lower = zq::to_lower(text);
  if (lower.size() >= 2 && lower[1] == 'x') {
    out = convert(lower.substr(2), 16);
    return true;
  }
  if (lower[0] == 'x') {
    out = convert(lower.substr(1), 16);
    return true;
  }
  if (lower[0] == 'o') {
    out = convert(lower.substr(1), 8);
    return true;
  }
  if (starts_number(text[0])) {
    out = convert(std::string(text), 10);
    return true;
  }
  if (text.size() == 3 && text[0] == '\'' && text[2] == '\'') {
    out = static_cast<uint8_t>(text[1]);
    return true;
  }
  return false;
}

void read_number_list(std::string_view text, std::vector<uint64_t>& out) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of("|,; ", start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view piece = text.substr(start, end - start);
    start = end + 1;
    while (!piece.empty() && (piece[0] == ' ' || piece[0] == '\t' || piece[0] == '\n' ||
                              piece[0] == '\r' || piece[0] == '\v' || piece[0] == '\f'))
      piece.remove_prefix(1);
    if (piece.empty()) continue;
    int base = 10;
    const char c0 = zq::to_lower_ascii(piece[0]);
    if (c0 == '0' && piece.size() >= 2 && zq::to_lower_ascii(piece[1]) == 'x') {
      base = 16;
      piece.remove_prefix(2);
    } else if (c0 == 'x') {
      base = 16;
      piece.remove_prefix(1);
    } else if (c0 == 'o') {
      base = 8;
      piece.remove_prefix(1);
    }
    uint64_t value;
    if (read_u64(piece, base, value)) out.push_back(value);
  }
}

void read_frame_list(std::string_view text, std::vector<uint64_t>& out) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string piece(text.substr(start, end - start));
    start = end + 1;
    if (piece.empty() || !starts_number(piece[0])) continue;
    errno = 0;
    out.push_back(std::strtoull(piece.c_str(), nullptr, 10));
  }
}

}  // namespace varn
