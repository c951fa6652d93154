// Helpers shared by the fuzz targets: captures written to a scratch file, the one input shape
// that ends a run on purpose, and a trap that names what went wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace varn_fuzz {

// Stops the process on a broken invariant so that the fuzzer keeps the input.
[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::fflush(stderr);
  std::abort();
}

#define VARN_FUZZ_CHECK(cond)                                        \
  do {                                                               \
    if (!(cond)) ::varn_fuzz::fail(#cond " (" __FILE__ ")");         \
  } while (0)

inline uint32_t le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

constexpr size_t k_record_buffer = 131072;
constexpr size_t k_file_header = 24;

// True when reading CAPTURE would ask for more than the 131072-byte record buffer holds, which
// ends the process by design: the read unit (snaplen + 16 as a 32-bit sum) exceeds the buffer
// and more than a buffer's worth of bytes follows the file header. Only the first record read
// can be that large (later reads start further in and have less left to read).
inline bool read_exceeds_record_buffer(const uint8_t* capture, size_t size) {
  if (size < 20) return false;
  const uint32_t unit = le32(capture + 16) + 16u;
  return unit > k_record_buffer && size > k_file_header + k_record_buffer;
}

// A scratch file for this process, on a memory file system when there is one.
inline std::string scratch_path(const char* stem, const char* extension) {
  const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dir) + "/" + stem + "-" + std::to_string(getpid()) + extension;
}

// Replaces the contents of PATH with the SIZE bytes at DATA.
inline void write_scratch(const std::string& path, const uint8_t* data, size_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) fail("cannot write the scratch capture");
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd, data + done, size - done);
    if (n <= 0) fail("cannot write the scratch capture");
    done += static_cast<size_t>(n);
  }
  ::close(fd);
}

}  // namespace varn_fuzz
