// byte_source: a capture file read from start to end in one pass, in large reads. Works alike on
// regular files, pipes, FIFOs and standard input: it never seeks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace varn {

class byte_source {
 public:
  static constexpr size_t default_read_size = 1u << 20;

  // READ_SIZE: the bytes asked of each read() (at least 4096).
  explicit byte_source(size_t read_size = default_read_size);
  ~byte_source();
  byte_source(const byte_source&) = delete;
  byte_source& operator=(const byte_source&) = delete;

  // Opens NAME read-only; false (errno set) when it cannot be opened.
  bool open(const std::string& name);
  // Reads from FD, which stays the caller's.
  void attach(int fd);
  void close() noexcept;

  // Makes the next N bytes readable at data(). False when the input ends (or a read fails)
  // first; available() then tells how many bytes there are. The buffer grows to hold N bytes
  // only as far as bytes arrive, so a damaged length costs no memory beyond the input's size.
  bool fill(size_t n) {
    if (static_cast<size_t>(m_end - m_next) >= n) return true;
    return refill(n);
  }
  const uint8_t* data() const noexcept { return m_next; }
  size_t available() const noexcept { return static_cast<size_t>(m_end - m_next); }
  // Moves past N bytes, which must be available.
  void consume(size_t n) noexcept { m_next += n; }
  // Moves past N bytes whether in the buffer or not; false when the input ends first.
  bool skip(uint64_t n);

  // Bytes moved past since the start of the input.
  uint64_t offset() const noexcept { return m_consumed_before + static_cast<uint64_t>(m_next - m_buffer.get()); }
  // The errno of a failed read (0 when the input only ended).
  int read_error() const noexcept { return m_error; }
  // The bytes the buffer can hold now.
  size_t capacity() const noexcept { return m_capacity; }

 private:
  bool refill(size_t n);
  void restart_at_front() noexcept;
  // Reads once into the free space behind m_end; the bytes read (0 at the end or on an error).
  size_t read_some();

  int m_fd = -1;
  bool m_owns_fd = false;
  size_t m_read_size;
  std::unique_ptr<uint8_t[]> m_buffer;
  size_t m_capacity = 0;
  uint8_t* m_next = nullptr;  // first unconsumed byte
  uint8_t* m_end = nullptr;   // end of the bytes read
  uint64_t m_consumed_before = 0;  // input offset of m_buffer[0]
  bool m_at_end = false;
  int m_error = 0;
};

}  // namespace varn
