#include "formats/byte_source.hpp"

#include "capture/input_source.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace varn {

byte_source::byte_source(size_t read_size) : m_read_size(std::max<size_t>(read_size, 4096)) {}

byte_source::~byte_source() { close(); }

bool byte_source::open(const std::string& name) {
  close();
  // A FIFO must not wait for a writer that has already come and gone (open_capture_input).
  const int fd = open_capture_input(name);
  if (fd < 0) return false;
  attach(fd);
  m_owns_fd = true;
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) {
    // A larger pipe lets the writer run ahead and each read take more at once (the system's
    // limit, fs.pipe-max-size, may refuse it: the pipe then stays as it is).
    (void)::fcntl(fd, F_SETPIPE_SZ, static_cast<int>(m_read_size));
  } else {
    (void)::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  return true;
}

void byte_source::attach(int fd) {
  close();
  m_fd = fd;
  m_owns_fd = false;
  m_next = m_end = m_buffer.get();
  m_consumed_before = 0;
  m_at_end = false;
  m_error = 0;
}

void byte_source::close() noexcept {
  if (m_owns_fd && m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  m_owns_fd = false;
  m_next = m_end = m_buffer.get();
  m_at_end = true;
}

size_t byte_source::read_some() {
  if (m_at_end || m_fd < 0) return 0;
  const size_t room = static_cast<size_t>(m_buffer.get() + m_capacity - m_end);
  const ssize_t got = varn::read_some(m_fd, m_end, room);
  if (got > 0) {
    m_end += got;
    return static_cast<size_t>(got);
  }
  if (got < 0) m_error = errno;
  m_at_end = true;
  return 0;
}

void byte_source::restart_at_front() noexcept {
  const size_t have = available();
  if (have > 0 && m_next != m_buffer.get()) std::memmove(m_buffer.get(), m_next, have);
  m_consumed_before += static_cast<uint64_t>(m_next - m_buffer.get());
  m_next = m_buffer.get();
  m_end = m_next + have;
}

bool byte_source::refill(size_t n) {
  if (m_buffer == nullptr) {
    m_buffer.reset(new (std::nothrow) uint8_t[m_read_size]);
    if (m_buffer == nullptr) {
      m_error = ENOMEM;
      m_at_end = true;
      return false;
    }
    m_capacity = m_read_size;
    m_next = m_end = m_buffer.get();
  }
  for (;;) {
    const size_t have = available();
    if (have >= n) return true;
    if (m_at_end) return false;
    size_t tail = static_cast<size_t>(m_buffer.get() + m_capacity - m_end);
    // Keep reads large: move the bytes kept to the front when little room is left behind them.
    if (m_next != m_buffer.get() && (tail < n - have || tail < m_read_size / 2)) {
      restart_at_front();
      tail = m_capacity - have;
    }
    if (tail == 0) {
      // Full of bytes still wanted: grow, at most doubling, and only as far as N needs.
      const size_t capacity = std::min(m_capacity * 2, n);
      std::unique_ptr<uint8_t[]> bigger(new (std::nothrow) uint8_t[capacity]);
      if (bigger == nullptr) {
        m_error = ENOMEM;
        m_at_end = true;
        return false;
      }
      std::memcpy(bigger.get(), m_next, have);
      m_buffer = std::move(bigger);
      m_capacity = capacity;
      m_next = m_buffer.get();
      m_end = m_next + have;
    }
    read_some();
  }
}

bool byte_source::skip(uint64_t n) {
  while (n > available()) {
    n -= available();
    m_next = m_end;
    restart_at_front();
    if (!refill(1)) return false;
  }
  consume(static_cast<size_t>(n));
  return true;
}

}  // namespace varn
