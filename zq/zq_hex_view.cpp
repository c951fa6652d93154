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
  char pair[256][3];  // "xx "
  char text[256];     // the byte itself when printable, else '.'
  constexpr hex_tables() : pair{}, text{} {
    constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < 256; ++i) {
      pair[i][0] = digits[i >> 4];
      pair[i][1] = digits[i & 15];
      pair[i][2] = ' ';
      text[i] = (i >= 32 && i <= 126) ? static_cast<char>(i) : '.';
    }
  }
};
constexpr hex_tables k_tables;

}  // namespace

size_t format_hex_line(char* dst, const uint8_t* bytes, uint32_t count, uint64_t display_offset,
                       bool show_offsets) noexcept {
  char* p = dst;
  if (show_offsets) {
    const uint64_t g3 = display_offset >> 48 & 0xffff, g2 = display_offset >> 32 & 0xffff;
    if (g3 != 0) {
      p = put_hex_fixed(p, g3, 4);
      *p++ = ' ';
      p = put_hex_fixed(p, g2, 4);
      *p++ = ' ';
    } else if (g2 != 0) {
      p = put_hex_fixed(p, g2, g2 < 16 ? 1 : g2 < 256 ? 2 : 4);
      *p++ = ' ';
    }
    p = put_hex_fixed(p, display_offset >> 16 & 0xffff, 4);
    *p++ = ' ';
    p = put_hex_fixed(p, display_offset & 0xffff, 4);
    std::memcpy(p, ":  ", 3);
    p += 3;
  }
  if (count > 16) count = 16;
  for (uint32_t i = 0; i < count; ++i) {
    if (i == 8) *p++ = ' ';
    std::memcpy(p, k_tables.pair[bytes[i]], 3);
    p += 3;
  }
  if (count < 16) {
    const size_t pad = (16 - count) * 3 + (count <= 8 ? 1 : 0);
    std::memset(p, ' ', pad);
    p += pad;
  }
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
