#include "json/json_text.hpp"

#include <charconv>
#include <cmath>
#include <cstring>

#include "json/base64.hpp"
#include "zq/zq_fatal.hpp"
#include "zq/zq_text.hpp"

namespace varn::json {

namespace {

constexpr unsigned k_max_depth = 64;

// Bytes 0x20..0x7e other than quote and backslash: copied as they stand.
struct plain_bytes {
  bool of[256];
  constexpr plain_bytes() : of{} {
    for (int b = 0x20; b < 0x7f; ++b) of[b] = b != '"' && b != '\\';
  }
};
constexpr plain_bytes k_plain;

// Length of the well-formed UTF-8 sequence that starts at S (a byte of 0x80 or above), or 0
// when the bytes from S do not start one (RFC 3629, table 3-7 of the Unicode standard).
inline size_t utf8_sequence(const uint8_t* s, const uint8_t* end) noexcept {
  const uint8_t b = s[0];
  const size_t left = static_cast<size_t>(end - s);
  auto cont = [&](size_t i, uint8_t lo, uint8_t hi) { return i < left && s[i] >= lo && s[i] <= hi; };
  if (b >= 0xc2 && b <= 0xdf) return cont(1, 0x80, 0xbf) ? 2 : 0;
  if (b >= 0xe0 && b <= 0xef) {
    const uint8_t lo = b == 0xe0 ? 0xa0 : 0x80;
    const uint8_t hi = b == 0xed ? 0x9f : 0xbf;  // 0xed 0xa0..: UTF-16 surrogates
    return cont(1, lo, hi) && cont(2, 0x80, 0xbf) ? 3 : 0;
  }
  if (b >= 0xf0 && b <= 0xf4) {
    const uint8_t lo = b == 0xf0 ? 0x90 : 0x80;
    const uint8_t hi = b == 0xf4 ? 0x8f : 0xbf;  // nothing above U+10FFFF
    return cont(1, lo, hi) && cont(2, 0x80, 0xbf) && cont(3, 0x80, 0xbf) ? 4 : 0;
  }
  return 0;
}

inline char* put_escape(char* p, uint8_t b) noexcept {
  static constexpr char hex[] = "0123456789abcdef";
  char short_form = 0;
  switch (b) {
    case '"': short_form = '"'; break;
    case '\\': short_form = '\\'; break;
    case '\b': short_form = 'b'; break;
    case '\f': short_form = 'f'; break;
    case '\n': short_form = 'n'; break;
    case '\r': short_form = 'r'; break;
    case '\t': short_form = 't'; break;
    default: break;
  }
  p[0] = '\\';
  if (short_form != 0) {
    p[1] = short_form;
    return p + 2;
  }
  std::memcpy(p + 1, "u00", 3);
  p[4] = hex[b >> 4];
  p[5] = hex[b & 15];
  return p + 6;
}

// The input bytes of TEXT[AT, ...) that a piece of at most MAX bytes may take without cutting a
// UTF-8 sequence in two (so that every piece is escaped as the whole would be).
size_t piece_length(std::string_view text, size_t at, size_t max) noexcept {
  size_t n = text.size() - at;
  if (n <= max) return n;
  n = max;
  for (int back = 0; back < 3 && (static_cast<uint8_t>(text[at + n]) & 0xc0) == 0x80; ++back) --n;
  return n;
}

}  // namespace

char* put_string_body(char* p, std::string_view text, bool* exact) noexcept {
  const uint8_t* s = reinterpret_cast<const uint8_t*>(text.data());
  const uint8_t* const end = s + text.size();
  while (s < end) {
    const uint8_t b = *s;
    if (k_plain.of[b]) {
      *p++ = static_cast<char>(b);
      ++s;
      continue;
    }
    if (b < 0x80) {
      p = put_escape(p, b);
      ++s;
      continue;
    }
    const size_t n = utf8_sequence(s, end);
    if (n == 0) {
      std::memcpy(p, "\xef\xbf\xbd", 3);  // U+FFFD
      p += 3;
      if (exact != nullptr) *exact = false;
      ++s;
      continue;
    }
    if (n == 3 && b == 0xe2 && s[1] == 0x80 && (s[2] == 0xa8 || s[2] == 0xa9)) {
      std::memcpy(p, s[2] == 0xa8 ? "\\u2028" : "\\u2029", 6);
      p += 6;
    } else {
      std::memcpy(p, s, n);
      p += n;
    }
    s += n;
  }
  return p;
}

bool is_utf8(std::string_view text) noexcept {
  const uint8_t* s = reinterpret_cast<const uint8_t*>(text.data());
  const uint8_t* const end = s + text.size();
  while (s < end) {
    if (*s < 0x80) {
      ++s;
      continue;
    }
    const size_t n = utf8_sequence(s, end);
    if (n == 0) return false;
    s += n;
  }
  return true;
}

char* put_printable_body(char* p, const uint8_t* bytes, size_t n) noexcept {
  for (size_t i = 0; i < n; ++i) {
    const uint8_t b = bytes[i];
    if (k_plain.of[b]) {
      *p++ = static_cast<char>(b);
    } else if (b == '"' || b == '\\') {
      *p++ = '\\';
      *p++ = static_cast<char>(b);
    } else {
      *p++ = '.';
    }
  }
  return p;
}

void text::separate() {
  if (m_after_key) {
    m_after_key = false;
    return;
  }
  if (m_depth == 0) return;
  const uint64_t bit = uint64_t{1} << (m_depth - 1);
  if ((m_has_element & bit) != 0) m_out.put(',');
  m_has_element |= bit;
}

void text::open(char bracket) {
  separate();
  if (m_depth >= k_max_depth) zq::fatal_assertion("json::text::open", "m_depth < k_max_depth");
  m_out.put(bracket);
  ++m_depth;
  m_has_element &= ~(uint64_t{1} << (m_depth - 1));
}

void text::close(char bracket) {
  if (m_depth == 0) zq::fatal_assertion("json::text::close", "m_depth > 0");
  --m_depth;
  m_after_key = false;
  m_out.put(bracket);
}

text& text::begin_object() {
  open('{');
  return *this;
}

text& text::end_object() {
  close('}');
  return *this;
}

text& text::begin_array() {
  open('[');
  return *this;
}

text& text::end_array() {
  close(']');
  return *this;
}

text& text::continue_object() {
  if (m_depth >= k_max_depth) zq::fatal_assertion("json::text::continue_object", "m_depth < k_max_depth");
  ++m_depth;
  m_has_element |= uint64_t{1} << (m_depth - 1);
  return *this;
}

text& text::end_line() {
  m_out.put('\n');
  return *this;
}

namespace {

// Writes TEXT as the body of a string in pieces that fit OUT's buffer. Clears *EXACT when a byte
// had to be replaced.
void write_string_body(uni::out_stream& out, std::string_view value, bool* exact) {
  const size_t max = (out.capacity() - 8) / 6;
  for (size_t at = 0; at < value.size();) {
    const size_t n = piece_length(value, at, max);
    char* p = out.reserve(6 * n);
    out.commit(put_string_body(p, value.substr(at, n), exact));
    at += n;
  }
}

}  // namespace

text& text::key(std::string_view name) {
  separate();
  m_out.put('"');
  write_string_body(m_out, name, nullptr);
  m_out.write("\":", 2);
  m_after_key = true;
  return *this;
}

text& text::string(std::string_view value) {
  separate();
  m_out.put('"');
  write_string_body(m_out, value, nullptr);
  m_out.put('"');
  return *this;
}

text& text::exact_string(std::string_view name, std::string_view value) {
  key(name);
  separate();
  bool exact = true;
  m_out.put('"');
  write_string_body(m_out, value, &exact);
  m_out.put('"');
  if (!exact) {
    std::string companion(name);
    companion += "_base64";
    key(companion).base64(reinterpret_cast<const uint8_t*>(value.data()), value.size());
  }
  return *this;
}

text& text::number(uint64_t value) {
  separate();
  char* p = m_out.reserve(24);
  m_out.commit(zq::put_u64(p, value));
  return *this;
}

text& text::number(int64_t value) {
  separate();
  char* p = m_out.reserve(24);
  if (value < 0) *p++ = '-';
  const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  m_out.commit(zq::put_u64(p, magnitude));
  return *this;
}

text& text::number(double value) {
  if (!std::isfinite(value)) return null();
  separate();
  char* p = m_out.reserve(32);
  const std::to_chars_result r = std::to_chars(p, p + 32, value);
  m_out.commit(r.ptr);
  return *this;
}

text& text::decimal(int64_t scaled, unsigned decimals) {
  if (decimals > 18) decimals = 18;
  separate();
  uint64_t unit = 1;
  for (unsigned i = 0; i < decimals; ++i) unit *= 10;
  char* p = m_out.reserve(48);
  if (scaled < 0) *p++ = '-';
  const uint64_t magnitude = scaled < 0 ? 0 - static_cast<uint64_t>(scaled) : static_cast<uint64_t>(scaled);
  p = zq::put_u64(p, magnitude / unit);
  if (decimals > 0) {
    *p++ = '.';
    uint64_t fraction = magnitude % unit;
    for (unsigned i = decimals; i > 0; --i) {
      p[i - 1] = static_cast<char>('0' + fraction % 10);
      fraction /= 10;
    }
    p += decimals;
  }
  m_out.commit(p);
  return *this;
}

text& text::boolean(bool value) {
  separate();
  if (value)
    m_out.write("true", 4);
  else
    m_out.write("false", 5);
  return *this;
}

text& text::null() {
  separate();
  m_out.write("null", 4);
  return *this;
}

text& text::base64(const uint8_t* bytes, size_t n) {
  separate();
  m_out.put('"');
  const size_t max = (out().capacity() - 8) / 4 * 3;  // a multiple of 3: pieces join up
  for (size_t at = 0; at < n;) {
    const size_t piece = n - at < max ? n - at : max;
    char* p = m_out.reserve(base64_size(piece));
    m_out.commit(put_base64(p, bytes + at, piece));
    at += piece;
  }
  m_out.put('"');
  return *this;
}

text& text::printable(const uint8_t* bytes, size_t n) {
  separate();
  m_out.put('"');
  const size_t max = (out().capacity() - 8) / 2;
  for (size_t at = 0; at < n;) {
    const size_t piece = n - at < max ? n - at : max;
    char* p = m_out.reserve(2 * piece);
    m_out.commit(put_printable_body(p, bytes + at, piece));
    at += piece;
  }
  m_out.put('"');
  return *this;
}

text& text::raw(std::string_view value) {
  separate();
  m_out.write(value);
  return *this;
}

text& text::raw_members(std::string_view members) {
  if (members.empty()) return *this;
  if (m_depth == 0) zq::fatal_assertion("json::text::raw_members", "m_depth > 0");
  const uint64_t bit = uint64_t{1} << (m_depth - 1);
  if ((m_has_element & bit) == 0 && members.front() == ',') members.remove_prefix(1);
  m_has_element |= bit;
  m_out.write(members);
  return *this;
}

}  // namespace varn::json
