// Micro-benchmarks of the pieces a varn run spends its time in: MD5, the hex view line
// formatter, the metadata line writer, the pattern searcher, the randomness test and the capture
// walker (alone and with the frame handler) over a capture file held in the page cache. Two
// reference walks that varn does not use (plain read() and sliding mmap windows) show the floor
// the walker is measured against.
//
// Report sinks write to /dev/null, so the numbers include the buffered writes but no terminal.
// The 64 MiB captures are written under TMPDIR (default /tmp) on first use and removed at exit.
// Benchmarks that read files report wall-clock time (UseRealTime).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "capture/byte_pattern.hpp"
#include "capture/capture_reader.hpp"
#include "capture/frame_context.hpp"
#include "capture/frame_handler.hpp"
#include "report/frame_dump.hpp"
#include "report/metadata_record.hpp"
#include "uni/out_stream.hpp"
#include "workload/workload.hpp"
#include "zq/zq_hex_view.hpp"
#include "zq/zq_md5.hpp"
#include "zq/zq_stats.hpp"

namespace {

// ---- Inputs.

std::vector<uint8_t> random_bytes(size_t n, uint64_t seed) {
  std::vector<uint8_t> v(n);
  uint64_t x = seed * 0x9e3779b97f4a7c15ull + 1;
  for (uint8_t& b : v) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    b = static_cast<uint8_t>(x >> 24);
  }
  return v;
}

// N bytes using every byte value N / 256 times (N a multiple of 256), shuffled: passes the
// randomness test, so the test runs to its end.
std::vector<uint8_t> balanced_bytes(size_t n, uint64_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i);
  const std::vector<uint8_t> r = random_bytes(4 * n, seed);
  for (size_t i = n - 1; i > 0; --i) {
    const uint32_t k = static_cast<uint32_t>(r[4 * i] | r[4 * i + 1] << 8 | r[4 * i + 2] << 16) % (i + 1);
    std::swap(v[i], v[k]);
  }
  return v;
}

// One-frame records cut from the sample capture: {record bytes, frame offset 16}.
struct sample_record {
  std::vector<uint8_t> record;  // record header, frame, and zero bytes behind it
};

std::vector<sample_record> sample_records() {
  varn_bench::workload_spec spec;
  spec.kind = varn_bench::workload_kind::sample;
  const std::vector<uint8_t> file = varn_bench::workload_bytes(spec);
  std::vector<sample_record> out;
  for (size_t at = 24; at + 16 <= file.size();) {
    const uint32_t incl = static_cast<uint32_t>(file[at + 8] | file[at + 9] << 8 | file[at + 10] << 16 |
                                                static_cast<uint32_t>(file[at + 11]) << 24);
    sample_record r;
    r.record.assign(file.begin() + static_cast<std::ptrdiff_t>(at),
                    file.begin() + static_cast<std::ptrdiff_t>(at + 16 + incl));
    r.record.resize(r.record.size() + 128, 0);
    out.push_back(std::move(r));
    at += 16 + incl;
  }
  return out;
}

// A report sink on /dev/null.
struct null_sink {
  int fd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  uni::out_stream out{fd, true};
};

// A workload file written once per process under TMPDIR (default /tmp), read once so that the
// page cache holds it, and removed at exit.
class cached_capture {
 public:
  cached_capture(varn_bench::workload_kind kind, uint64_t size) {
    const char* dir = std::getenv("TMPDIR");
    m_path = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/varn-micro-XXXXXX";
    std::vector<char> name(m_path.begin(), m_path.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) return;
    ::close(fd);
    m_path = name.data();
    varn_bench::workload_spec spec;
    spec.kind = kind;
    spec.size = size;
    spec.seed = 7;
    if (!varn_bench::write_workload_file(spec, m_path, m_summary)) return;
    std::vector<char> buf(1 << 20);
    const int in = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    while (in >= 0 && ::read(in, buf.data(), buf.size()) > 0) {
    }
    if (in >= 0) ::close(in);
    m_ok = true;
  }
  ~cached_capture() {
    if (!m_path.empty()) std::remove(m_path.c_str());
  }
  bool ok() const noexcept { return m_ok; }
  const std::string& path() const noexcept { return m_path; }
  const varn_bench::workload_summary& summary() const noexcept { return m_summary; }

 private:
  std::string m_path;
  varn_bench::workload_summary m_summary;
  bool m_ok = false;
};

const cached_capture& capture_of(varn_bench::workload_kind kind) {
  constexpr uint64_t size = 64ull << 20;
  static cached_capture mixed(varn_bench::workload_kind::mixed, size);
  static cached_capture icmp(varn_bench::workload_kind::icmp, size);
  static cached_capture small(varn_bench::workload_kind::small, size);
  switch (kind) {
    case varn_bench::workload_kind::icmp:
      return icmp;
    case varn_bench::workload_kind::small:
      return small;
    default:
      return mixed;
  }
}

// ---- MD5.

void bm_md5(benchmark::State& state) {
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 1);
  uint8_t digest[16];
  for (auto _ : state) {
    zq::md5_of_buffer(data.data(), static_cast<uint32_t>(data.size()), digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_md5)->Arg(22)->Arg(56)->Arg(736)->Arg(1472)->Arg(64 << 10);

// MD5 plus its 32-digit text, as the metadata line needs it.
void bm_md5_with_text(benchmark::State& state) {
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 2);
  uint8_t digest[16];
  char text[32];
  for (auto _ : state) {
    zq::md5_of_buffer(data.data(), static_cast<uint32_t>(data.size()), digest);
    zq::md5_to_text(digest, text);
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_md5_with_text)->Arg(56)->Arg(1472);

// ---- Hex view.

void bm_hex_line(benchmark::State& state) {
  const auto data = random_bytes(16, 3);
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  char line[zq::hex_line_max];
  uint64_t offset = 0x2a;
  for (auto _ : state) {
    benchmark::DoNotOptimize(zq::format_hex_line(line, data.data(), count, offset, true));
    benchmark::ClobberMemory();
    offset += 16;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count);
}
BENCHMARK(bm_hex_line)->Arg(16)->Arg(7);

// The line formatter through the string-building entry (format_hex_lines).
void bm_hex_lines_to_string(benchmark::State& state) {
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 4);
  const zq::binary_data view(data.data(), static_cast<uint32_t>(data.size()), false);
  std::string text;
  for (auto _ : state) {
    zq::format_hex_lines(text, view, 0, view.size(), 42, true, nullptr, nullptr);
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_hex_lines_to_string)->Arg(1472);

// write_hex_dump, as the dump writer calls it for a payload, into a buffered /dev/null sink.
void bm_hex_dump(benchmark::State& state) {
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 5);
  null_sink sink;
  for (auto _ : state) varn::write_hex_dump(data.data(), static_cast<uint32_t>(data.size()), sink.out, 0, 42);
  sink.out.flush();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_hex_dump)->Arg(42)->Arg(1472);

// ---- Metadata line.

// One metadata line for a frame of the sample capture (the column header is written once).
void bm_metadata_line(benchmark::State& state, size_t frame_index) {
  static const std::vector<sample_record> records = sample_records();
  const sample_record& r = records.at(frame_index);
  const uint8_t* record = r.record.data();
  const uint8_t* frame = record + 16;
  varn::icmp_frame f;
  const uint32_t incl = static_cast<uint32_t>(record[8] | record[9] << 8);
  if (!varn::locate_icmp(frame, incl, f)) {
    state.SkipWithError("not an ICMP frame");
    return;
  }
  f.number = 7;
  f.ts_sec = varn::le32_at(record, 0);
  f.ts_frac = varn::le32_at(record, 4);
  f.wire_len = varn::le32_at(record, 12);
  null_sink sink;
  varn::frame_context ctx;
  ctx.dump_meta = true;
  ctx.out = &sink.out;
  for (auto _ : state) {
    benchmark::DoNotOptimize(varn::write_metadata_record(f, &ctx));
  }
  sink.out.flush();
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
// Sample frames: 1 echo request (56-byte payload), 5 ICMPv6 echo request, 9 the 512-byte payload
// reported as high-entropy, 4 port unreachable (28-byte quote).
BENCHMARK_CAPTURE(bm_metadata_line, icmp_echo_56, 1);
BENCHMARK_CAPTURE(bm_metadata_line, icmpv6_echo_56, 5);
BENCHMARK_CAPTURE(bm_metadata_line, icmp_dst_unreachable_28, 4);
BENCHMARK_CAPTURE(bm_metadata_line, icmp_entropy_high_512, 9);

// ---- Pattern searcher.

// The benchmark pattern "0x45 ? ? 0x54" (an IPv4 header of total length 0x..54, i.e. the
// 84-byte packet of a default 56-byte ping) over a frame-sized range of random bytes.
void bm_pattern_find(benchmark::State& state) {
  varn::byte_pattern pattern;
  pattern.build("0x45 ? ? 0x54", false);
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 6);
  for (auto _ : state) benchmark::DoNotOptimize(pattern.find(data.data(), data.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_pattern_find)->Arg(98)->Arg(1514);

// The same search by the plain start-by-start walk.
void bm_pattern_walk(benchmark::State& state) {
  varn::byte_pattern pattern;
  pattern.build("0x45 ? ? 0x54", false);
  const auto data = random_bytes(static_cast<size_t>(state.range(0)), 6);
  for (auto _ : state) benchmark::DoNotOptimize(pattern.find_by_walk(data.data(), data.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(bm_pattern_walk)->Arg(98)->Arg(1514);

// A pattern whose first literal is frequent in text: "'e' ? 't'" over ascii text.
void bm_pattern_find_text(benchmark::State& state) {
  varn::byte_pattern pattern;
  pattern.build("'e' ? 't' 0x3a", false);
  std::vector<uint8_t> data;
  const std::string line = "GET /index.html HTTP/1.1 Host: www.example.com Accept-Encoding: gzip ";
  while (data.size() < 1472) data.insert(data.end(), line.begin(), line.end());
  data.resize(1472);
  for (auto _ : state) benchmark::DoNotOptimize(pattern.find(data.data(), data.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}
BENCHMARK(bm_pattern_find_text);

// ---- Randomness test.

// payload_entropy_high on: 0 random 1472 bytes (fails at the unused-value check or the spread),
// 1 balanced 1024 bytes (passes: the whole test runs), 2 a 56-byte ping (refused at once),
// 3 1472 bytes of text (mean out of range).
void bm_payload_entropy_high(benchmark::State& state) {
  std::vector<uint8_t> data;
  switch (state.range(0)) {
    case 0:
      data = random_bytes(1472, 8);
      break;
    case 1:
      data = balanced_bytes(1024, 9);
      break;
    case 2:
      data = random_bytes(56, 10);
      break;
    default:
      for (size_t i = 0; i < 1472; ++i) data.push_back(static_cast<uint8_t>("The quick brown fox. "[i % 21]));
      break;
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(zq::payload_entropy_high(data.data(), static_cast<uint32_t>(data.size())));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}
BENCHMARK(bm_payload_entropy_high)->DenseRange(0, 3);

// The full statistics object answering the same question, for comparison.
void bm_stats_entropy_high(benchmark::State& state) {
  const auto data = state.range(0) == 0 ? random_bytes(1472, 8) : balanced_bytes(1024, 9);
  for (auto _ : state) {
    zq::stats s(data.data(), static_cast<int>(data.size()));
    benchmark::DoNotOptimize(s.entropy_high());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}
BENCHMARK(bm_stats_entropy_high)->Arg(0)->Arg(1);

// ---- Capture walker.

bool count_only(uint64_t, const uint8_t* record, varn::frame_context*) {
  benchmark::DoNotOptimize(record[16 + 12]);
  return false;
}

// The walker alone over a 64 MiB cached capture: every record handed to a handler that reads one
// byte. The argument is the walker's read window in KiB (the walker uses at least 260 KiB; the
// default is 4096). Throughput is file bytes per second.
void bm_capture_walker(benchmark::State& state, varn_bench::workload_kind kind) {
  const cached_capture& c = capture_of(kind);
  if (!c.ok()) {
    state.SkipWithError("cannot write the capture");
    return;
  }
  varn::capture_walker walker(static_cast<size_t>(state.range(0)) << 10);
  uint64_t records = 0;
  for (auto _ : state) {
    if (!walker.open(c.path()) || walker.read_header() != varn::walk_status::accepted) {
      state.SkipWithError("cannot read the capture");
      return;
    }
    uint64_t frame_number;
    const uint8_t* record;
    while (walker.next(frame_number, record)) count_only(frame_number, record, nullptr);
    walker.close();
    records += c.summary().records;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(c.summary().bytes));
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(records), benchmark::Counter::kIsRate);
}
BENCHMARK_CAPTURE(bm_capture_walker, mixed, varn_bench::workload_kind::mixed)
    ->Arg(260)->Arg(512)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(bm_capture_walker, icmp, varn_bench::workload_kind::icmp)
    ->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(bm_capture_walker, small, varn_bench::workload_kind::small)
    ->Arg(260)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reading the same file with read() into a 128 KiB buffer and touching nothing: the floor
// that cat sets.
void bm_read_only(benchmark::State& state) {
  const cached_capture& c = capture_of(varn_bench::workload_kind::mixed);
  if (!c.ok()) {
    state.SkipWithError("cannot write the capture");
    return;
  }
  std::vector<char> buf(static_cast<size_t>(state.range(0)) << 10);
  for (auto _ : state) {
    const int fd = ::open(c.path().c_str(), O_RDONLY | O_CLOEXEC);
    while (::read(fd, buf.data(), buf.size()) > 0) {
    }
    ::close(fd);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(c.summary().bytes));
}
BENCHMARK(bm_read_only)->Arg(128)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// For comparison, a record walk that maps the file in sliding windows instead of copying it with
// read(): the file bytes are never copied, and the resident set stays at the window size. Reads
// incl_len and one frame byte of every record, as the walker's handler does. Arguments: the
// window in KiB (plus 128 KiB so that a whole record always fits), the workload kind, and 1 to
// map with MAP_POPULATE (0: pages come in by faults).
void bm_reference_mmap_walk(benchmark::State& state) {
  const cached_capture& c = capture_of(static_cast<varn_bench::workload_kind>(state.range(1)));
  if (!c.ok()) {
    state.SkipWithError("cannot write the capture");
    return;
  }
  const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  const size_t window = static_cast<size_t>(state.range(0)) << 10;
  const size_t slack = 128u << 10;
  const int flags = MAP_PRIVATE | (state.range(2) != 0 ? MAP_POPULATE : 0);
  for (auto _ : state) {
    const int fd = ::open(c.path().c_str(), O_RDONLY | O_CLOEXEC);
    const uint64_t size = static_cast<uint64_t>(::lseek(fd, 0, SEEK_END));
    uint64_t pos = 24, base = 0, mapped = 0;
    uint8_t* map = nullptr;
    uint64_t sum = 0;
    while (pos + 16 <= size) {
      if (map == nullptr || std::min<uint64_t>(pos + 16 + 65535, size) > base + mapped) {
        if (map != nullptr) ::munmap(map, mapped);
        base = pos & ~static_cast<uint64_t>(page - 1);
        mapped = static_cast<size_t>(std::min<uint64_t>(window + slack, size - base));
        void* m = ::mmap(nullptr, mapped, PROT_READ, flags, fd, static_cast<off_t>(base));
        map = m == MAP_FAILED ? nullptr : static_cast<uint8_t*>(m);
        if (map == nullptr) {
          state.SkipWithError("mmap failed");
          ::close(fd);
          return;
        }
      }
      const uint8_t* r = map + (pos - base);
      const uint32_t incl =
          static_cast<uint32_t>(r[8] | r[9] << 8 | r[10] << 16) | static_cast<uint32_t>(r[11]) << 24;
      if (pos + 16 + incl > size) break;
      sum += r[16 + 12];
      pos += 16 + incl;
    }
    if (map != nullptr) ::munmap(map, mapped);
    ::close(fd);
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(c.summary().bytes));
}
BENCHMARK(bm_reference_mmap_walk)
    ->Args({1024, static_cast<int>(varn_bench::workload_kind::mixed), 1})
    ->Args({1024, static_cast<int>(varn_bench::workload_kind::mixed), 0})
    ->Args({4096, static_cast<int>(varn_bench::workload_kind::mixed), 1})
    ->Args({1024, static_cast<int>(varn_bench::workload_kind::small), 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// read_capture_file with the real frame handler, the way a run uses them: MODE 0 the default
// report (metadata lines), 1 the hex view of header and payload, 2 the default report with the
// benchmark pattern. Output to /dev/null.
void bm_handle_capture(benchmark::State& state, varn_bench::workload_kind kind, int mode) {
  const cached_capture& c = capture_of(kind);
  if (!c.ok()) {
    state.SkipWithError("cannot write the capture");
    return;
  }
  null_sink sink;
  varn::frame_context ctx;
  ctx.out = &sink.out;
  if (mode == 1) {
    ctx.dump_hdr = true;
    ctx.dump_payload = true;
  } else {
    ctx.dump_meta = true;
  }
  if (mode == 2) ctx.pattern.build("0x45 ? ? 0x54", false);
  varn::capture_walker walker;
  for (auto _ : state) {
    ctx.meta_header_pending = true;
    varn::read_capture_file(c.path(), varn::handle_frame, &ctx, sink.out, &walker);
  }
  sink.out.flush();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(c.summary().bytes));
}
BENCHMARK_CAPTURE(bm_handle_capture, mixed_default, varn_bench::workload_kind::mixed, 0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(bm_handle_capture, mixed_pattern, varn_bench::workload_kind::mixed, 2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(bm_handle_capture, icmp_default, varn_bench::workload_kind::icmp, 0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(bm_handle_capture, icmp_hex, varn_bench::workload_kind::icmp, 1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(bm_handle_capture, small_default, varn_bench::workload_kind::small, 0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
