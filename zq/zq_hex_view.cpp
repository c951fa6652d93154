#include "zq/zq_hex_view.hpp"

#include <cstring>

#include "zq/zq_fatal.hpp"
#include "zq/zq_text.hpp"

namespace zq {

binary_data::binary_data(const uint8_t* data, uint32_t length, bool copy) {
  if (data == nullptr || length == 0) return;
  m_num_data = length;
  m_kind = 2;
  m_copying = copy;
  if (copy)
    m_copy.assign(data, data + length);
  else
    m_borrowed = data;
}

uint8_t binary_data::operator()(uint32_t index) const {
  if (!(index < m_num_data)) fatal_assertion("zq::binary_data::operator()", "index < m_num_data");
  return bytes()[index];
}

uint8_t& binary_data::operator()(uint32_t index) {
  if (!(index < m_num_data)) fatal_assertion("zq::binary_data::operator()", "index < m_num_data");
  return m_copying ? m_copy[index] : const_cast<uint8_t&>(m_borrowed[index]);
}

namespace {

struct hex_tables {
  char pair[256][4];  // "xx  ": the two digits, a blank, and a spare blank for 4-byte stores
  char text[256];     // the byte itself when printable, else '.'
  constexpr hex_tables() : pair{}, text{} {
    constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < 256; ++i) {
      pair[i][0] = digits[i >> 4];
      pair[i][1] = digits[i & 15];
      pair[i][2] = ' ';
      pair[i][3] = ' ';
      text[i] = (i >= 32 && i <= 126) ? static_cast<char>(i) : '.';
    }
  }
};
constexpr hex_tables k_tables;

// Four lower-case hex digits of V.
inline char* put_hex4(char* p, uint64_t v) noexcept {
  std::memcpy(p, k_tables.pair[(v >> 8) & 0xff], 2);
  std::memcpy(p + 2, k_tables.pair[v & 0xff], 2);
  return p + 4;
}

inline char* put_offset(char* p, uint64_t offset) noexcept {
  const uint64_t g3 = offset >> 48 & 0xffff, g2 = offset >> 32 & 0xffff;
  if (g3 != 0) {
    p = put_hex4(p, g3);
    *p++ = ' ';
    p = put_hex4(p, g2);
    *p++ = ' ';
  } else if (g2 != 0) {
    p = put_hex_fixed(p, g2, g2 < 16 ? 1 : g2 < 256 ? 2 : 4);
    *p++ = ' ';
  }
  p = put_hex4(p, offset >> 16);
  *p++ = ' ';
  p = put_hex4(p, offset);
  std::memcpy(p, ":  ", 3);
  return p + 3;
}

}  // namespace

size_t format_hex_line(char* dst, const uint8_t* bytes, uint32_t count, uint64_t display_offset,
                       bool show_offsets) noexcept {
  char* p = show_offsets ? put_offset(dst, display_offset) : dst;
  if (count > 16) count = 16;
  if (count == 16) {
    // "xx " eight times, a blank, "xx " eight times, the separating blank: each byte's 4-byte
    // store also writes the blank that follows its group.
    for (int i = 0; i < 8; ++i) std::memcpy(p + 3 * i, k_tables.pair[bytes[i]], 4);
    for (int i = 8; i < 16; ++i) std::memcpy(p + 1 + 3 * i, k_tables.pair[bytes[i]], 4);
    p += 50;
    for (int i = 0; i < 16; ++i) p[i] = k_tables.text[bytes[i]];
    return static_cast<size_t>(p + 16 - dst);
  }
  for (uint32_t i = 0; i < count; ++i) {
    if (i == 8) *p++ = ' ';
    std::memcpy(p, k_tables.pair[bytes[i]], 3);
    p += 3;
  }
  const size_t pad = (16 - count) * 3 + (count <= 8 ? 1 : 0);
  std::memset(p, ' ', pad);
  p += pad;
  *p++ = ' ';
  for (uint32_t i = 0; i < count; ++i) *p++ = k_tables.text[bytes[i]];
  return static_cast<size_t>(p - dst);
}

size_t format_hex_line(char* dst, const binary_data& view, uint32_t first, uint32_t count,
                       uint64_t display_offset, bool show_offsets) {
  if (count == 0) return format_hex_line(dst, nullptr, 0, display_offset, show_offsets);
  // Touch the last byte through the checked accessor: a line past the view is an internal error.
  (void)view(first + count - 1);
  return format_hex_line(dst, view.bytes() + first, count, display_offset, show_offsets);
}

void format_hex_lines(std::string& result, const binary_data& view, uint32_t start_index,
                      uint32_t length, uint64_t display_base, bool show_offsets,
                      hex_line_callback callback, void* callback_context) {
  result.clear();
  if (length > view.size()) length = view.size();
  result.reserve(static_cast<size_t>(length) * 5);
  char line[hex_line_max];
  uint64_t offset = display_base;
  for (uint32_t index = start_index; index < length; index += 16, offset += 16) {
    const uint32_t count = length - index < 16 ? length - index : 16;
    const size_t n = format_hex_line(line, view, index, count, offset, show_offsets);
    result.append(line, n);
    result.push_back('\n');
    if (callback != nullptr) callback(callback_context, index, length);
    if (length - index <= 16) break;  // no wrap of INDEX near the top of the range
  }
}

}  // namespace zq
