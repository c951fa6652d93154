#include "uni/out_stream.hpp"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace uni {

namespace {
out_stream* g_live = nullptr;  // every open out_stream, for flush_all
}

out_stream::out_stream(int fd, bool owns_fd, size_t capacity)
    : m_fd(fd),
      m_owns_fd(owns_fd),
      m_capacity(capacity < 4096 ? 4096 : capacity),
      m_buffer(new char[m_capacity]),
      m_next(m_buffer.get()),
      m_end(m_buffer.get() + m_capacity) {
  m_next_live = g_live;
  if (g_live != nullptr) g_live->m_prev_live = this;
  g_live = this;
}

out_stream::out_stream(std::string* target, size_t capacity) : out_stream(-1, false, capacity) {
  m_target = target;
}

out_stream::~out_stream() {
  close();
  if (m_prev_live != nullptr)
    m_prev_live->m_next_live = m_next_live;
  else
    g_live = m_next_live;
  if (m_next_live != nullptr) m_next_live->m_prev_live = m_prev_live;
}

void out_stream::write_fd(const char* data, size_t length) {
  if (m_target != nullptr) {
    m_target->append(data, length);
    return;
  }
  while (length > 0) {
    if (m_fd < 0) {
      m_dropped += length;
      return;
    }
    const ssize_t n = ::write(m_fd, data, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      m_dropped += length;
      return;
    }
    data += n;
    length -= static_cast<size_t>(n);
  }
}

void out_stream::flush() {
  const size_t n = static_cast<size_t>(m_next - m_buffer.get());
  m_next = m_buffer.get();
  if (n > 0) write_fd(m_buffer.get(), n);
}

void out_stream::write_slow(const char* data, size_t length) {
  flush();
  if (length >= m_capacity) {
    write_fd(data, length);
    return;
  }
  std::memcpy(m_next, data, length);
  m_next += length;
}

void out_stream::close() {
  flush();
  if (m_owns_fd && m_fd >= 0) ::close(m_fd);
  m_owns_fd = false;
  m_fd = -1;
  m_target = nullptr;
}

void out_stream::flush_all() noexcept {
  for (out_stream* s = g_live; s != nullptr; s = s->m_next_live) s->flush();
}

void write_stderr(std::string_view text) {
  out_stream::flush_all();
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    const ssize_t n = ::write(2, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<size_t>(n);
  }
}

}  // namespace uni
