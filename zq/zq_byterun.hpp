// byte_run: a growable byte array with a validity flag.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zq {

class byte_run {
 public:
  byte_run() = default;
  virtual ~byte_run() = default;
  byte_run(const byte_run&) = default;
  byte_run& operator=(const byte_run&) = default;
  byte_run(byte_run&&) noexcept = default;
  byte_run& operator=(byte_run&&) noexcept = default;

  // Empties the run and marks it not valid.
  void clear() noexcept {
    m_data.clear();
    m_valid = false;
  }
  // Appends one byte; the run becomes valid.
  void append(uint8_t b) {
    m_data.push_back(b);
    m_valid = true;
  }
  // Appends a 16-bit value high byte first.
  void append_be16(uint16_t v) {
    append(static_cast<uint8_t>(v >> 8));
    append(static_cast<uint8_t>(v & 0xff));
  }

  const uint8_t* data() const noexcept { return m_data.data(); }
  size_t size() const noexcept { return m_data.size(); }
  bool empty() const noexcept { return m_data.empty(); }
  bool valid() const noexcept { return m_valid; }
  uint8_t operator[](size_t i) const { return m_data[i]; }
  const std::vector<uint8_t>& bytes() const noexcept { return m_data; }

  friend bool operator==(const byte_run& a, const byte_run& b) {
    return a.m_data == b.m_data && a.m_valid == b.m_valid;
  }

 private:
  std::vector<uint8_t> m_data;
  bool m_valid = false;
};

}  // namespace zq
