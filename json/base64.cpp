#include "json/base64.hpp"

namespace varn::json {

char* put_base64(char* p, const uint8_t* bytes, size_t n) noexcept {
  static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  size_t i = 0;
  for (; i + 3 <= n; i += 3) {
    const uint32_t v = static_cast<uint32_t>(bytes[i]) << 16 | static_cast<uint32_t>(bytes[i + 1]) << 8 | bytes[i + 2];
    p[0] = alphabet[v >> 18];
    p[1] = alphabet[v >> 12 & 63];
    p[2] = alphabet[v >> 6 & 63];
    p[3] = alphabet[v & 63];
    p += 4;
  }
  if (i < n) {
    const bool two = n - i == 2;
    const uint32_t v = static_cast<uint32_t>(bytes[i]) << 16 | (two ? static_cast<uint32_t>(bytes[i + 1]) << 8 : 0u);
    p[0] = alphabet[v >> 18];
    p[1] = alphabet[v >> 12 & 63];
    p[2] = two ? alphabet[v >> 6 & 63] : '=';
    p[3] = '=';
    p += 4;
  }
  return p;
}

}  // namespace varn::json
