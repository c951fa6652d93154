// out_stream: a buffered byte sink on a file descriptor, the report sink of a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace uni {

class out_stream {
 public:
  static constexpr size_t default_capacity = 256 * 1024;

  // A sink writing to FD (not owned unless OWNS_FD). Nothing is written before flush() or a full
  // buffer.
  explicit out_stream(int fd, bool owns_fd = false, size_t capacity = default_capacity);
  // A sink appending to *TARGET on every flush (for callers that want the text in memory).
  explicit out_stream(std::string* target, size_t capacity = default_capacity);
  virtual ~out_stream();
  out_stream(const out_stream&) = delete;
  out_stream& operator=(const out_stream&) = delete;

  void write(const char* data, size_t length) {
    if (length <= static_cast<size_t>(m_end - m_next)) {
      __builtin_memcpy(m_next, data, length);
      m_next += length;
    } else {
      write_slow(data, length);
    }
  }
  void write(std::string_view text) { write(text.data(), text.size()); }
  void put(char c) {
    if (m_next == m_end) flush();
    *m_next++ = c;
  }

  // Room for at least N bytes (N at most capacity()) in the buffer; fill it, then commit().
  char* reserve(size_t n) {
    if (static_cast<size_t>(m_end - m_next) < n) flush();
    return m_next;
  }
  void commit(char* end) { m_next = end; }

  // Writes the buffered bytes. Write errors are ignored: the bytes are dropped.
  void flush();
  // Flushes and closes an owned descriptor.
  void close();

  int fd() const noexcept { return m_fd; }
  size_t capacity() const noexcept { return m_capacity; }
  // Bytes handed to write() so far that could not be written (e.g. on a full device).
  uint64_t dropped_bytes() const noexcept { return m_dropped; }

  // Flushes every live out_stream: used before writing to standard error and before an abort.
  static void flush_all() noexcept;

 private:
  void write_slow(const char* data, size_t length);
  void write_fd(const char* data, size_t length);

  int m_fd;
  std::string* m_target = nullptr;
  bool m_owns_fd;
  size_t m_capacity;
  std::unique_ptr<char[]> m_buffer;
  char* m_next;
  char* m_end;
  uint64_t m_dropped = 0;
  out_stream* m_prev_live = nullptr;
  out_stream* m_next_live = nullptr;
};

// Writes TEXT to standard error at once, after flushing every out_stream so that the order of
// standard output and standard error is the program's order.
void write_stderr(std::string_view text);

}  // namespace uni
