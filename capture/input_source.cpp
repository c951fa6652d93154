#include "capture/input_source.hpp"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varn {

namespace {

// Pipe buffer asked for on a stream: reads of up to this much at a time. The default system
// limit for an unprivileged process (fs.pipe-max-size) is this size.
constexpr int k_pipe_buffer = 1 << 20;

// Waits until FD is readable or has hung up (its writer came and left). False when poll fails.
bool wait_readable(int fd) {
  pollfd p{fd, POLLIN, 0};
  for (;;) {
    if (::poll(&p, 1, -1) >= 0) return true;
    if (errno != EINTR) return false;
  }
}

}  // namespace

int open_capture_input(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) {
    // Enlarging fails when the system limit is lower or the user's pipe pages are spent: the
    // stream is then read through the buffer it has.
    (void)::fcntl(fd, F_SETPIPE_SZ, k_pipe_buffer);
    (void)wait_readable(fd);
  }
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) (void)::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  return fd;
}

ssize_t read_some(int fd, void* buffer, size_t n) {
  for (;;) {
    const ssize_t got = ::read(fd, buffer, n);
    if (got >= 0) return got;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {  // a descriptor another process set non-blocking
      if (wait_readable(fd)) continue;
    }
    return -1;
  }
}

}  // namespace varn
