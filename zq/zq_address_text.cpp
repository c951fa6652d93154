#include "zq/zq_address_text.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zq/zq_text.hpp"

namespace zq {

void format_address_bytes(const uint8_t* bytes, size_t length, std::string& result) {
  result.clear();
  if (bytes == nullptr) return;
  char buf[32];
  if (length == 4) {
    result.assign(buf, put_ipv4_text(buf, bytes));
  } else if (length == 6 || length == 8) {
    char* p = buf;
    for (size_t i = 0; i < length; ++i) {
      if (i > 0) *p++ = ':';
      p = put_hex_fixed(p, bytes[i], 2);
    }
    result.assign(buf, p);
  }
}

namespace {

// Decimal text of every byte value: up to three digits, then a '.' in the spare places, and
// the text's length; one 4-byte copy writes a byte's digits and the dot that may follow.
struct decimal_byte {
  char text[4];
  uint8_t length;
};

struct decimal_bytes {
  decimal_byte of[256];
  constexpr decimal_bytes() : of{} {
    for (int v = 0; v < 256; ++v) {
      decimal_byte& d = of[v];
      int n = 0;
      if (v >= 100) d.text[n++] = static_cast<char>('0' + v / 100);
      if (v >= 10) d.text[n++] = static_cast<char>('0' + v / 10 % 10);
      d.text[n++] = static_cast<char>('0' + v % 10);
      d.length = static_cast<uint8_t>(n);
      for (; n < 4; ++n) d.text[n] = '.';
    }
  }
};
constexpr decimal_bytes k_decimal;

}  // namespace

char* put_ipv4_text(char* dst, const uint8_t bytes[4]) noexcept {
  // Each copy writes the byte's digits and at least one '.'; the last one's dot is cut off by
  // the returned end.
  for (int i = 0; i < 3; ++i) {
    const decimal_byte& d = k_decimal.of[bytes[i]];
    std::memcpy(dst, d.text, 4);
    dst += d.length + 1;
  }
  const decimal_byte& d = k_decimal.of[bytes[3]];
  std::memcpy(dst, d.text, 4);
  return dst + d.length;
}

char* put_ipv6_text(char* dst, const uint8_t* groups, size_t length) noexcept {
  const size_t n = length / 2;
  enum { before_run, in_run, after_run } state = before_run;
  for (size_t g = 0; g < n; ++g) {
    const uint16_t v = static_cast<uint16_t>(groups[2 * g] << 8 | groups[2 * g + 1]);
    if (v == 0 && state == before_run) {
      state = in_run;  // the run's first group prints nothing but its separator
      if (g == 0) *dst++ = ':';
    } else if (v == 0 && state == in_run) {
      continue;  // inside the run: neither digits nor separator
    } else {
      if (state == in_run) state = after_run;
      dst = put_hex(dst, v);
    }
    if (g + 1 < n) *dst++ = ':';
  }
  return dst;
}

void format_ipv6_groups(const uint8_t* groups, size_t length, std::string& result) {
  if (groups == nullptr || length == 0) return;
  std::vector<char> buf(length / 2 * 5 + 2);
  result.assign(buf.data(), put_ipv6_text(buf.data(), groups, length));
}

bool parse_ipv6_text(std::string_view text, byte_run& result) {
  result.clear();
  if (text.empty()) {
    for (int i = 0; i < 16; ++i) result.append(0);
    return true;
  }
  std::string s(text);
  size_t colons = 0;
  for (char c : s) colons += c == ':';
  if (colons < 7) {
    const std::string widened = "::" + std::string(7 - colons, ':');
    for (size_t pos = s.find("::"); pos != std::string::npos; pos = s.find("::", pos + widened.size()))
      s.replace(pos, 2, widened);
  }
  std::vector<std::string> fields;
  size_t start = 0;
  while (start <= s.size()) {
    size_t colon = s.find(':', start);
    if (colon == std::string::npos) colon = s.size();
    if (colon > start) fields.push_back(s.substr(start, colon - start));
    start = colon + 1;
  }
  if (fields.empty()) return false;
  for (const std::string& f : fields) {
    const unsigned long v = std::strtoul(f.c_str(), nullptr, 16);
    result.append_be16(static_cast<uint16_t>(v & 0xffff));
  }
  return true;
}

}  // namespace zq
