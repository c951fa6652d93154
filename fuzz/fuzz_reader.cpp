// The capture reader against a plain model of it: one seek and one read of snaplen + 16 bytes
// (less at the end of the file) per record into a 131072-byte buffer that starts zero-filled
// and is never cleared. For every record the frame number and every byte the handler may look
// at (the 16-byte record header and at least 82 frame bytes, or incl_len when larger) must be
// what the model's buffer holds.
//
// Input: the capture file's bytes. The file is read twice, the second time cut short at a point
// chosen by the last input byte, and each time also as a stream: the same bytes on a pipe. The
// walkers (reading in small blocks or large, and streams through the smallest or the default
// read-ahead window) live for the whole fuzzing run, as one does for all the files of a list
// run, so nothing of an earlier file may show through in a later one.
#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <thread>
#include <vector>

#include "capture/capture_reader.hpp"
#include "capture/frame_context.hpp"
#include "fuzz/fuzz_support.hpp"
#include "uni/out_stream.hpp"

namespace {

constexpr uint32_t k_frame_reach = 82;  // ICMP header behind a 60-byte IPv4 header

struct seen_record {
  uint64_t frame;
  std::vector<uint8_t> bytes;
};

size_t span_of(uint32_t incl_len) { return 16 + std::max(incl_len, k_frame_reach); }

std::vector<seen_record>* g_seen = nullptr;
std::string g_path;

bool record_frame(uint64_t frame_number, const uint8_t* record, varn::frame_context*) {
  const size_t span = span_of(varn_fuzz::le32(record + 8));
  g_seen->push_back({frame_number, std::vector<uint8_t>(record, record + span)});
  return false;
}

// The model. Returns whether the header was accepted and fills RECORDS.
bool model_read(const uint8_t* file, size_t size, std::vector<seen_record>& records) {
  static std::vector<uint8_t> buffer(varn_fuzz::k_record_buffer);
  std::fill(buffer.begin(), buffer.end(), 0);
  std::memcpy(buffer.data(), file, std::min<size_t>(size, 24));
  const uint8_t* b = buffer.data();
  if (varn_fuzz::le32(b) != 0xA1B2C3D4u || (b[4] | b[5] << 8) != 2 || (b[6] | b[7] << 8) != 4) return false;
  const uint32_t snaplen = varn_fuzz::le32(b + 16);
  const uint32_t unit = snaplen + 16u;
  const int64_t file_size = static_cast<int64_t>(size);
  int64_t remaining = file_size - 24;
  int64_t next = 24;
  uint64_t frame = 0;
  do {
    const int64_t pos = next;
    const int64_t available = std::max<int64_t>(file_size - pos, 0);
    const uint64_t request = unit > static_cast<uint64_t>(available) ? static_cast<uint64_t>(available) : unit;
    VARN_FUZZ_CHECK(request <= varn_fuzz::k_record_buffer);  // such inputs are skipped
    if (request > 0) std::memcpy(buffer.data(), file + pos, request);
    const uint32_t incl_len = varn_fuzz::le32(b + 8);
    if (incl_len > snaplen || incl_len > varn_fuzz::k_record_buffer - 16) break;
    const int64_t advance = incl_len < snaplen ? static_cast<int64_t>(incl_len) + 16 : static_cast<int64_t>(request);
    ++frame;
    remaining -= advance;
    records.push_back({frame, std::vector<uint8_t>(b, b + span_of(incl_len))});
    next = pos + advance;
  } while (remaining > 0);
  return true;
}

void compare(const std::vector<seen_record>& got, const std::vector<seen_record>& want) {
  VARN_FUZZ_CHECK(got.size() == want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    VARN_FUZZ_CHECK(got[i].frame == want[i].frame);
    VARN_FUZZ_CHECK(got[i].bytes == want[i].bytes);
  }
}

void remove_scratch() {
  if (!g_path.empty()) ::unlink(g_path.c_str());
}

// Reads PATH (DATA's bytes) with WALKER and checks what it handed over against the model.
void check_read(varn::capture_walker& walker, const std::string& path, const uint8_t* data, size_t size) {
  std::vector<seen_record> got, want;
  g_seen = &got;
  std::string console_text;
  uni::out_stream console(&console_text, 4096);
  varn::frame_context ctx;
  const bool accepted = varn::read_capture_file(path, record_frame, &ctx, console, &walker);
  console.flush();
  g_seen = nullptr;
  const bool model_accepted = model_read(data, size, want);
  VARN_FUZZ_CHECK(accepted == model_accepted);
  const std::string processing = "Processing file: " + path + "\n";
  VARN_FUZZ_CHECK(console_text == (accepted ? processing : processing + "invalid pcap file, aborting\n"));
  compare(got, want);
}

// The same bytes on a pipe, read through its /proc/self/fd entry as /dev/stdin would be: written
// at once when the pipe's buffer takes them, otherwise by a thread.
void check_stream(varn::capture_walker& walker, const uint8_t* data, size_t size) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) varn_fuzz::fail("cannot make a pipe");
  const int capacity = ::fcntl(fds[1], F_SETPIPE_SZ, static_cast<int>(std::min<size_t>(std::max<size_t>(size, 4096), 1 << 20)));
  auto feed = [data, size, out = fds[1]] {
    for (size_t done = 0; done < size;) {
      const ssize_t n = ::write(out, data + done, size - done);
      if (n <= 0) break;  // the walker stopped early and closed the pipe
      done += static_cast<size_t>(n);
    }
    ::close(out);
  };
  std::thread writer;
  if (capacity >= 0 && size <= static_cast<size_t>(capacity)) feed();
  else writer = std::thread(feed);
  check_read(walker, "/proc/self/fd/" + std::to_string(fds[0]), data, size);
  walker.close();
  ::close(fds[0]);
  if (writer.joinable()) writer.join();
}

void check_one(varn::capture_walker& walker, varn::capture_walker& stream_walker, const uint8_t* data, size_t size) {
  varn_fuzz::write_scratch(g_path, data, size);
  check_read(walker, g_path, data, size);
  check_stream(stream_walker, data, size);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  g_path = varn_fuzz::scratch_path("varn-fuzz-reader", ".pcap");
  std::atexit(remove_scratch);
  std::signal(SIGPIPE, SIG_IGN);  // a walker that stops early closes the pipe on its writer
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (varn_fuzz::read_exceeds_record_buffer(data, size)) return 0;
  // The smallest block size makes the walker refill and slide its window often.
  static varn::capture_walker small_blocks(0, 0);
  static varn::capture_walker large_blocks;
  varn::capture_walker& walker = size % 2 == 0 ? small_blocks : large_blocks;
  varn::capture_walker& stream_walker = size % 2 == 0 ? large_blocks : small_blocks;
  check_one(walker, stream_walker, data, size);
  const size_t cut = size == 0 ? 0 : std::max<size_t>(std::min<size_t>(size, 24), size * data[size - 1] / 255);
  check_one(walker, stream_walker, data, cut);
  return 0;
}
