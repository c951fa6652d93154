#include "zq/zq_fatal.hpp"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#ifdef VARN_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace zq {

namespace {
fatal_hook g_hook = nullptr;

void write_all(int fd, const char* text) noexcept {
  size_t left = std::strlen(text);
  while (left > 0) {
    ssize_t n = ::write(fd, text, left);
    if (n <= 0) return;
    text += n;
    left -= static_cast<size_t>(n);
  }
}
}  // namespace

fatal_hook set_fatal_hook(fatal_hook hook) noexcept {
  fatal_hook old = g_hook;
  g_hook = hook;
  return old;
}

void fatal_assertion(const char* function, const char* condition, const char* note) noexcept {
  if (fatal_hook hook = g_hook) {
    g_hook = nullptr;  // a failure inside the hook must not recurse
    hook();
  }
  write_all(2, "fatal assertion failed in ");
  write_all(2, function);
  write_all(2, ": ");
  write_all(2, condition);
  write_all(2, "\n");
  if (note != nullptr) {
    write_all(2, note);
    write_all(2, "\n");
  }
#ifdef VARN_COVERAGE
  __gcov_dump();  // coverage builds: abort() skips the exit handlers that write the counters
#endif
  std::abort();
}

}  // namespace zq
