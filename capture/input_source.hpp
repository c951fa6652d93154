// Opening and reading a capture input that may be a regular file or a stream (a pipe, a FIFO,
// /dev/stdin, a process substitution's /dev/fd/N).
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace varn {

// Opens PATH read-only, returning the descriptor (blocking reads) or -1 with errno set.
//
// A FIFO is opened without waiting for a writer, then waited on until a writer has written or
// has come and gone. A plain blocking open would instead wait for the next writer, and one that
// wrote the whole capture and closed in the meantime (its bytes kept by another reader of the
// same FIFO, such as the driver's access check) would leave the open waiting forever. For a
// pipe the buffer is enlarged, when the system allows it, so that fewer, larger reads move the
// stream.
int open_capture_input(const std::string& path);

// read(2) that retries on EINTR and waits for data on EAGAIN: N bytes or fewer, 0 at the end, -1
// on an error.
ssize_t read_some(int fd, void* buffer, size_t n);

}  // namespace varn
