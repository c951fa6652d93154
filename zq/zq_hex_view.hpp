// Hex view: a read-only byte view and the formatter of offset / hex / text lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zq {

// A view over a byte region, either borrowing the caller's bytes or holding its own copy.
class binary_data {
 public:
  // A view of LENGTH bytes at DATA; with COPY the bytes are copied into the view. A null pointer
  // or a zero length gives an empty view.
  binary_data(const uint8_t* data, uint32_t length, bool copy);
  virtual ~binary_data() = default;
  binary_data(const binary_data&) = delete;
  binary_data& operator=(const binary_data&) = delete;

  // The byte at INDEX. INDEX must be below size(): otherwise a fatal assertion.
  uint8_t operator()(uint32_t index) const;
  uint8_t& operator()(uint32_t index);

  uint32_t size() const noexcept { return m_num_data; }
  // The viewed bytes, contiguous (null for an empty view).
  const uint8_t* bytes() const noexcept { return m_copying ? m_copy.data() : m_borrowed; }

 private:
  uint32_t m_num_data = 0;
  std::vector<uint8_t> m_copy;
  uint32_t m_kind = 0;
  bool m_copying = false;
  const uint8_t* m_borrowed = nullptr;
};

// Longest line format_hex_line can write: 22 offset, 49 hex, 1 blank, 16 text characters.
constexpr size_t hex_line_max = 88;

// Writes one line (no line end) for COUNT bytes (1 to 16) at BYTES whose first byte sits at
// DISPLAY_OFFSET. Returns the number of characters written to DST (at most hex_line_max).
size_t format_hex_line(char* dst, const uint8_t* bytes, uint32_t count, uint64_t display_offset,
                       bool show_offsets) noexcept;

// The same over VIEW from index FIRST; FIRST + COUNT must lie within the view.
size_t format_hex_line(char* dst, const binary_data& view, uint32_t first, uint32_t count,
                       uint64_t display_offset, bool show_offsets);

// Called after each line with the callback context, the index of the line's first byte, and the
// length handed to format_hex_lines.
using hex_line_callback = void (*)(void* context, uint32_t first_index, uint32_t length);

// Renders VIEW from START_INDEX up to LENGTH as lines of 16 bytes, each ended by "\n", the
// first line's offset being DISPLAY_BASE. RESULT is replaced. LENGTH is clipped to the view.
void format_hex_lines(std::string& result, const binary_data& view, uint32_t start_index,
                      uint32_t length, uint64_t display_base, bool show_offsets,
                      hex_line_callback callback, void* callback_context);

}  // namespace zq
