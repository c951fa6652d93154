// The -any_format reader (pcapng, every classic pcap variant, the link layers and encapsulations)
// on any bytes, read as a file and through a pipe.
//
// Input: the capture file's bytes. Checked beyond crashes and sanitizer reports: every frame
// handed to the report has its IP header and its whole ICMP header within its captured bytes, and
// its regions within them too; every captured byte of it can be read; the bytes given on a pipe
// give the same frames, messages and outcome as the file. A second pass writes the text report
// (metadata line and every dump) of the frames into memory.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "capture/frame_context.hpp"
#include "formats/any_capture.hpp"
#include "fuzz/fuzz_support.hpp"
#include "report/report_writer.hpp"
#include "uni/out_stream.hpp"

namespace {

std::string g_path;

// Checks every frame and keeps a line for each.
class checking_writer : public varn::report_writer {
 public:
  std::string seen;
  void frame_selected(const varn::icmp_frame& f, varn::frame_context&) override {
    VARN_FUZZ_CHECK(f.frame != nullptr);
    VARN_FUZZ_CHECK(f.ip_offset + (f.ipv6 ? 40u : 20u) <= f.cap_len);
    VARN_FUZZ_CHECK(uint64_t{f.icmp_offset} + 8 <= f.cap_len);
    VARN_FUZZ_CHECK(f.header_length == f.icmp_offset + 8 && f.header_dump_length == f.header_length);
    VARN_FUZZ_CHECK(f.payload == f.frame + f.header_length && f.header_length + f.payload_length == f.cap_len);
    VARN_FUZZ_CHECK(f.ts_digits == 6 || f.ts_digits == 9);
    uint32_t sum = 0;
    for (uint32_t i = 0; i < f.cap_len; ++i) sum += f.frame[i];
    seen += std::to_string(f.number) + " " + std::to_string(f.ts_sec) + "." + std::to_string(f.ts_frac) + " " +
            std::to_string(f.link_type) + " " + std::to_string(f.cap_len) + "/" + std::to_string(f.wire_len) + " " +
            std::to_string(f.icmp_offset) + " " + std::to_string(sum) + "\n";
  }
};

struct result {
  bool read;
  std::string console, frames, outcome;
};

result read_with_checks(const std::string& path) {
  checking_writer writer;
  varn::frame_context ctx;
  ctx.writer = &writer;
  varn::file_outcome outcome;
  result r;
  {
    uni::out_stream console(&r.console, 4096);
    r.read = varn::read_any_capture_file(path, &ctx, &console, outcome);
  }
  r.console.erase(0, r.console.find('\n') + 1);  // "Processing file: NAME"
  r.frames = writer.seen;
  r.outcome = std::to_string(static_cast<int>(outcome.result)) + " " + outcome.format + " " +
              std::to_string(outcome.records) + " " + outcome.stopped;
  for (const auto& [reason, count] : outcome.skipped) r.outcome += " " + reason + "=" + std::to_string(count);
  for (uint32_t t : outcome.link_types) r.outcome += " lt" + std::to_string(t);
  return r;
}

// The same bytes on a pipe, named as /dev/fd/N. False when they do not fit in the pipe at once.
bool read_from_pipe(const uint8_t* data, size_t size, result& r) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) varn_fuzz::fail("pipe2");
  const int capacity = ::fcntl(fds[1], F_SETPIPE_SZ, 1 << 20);
  bool fits = capacity > 0 && size <= static_cast<size_t>(capacity);
  for (size_t done = 0; fits && done < size;) {
    const ssize_t n = ::write(fds[1], data + done, size - done);
    if (n <= 0) fits = false;
    done += n > 0 ? static_cast<size_t>(n) : 0;
  }
  ::close(fds[1]);
  if (fits) r = read_with_checks("/dev/fd/" + std::to_string(fds[0]));
  ::close(fds[0]);
  return fits;
}

void write_text_report(const std::string& path) {
  varn::frame_context ctx;
  ctx.dump_meta = ctx.dump_hdr = ctx.dump_payload = true;
  std::string text;
  uni::out_stream out(&text, 1 << 16);
  ctx.out = &out;
  varn::file_outcome outcome;
  varn::read_any_capture_file(path, &ctx, nullptr, outcome);
  out.flush();
}

void remove_scratch() {
  if (!g_path.empty()) ::unlink(g_path.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  g_path = varn_fuzz::scratch_path("varn-fuzz-any-format", ".cap");
  std::atexit(remove_scratch);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  varn_fuzz::write_scratch(g_path, data, size);
  const result from_file = read_with_checks(g_path);
  result from_pipe;
  if (read_from_pipe(data, size, from_pipe)) {
    VARN_FUZZ_CHECK(from_pipe.read == from_file.read);
    VARN_FUZZ_CHECK(from_pipe.console == from_file.console);
    VARN_FUZZ_CHECK(from_pipe.frames == from_file.frames);
    VARN_FUZZ_CHECK(from_pipe.outcome == from_file.outcome);
  }
  if (from_file.read) write_text_report(g_path);
  return 0;
}
