#include "zq/zq_text.hpp"

#include <cstring>

namespace zq {

std::string to_lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = to_lower_ascii(c);
  return out;
}

bool equals_ci(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (to_lower_ascii(a[i]) != to_lower_ascii(b[i])) return false;
  return true;
}

namespace {
// Decimal digits of V, written backwards ending at END; returns the first digit.
inline char* digits_backwards(char* end, uint64_t v) noexcept {
  static constexpr char pairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char* p = end;
  while (v >= 100) {
    const unsigned r = static_cast<unsigned>(v % 100);
    v /= 100;
    p -= 2;
    std::memcpy(p, pairs + 2 * r, 2);
  }
  if (v >= 10) {
    p -= 2;
    std::memcpy(p, pairs + 2 * v, 2);
  } else {
    *--p = static_cast<char>('0' + v);
  }
  return p;
}
}  // namespace

char* put_u64(char* p, uint64_t v) noexcept {
  char tmp[24];
  char* first = digits_backwards(tmp + sizeof tmp, v);
  const size_t n = static_cast<size_t>(tmp + sizeof tmp - first);
  std::memcpy(p, first, n);
  return p + n;
}

char* put_u64_right(char* p, uint64_t v, unsigned width) noexcept {
  char tmp[24];
  char* first = digits_backwards(tmp + sizeof tmp, v);
  const size_t n = static_cast<size_t>(tmp + sizeof tmp - first);
  if (n < width) {
    std::memset(p, ' ', width - n);
    p += width - n;
  }
  std::memcpy(p, first, n);
  return p + n;
}

char* put_hex_fixed(char* p, uint64_t v, unsigned digits) noexcept {
  static constexpr char hex[] = "0123456789abcdef";
  if (digits == 4) {  // the common width: two table pairs
    p[0] = hex[v >> 12 & 15];
    p[1] = hex[v >> 8 & 15];
    p[2] = hex[v >> 4 & 15];
    p[3] = hex[v & 15];
    return p + 4;
  }
  for (unsigned i = digits; i > 0; --i) {
    p[i - 1] = hex[v & 15];
    v >>= 4;
  }
  return p + digits;
}

char* put_hex(char* p, uint64_t v) noexcept {
  const unsigned digits = v == 0 ? 1 : static_cast<unsigned>((67 - __builtin_clzll(v)) / 4);
  return put_hex_fixed(p, v, digits);
}

}  // namespace zq
