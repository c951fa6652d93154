#include "uni/fileio.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace uni {

fileio::fileio(const std::string& path, bool write, bool read_check, bool create)
    : m_path(path), m_write(write) {
  (void)read_check;
  int flags = O_RDONLY;
  mode_t perms = 0404;
  if (write) {
    flags = O_RDWR | (create ? O_CREAT | O_TRUNC : 0);
    perms = 0606;
  }
  m_mode = static_cast<uint8_t>(write ? 2 : 1);
  m_fd = ::open(path.c_str(), flags | O_CLOEXEC, perms);
  m_open = m_fd >= 0;
  if (m_open) {
    const off_t end = ::lseek(m_fd, 0, SEEK_END);
    m_size = end > 0 ? end : 0;
    ::lseek(m_fd, 0, SEEK_SET);
  }
}

fileio::~fileio() { close(); }

void fileio::close() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  m_open = false;
  m_size = 0;
}

}  // namespace uni
