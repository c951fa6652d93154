// The capture reader against a plain reader that walks a capture the slow, obvious way: one
// zero-filled 131072-byte buffer, and for every record a seek to it and one read of the whole
// request (snaplen + 16 bytes, or what is left of the file) into the buffer's start.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "capture/capture_reader.hpp"
#include "capture/pcap_format.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"
#include "uni/out_stream.hpp"

namespace {

using varn_test::bytes;
using varn_test::pcap_writer;
using varn_test::put_le16;
using varn_test::put_le32;

constexpr size_t k_buffer_size = 131072;
constexpr uint32_t k_largest_frame = 131056;
constexpr size_t k_smallest_window = 2 * 131072 + 4096;

// ---------------------------------------------------------------------------------------------
// The plain reader.

enum class header_outcome { open_failed, read_failed, rejected, accepted };
enum class walk_end { running, finished, seek_failed, read_failed, incl_len_too_large, would_abort };

const char* name_of(walk_end e) {
  switch (e) {
    case walk_end::running: return "running";
    case walk_end::finished: return "finished";
    case walk_end::seek_failed: return "seek failed";
    case walk_end::read_failed: return "read failed";
    case walk_end::incl_len_too_large: return "incl_len too large";
    case walk_end::would_abort: return "read request above the buffer";
  }
  return "?";
}

// The file calls the plain reader makes, on a real descriptor.
class posix_file {
 public:
  explicit posix_file(const std::string& path) : m_fd(::open(path.c_str(), O_RDONLY)) {}
  ~posix_file() {
    if (m_fd >= 0) ::close(m_fd);
  }
  posix_file(const posix_file&) = delete;
  posix_file& operator=(const posix_file&) = delete;
  bool is_open() const { return m_fd >= 0; }
  int64_t seek(int64_t offset, int whence) { return ::lseek(m_fd, offset, whence); }
  int64_t read(uint8_t* into, size_t n) { return ::read(m_fd, into, n); }

 private:
  int m_fd;
};

// The same calls on a regular file whose content is held in memory: a seek may go past the end,
// a read returns what lies between the position and the end. Much faster than the system
// calls when one small capture is walked at each of its lengths.
class memory_file {
 public:
  explicit memory_file(std::string_view content) : m_content(content) {}
  bool is_open() const { return true; }
  int64_t seek(int64_t offset, int whence) {
    const int64_t base = whence == SEEK_END ? size() : whence == SEEK_CUR ? m_position : 0;
    if (base + offset < 0) return -1;
    m_position = base + offset;
    return m_position;
  }
  int64_t read(uint8_t* into, size_t n) {
    const size_t left = static_cast<size_t>(std::max<int64_t>(size() - m_position, 0));
    const size_t got = std::min(n, left);
    if (got > 0) std::memcpy(into, m_content.data() + m_position, got);
    m_position += static_cast<int64_t>(got);
    return static_cast<int64_t>(got);
  }

 private:
  int64_t size() const { return static_cast<int64_t>(m_content.size()); }
  std::string_view m_content;
  int64_t m_position = 0;
};

// The one record buffer: 131072 bytes, all zero when a file is opened. Kept from file to file
// (cleared up to the furthest byte a read wrote) because cutting a capture at each of its lengths
// opens it tens of thousands of times. One plain reader is alive at a time.
struct record_buffer {
  std::vector<uint8_t> bytes = std::vector<uint8_t>(k_buffer_size, 0);
  size_t written = 0;
  void clear() {
    std::fill(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(written), 0);
    written = 0;
  }
  uint8_t* read_into(size_t request) {
    written = std::max(written, request);
    return bytes.data();
  }
};

record_buffer& model_buffer() {
  static record_buffer buffer;
  return buffer;
}

template <class File>
class plain_reader {
 public:
  template <class Source>
  explicit plain_reader(const Source& source) : m_file(source), m_buffer(model_buffer()) {
    m_buffer.clear();
    if (!m_file.is_open()) {
      m_outcome = header_outcome::open_failed;
      return;
    }
    m_size = m_file.seek(0, SEEK_END);
    m_file.seek(0, SEEK_SET);
    if (m_file.read(m_buffer.read_into(24), 24) < 0) {
      m_outcome = header_outcome::read_failed;
      return;
    }
    if (le32(0) != 0xA1B2C3D4 || le16(4) != 2 || le16(6) != 4) {
      m_outcome = header_outcome::rejected;
      return;
    }
    m_outcome = header_outcome::accepted;
    m_snaplen = le32(16);
    m_remaining = m_size - 24;
    m_next = 24;
    m_unit = m_snaplen + 16;  // 32-bit sum: wraps for snaplen 0xFFFFFFF0 and above
  }
  plain_reader(const plain_reader&) = delete;
  plain_reader& operator=(const plain_reader&) = delete;

  header_outcome outcome() const { return m_outcome; }
  walk_end end() const { return m_end; }
  uint32_t snaplen() const { return m_snaplen; }
  // File offset of the record handed over last.
  int64_t record_offset() const { return m_record_offset; }

  // One pass of the record loop: true with a record for the handler, false once the loop ended.
  bool next(uint64_t& frame_number, const uint8_t*& record) {
    if (m_outcome != header_outcome::accepted || m_end != walk_end::running) return false;
    if (m_passes > 0 && m_remaining <= 0) {  // the loop tests remaining after each pass
      m_end = walk_end::finished;
      return false;
    }
    ++m_passes;
    const int64_t position = m_file.seek(m_next, SEEK_SET);
    if (position < 0) {
      m_end = walk_end::seek_failed;
      return false;
    }
    const int64_t available = std::max<int64_t>(m_size - position, 0);
    const uint64_t request = m_unit > static_cast<uint64_t>(available) ? static_cast<uint64_t>(available) : m_unit;
    if (request > k_buffer_size) {
      m_end = walk_end::would_abort;
      return false;
    }
    if (m_file.read(m_buffer.read_into(request), request) < 0) {
      m_end = walk_end::read_failed;
      return false;
    }
    const uint32_t incl_len = le32(8);
    if (incl_len > m_snaplen || incl_len > k_largest_frame) {
      m_end = walk_end::incl_len_too_large;
      return false;
    }
    const int64_t advance = incl_len < m_snaplen ? int64_t{incl_len} + 16 : static_cast<int64_t>(request);
    ++m_frame;
    m_remaining -= advance;
    m_record_offset = position;
    m_next = position + advance;
    frame_number = m_frame;
    record = m_buffer.bytes.data();
    return true;
  }

 private:
  uint32_t le32(size_t at) const {
    const std::vector<uint8_t>& b = m_buffer.bytes;
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 | uint32_t{b[at + 3]} << 24;
  }
  uint16_t le16(size_t at) const { return static_cast<uint16_t>(m_buffer.bytes[at] | m_buffer.bytes[at + 1] << 8); }

  File m_file;
  record_buffer& m_buffer;
  int64_t m_size = 0;
  header_outcome m_outcome = header_outcome::open_failed;
  walk_end m_end = walk_end::running;
  uint32_t m_snaplen = 0;
  uint32_t m_unit = 0;
  int64_t m_remaining = 0;
  int64_t m_next = 0;
  int64_t m_record_offset = 0;
  uint64_t m_frame = 0;
  uint64_t m_passes = 0;
};

// ---------------------------------------------------------------------------------------------
// Walking a file with the plain reader and several walkers in step.

struct walk_summary {
  header_outcome outcome = header_outcome::open_failed;
  walk_end end = walk_end::running;
  uint64_t records = 0;
  std::vector<int64_t> record_offsets;
};

varn::walk_status expected_status(header_outcome o) {
  switch (o) {
    case header_outcome::open_failed: return varn::walk_status::open_failed;
    case header_outcome::read_failed: return varn::walk_status::read_failed;
    case header_outcome::rejected: return varn::walk_status::rejected;
    case header_outcome::accepted: return varn::walk_status::accepted;
  }
  return varn::walk_status::no_memory;
}

struct walker_under_test {
  size_t window;
  std::unique_ptr<varn::capture_walker> walker;
};

std::vector<walker_under_test> make_walkers(const std::vector<size_t>& windows) {
  std::vector<walker_under_test> out;
  for (size_t w : windows) out.push_back({w, std::make_unique<varn::capture_walker>(w)});
  return out;
}

// Runs the plain reader over PATH and every walker of WALKERS alongside it: same header outcome,
// same frame numbers, the same record_span(incl_len) bytes for every record, and the same end.
// When the plain reader reaches a read request above the buffer, the walkers are not asked for
// that record (it would end the process).
template <class File, class Source>
::testing::AssertionResult walks_agree_with(const Source& source, const std::string& path,
                                            std::vector<walker_under_test>& walkers, walk_summary& s) {
  plain_reader<File> model(source);
  s = walk_summary{};
  s.outcome = model.outcome();

  for (walker_under_test& w : walkers) {
    const bool opened = w.walker->open(path);
    if (opened != (model.outcome() != header_outcome::open_failed))
      return ::testing::AssertionFailure() << path << " window " << w.window << ": open gave " << opened;
    if (!opened) continue;
    const varn::walk_status st = w.walker->read_header();
    if (st != expected_status(model.outcome()))
      return ::testing::AssertionFailure() << path << " window " << w.window << ": header status "
                                           << static_cast<int>(st) << ", expected "
                                           << static_cast<int>(expected_status(model.outcome()));
    if (st == varn::walk_status::accepted && w.walker->snaplen() != model.snaplen())
      return ::testing::AssertionFailure() << path << ": snaplen " << w.walker->snaplen();
  }
  if (model.outcome() != header_outcome::accepted) return ::testing::AssertionSuccess();

  uint64_t frame = 0;
  const uint8_t* record = nullptr;
  while (model.next(frame, record)) {
    ++s.records;
    s.record_offsets.push_back(model.record_offset());
    const uint32_t span = varn::record_span(varn::le32_at(record, 8));
    for (walker_under_test& w : walkers) {
      uint64_t got_frame = 0;
      const uint8_t* got = nullptr;
      if (!w.walker->next(got_frame, got))
        return ::testing::AssertionFailure() << path << " window " << w.window << ": walk ended before frame "
                                             << frame << " (file offset " << model.record_offset() << ")";
      if (got_frame != frame)
        return ::testing::AssertionFailure() << path << " window " << w.window << ": frame number " << got_frame
                                             << ", expected " << frame;
      if (std::memcmp(got, record, span) != 0) {
        size_t at = 0;
        while (got[at] == record[at]) ++at;
        return ::testing::AssertionFailure()
               << path << " window " << w.window << ": frame " << frame << " (file offset "
               << model.record_offset() << ", span " << span << ") differs at record byte " << at << ": "
               << int{got[at]} << ", expected " << int{record[at]};
      }
    }
  }
  s.end = model.end();
  if (s.end == walk_end::would_abort) {
    for (walker_under_test& w : walkers) w.walker->close();
    return ::testing::AssertionSuccess();
  }
  for (walker_under_test& w : walkers) {
    uint64_t got_frame = 0;
    const uint8_t* got = nullptr;
    if (w.walker->next(got_frame, got))
      return ::testing::AssertionFailure() << path << " window " << w.window << ": frame " << got_frame
                                           << " after the end (" << name_of(s.end) << " after "
                                           << s.records << " records)";
    w.walker->close();
  }
  return ::testing::AssertionSuccess();
}

// CONTENT, when given, is what PATH holds: the plain reader then reads it from memory.
::testing::AssertionResult walks_agree(const std::string& path, std::vector<walker_under_test>& walkers,
                                       walk_summary* summary = nullptr,
                                       const std::string_view* content = nullptr) {
  walk_summary local;
  walk_summary& s = summary != nullptr ? *summary : local;
  if (content != nullptr) return walks_agree_with<memory_file>(*content, path, walkers, s);
  return walks_agree_with<posix_file>(path, path, walkers, s);
}

const std::vector<size_t> k_windows{0, k_smallest_window + 4093, 300000, size_t{1} << 20,
                                    varn::capture_walker::default_window};

std::string save(const std::string& path, const bytes& content) {
  varn_test::write_file(path, content);
  return path;
}

// ---------------------------------------------------------------------------------------------
// read_capture_file with a handler that keeps what it was shown.

struct seen_record {
  uint64_t frame;
  bytes span;  // record_span(incl_len) bytes
};

std::vector<seen_record>* g_seen = nullptr;
varn::frame_context* g_seen_context = nullptr;

bool keep_record(uint64_t frame_number, const uint8_t* record, varn::frame_context* ctx) {
  g_seen_context = ctx;
  const uint32_t span = varn::record_span(varn::le32_at(record, 8));
  g_seen->push_back({frame_number, bytes(reinterpret_cast<const char*>(record), span)});
  return false;  // the result is ignored: the walk goes on
}

struct read_result {
  bool ok = false;
  std::string console;
  std::vector<seen_record> records;
};

read_result read_with(const std::string& path, varn::capture_walker* walker = nullptr) {
  read_result r;
  varn::frame_context ctx;
  g_seen = &r.records;
  g_seen_context = nullptr;
  {
    uni::out_stream console(&r.console);
    r.ok = varn::read_capture_file(path, keep_record, &ctx, console, walker);
    console.flush();
  }
  if (!r.records.empty()) {
    EXPECT_EQ(g_seen_context, &ctx);
  }
  g_seen = nullptr;
  return r;
}

bytes file_header(uint32_t snaplen, int32_t thiszone = 0, uint32_t link = 1, uint32_t sigfigs = 0) {
  bytes h;
  put_le32(h, 0xA1B2C3D4);
  put_le16(h, 2);
  put_le16(h, 4);
  put_le32(h, static_cast<uint32_t>(thiszone));
  put_le32(h, sigfigs);
  put_le32(h, snaplen);
  put_le32(h, link);
  return h;
}

bytes record_header(uint32_t ts_sec, uint32_t ts_usec, uint32_t incl_len, uint32_t orig_len) {
  bytes r;
  put_le32(r, ts_sec);
  put_le32(r, ts_usec);
  put_le32(r, incl_len);
  put_le32(r, orig_len);
  return r;
}

bytes zeros(size_t n) { return bytes(n, '\0'); }

// ---------------------------------------------------------------------------------------------
// Messages and results of read_capture_file.

TEST(capture_reader_test, missing_file_reports_prob_opening_and_returns_false) {
  varn_test::temp_dir dir;
  const std::string path = dir.file("absent.pcap");
  const read_result r = read_with(path);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.console, "prob opening " + path + " for read\n");
  EXPECT_TRUE(r.records.empty());
}

TEST(capture_reader_test, accepted_file_reports_processing_and_returns_true) {
  varn_test::temp_dir dir;
  pcap_writer w(65535);
  w.add(1, 2, varn_test::icmp4_frame({})).add(3, 4, varn_test::icmp4_frame({}));
  const std::string path = save(dir.file("two.pcap"), w.data());
  const read_result r = read_with(path);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.console, "Processing file: " + path + "\n");
  ASSERT_EQ(r.records.size(), 2u);
  EXPECT_EQ(r.records[0].frame, 1u);
  EXPECT_EQ(r.records[1].frame, 2u);
}

TEST(capture_reader_test, rejected_headers_report_invalid_pcap_file_after_processing_line) {
  struct rejected_case {
    const char* name;
    uint32_t magic;
    uint16_t major;
    uint16_t minor;
  };
  const rejected_case cases[] = {
      {"big_endian", 0xD4C3B2A1, 2, 4},         // file bytes A1 B2 C3 D4
      {"nanosecond", 0xA1B23C4D, 2, 4},         // little-endian nanosecond variant
      {"big_endian_nanosecond", 0x4D3CB2A1, 2, 4},
      {"version_2_3", 0xA1B2C3D4, 2, 3},
      {"version_2_5", 0xA1B2C3D4, 2, 5},
      {"version_1_4", 0xA1B2C3D4, 1, 4},
      {"version_3_4", 0xA1B2C3D4, 3, 4},
      {"version_4_2", 0xA1B2C3D4, 4, 2},
      {"pcapng_block", 0x0A0D0D0A, 2, 4},
  };
  varn_test::temp_dir dir;
  for (const rejected_case& c : cases) {
    SCOPED_TRACE(c.name);
    pcap_writer w(65535, 1, c.magic, c.major, c.minor);
    w.add(1, 0, varn_test::icmp4_frame({}));
    const std::string path = save(dir.file(std::string(c.name) + ".pcap"), w.data());
    const read_result r = read_with(path);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.console, "Processing file: " + path + "\ninvalid pcap file, aborting\n");
    EXPECT_TRUE(r.records.empty());
  }
}

TEST(capture_reader_test, files_too_short_for_magic_and_version_are_rejected) {
  // From 7 bytes on the header passes: the missing high byte of version_minor reads as 0.
  varn_test::temp_dir dir;
  const bytes header = file_header(65535);
  for (size_t size = 0; size < 7; ++size) {
    SCOPED_TRACE(size);
    const std::string path = save(dir.file("short" + std::to_string(size)), header.substr(0, size));
    const read_result r = read_with(path);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.console, "Processing file: " + path + "\ninvalid pcap file, aborting\n");
  }
}

TEST(capture_reader_test, header_read_error_returns_false_without_message) {
  // A directory opens read-only but every read of it fails.
  varn_test::temp_dir dir;
  const read_result r = read_with(dir.path());
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.console, "Processing file: " + dir.path() + "\n");
  EXPECT_TRUE(r.records.empty());
  std::vector<walker_under_test> walkers = make_walkers({0});
  walk_summary s;
  EXPECT_TRUE(walks_agree(dir.path(), walkers, &s));
  EXPECT_EQ(s.outcome, header_outcome::read_failed);
}

TEST(capture_reader_test, incl_len_above_snaplen_ends_file_silently_and_counts_as_read) {
  varn_test::temp_dir dir;
  pcap_writer w(100);
  w.add(1, 0, bytes(60, 'a'));
  w.add(2, 0, bytes(60, 'b'), std::nullopt, 101u);  // incl_len 101 > snaplen 100
  w.add(3, 0, bytes(60, 'c'));
  const std::string path = save(dir.file("stop.pcap"), w.data());
  const read_result r = read_with(path);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.console, "Processing file: " + path + "\n");
  ASSERT_EQ(r.records.size(), 1u);
  EXPECT_EQ(r.records[0].frame, 1u);
}

TEST(capture_reader_test, incl_len_above_buffer_room_ends_file_like_incl_len_above_snaplen) {
  // snaplen 131060, file no longer than the buffer: incl_len 131056 fits, 131057 ends the file.
  varn_test::temp_dir dir;
  for (uint32_t incl : {131056u, 131057u}) {
    SCOPED_TRACE(incl);
    bytes f = file_header(131060) + record_header(1, 0, 100, 100) + bytes(100, 'x');
    f += record_header(2, 0, incl, incl);
    f += bytes(k_buffer_size + 24 - f.size(), 'y');  // 131096 bytes: no request exceeds the buffer
    const std::string path = save(dir.file("big" + std::to_string(incl)), f);
    const read_result r = read_with(path);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.records.size(), incl == 131056u ? 2u : 1u);
    std::vector<walker_under_test> walkers = make_walkers(k_windows);
    walk_summary s;
    EXPECT_TRUE(walks_agree(path, walkers, &s));
    EXPECT_EQ(s.records, r.records.size());
  }
}

TEST(capture_reader_test, handler_result_is_ignored_and_frame_numbers_restart_per_file) {
  varn_test::temp_dir dir;
  pcap_writer w(65535);
  for (int i = 0; i < 5; ++i) w.add(1, 0, bytes(30 + i, static_cast<char>('a' + i)));
  const std::string path = save(dir.file("five.pcap"), w.data());
  varn::capture_walker shared(0);
  for (int pass = 0; pass < 2; ++pass) {
    const read_result r = read_with(path, &shared);
    EXPECT_TRUE(r.ok);
    ASSERT_EQ(r.records.size(), 5u);
    for (size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(r.records[i].frame, i + 1);
      EXPECT_EQ(r.records[i].span.substr(16, 30 + i), bytes(30 + i, static_cast<char>('a' + i)));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Stale bytes, worked out by hand.

TEST(capture_reader_test, header_only_file_gives_one_record_taken_from_the_file_header) {
  varn_test::temp_dir dir;
  struct header_only_case {
    int32_t thiszone;
    size_t records;
  };
  // incl_len comes from the header's thiszone field: 0 and 7 are within snaplen 65535, -1
  // (0xFFFFFFFF) is above it and ends the file before any record.
  for (const header_only_case& c : {header_only_case{0, 1}, header_only_case{7, 1}, header_only_case{-1, 0}}) {
    SCOPED_TRACE(c.thiszone);
    const bytes header = file_header(65535, c.thiszone, 1, 0x04030201);
    const std::string path = save(dir.file("header" + std::to_string(c.thiszone)), header);
    const read_result r = read_with(path);
    EXPECT_TRUE(r.ok);
    ASSERT_EQ(r.records.size(), c.records);
    if (c.records == 1) {
      EXPECT_EQ(r.records[0].frame, 1u);
      ASSERT_EQ(r.records[0].span.size(), 16u + 82u);
      EXPECT_EQ(r.records[0].span.substr(0, 24), header);
      EXPECT_EQ(r.records[0].span.substr(24), zeros(98 - 24));
    }
  }
}

TEST(capture_reader_test, walker_reused_for_a_second_file_starts_from_a_zero_buffer) {
  varn_test::temp_dir dir;
  pcap_writer big(2000);
  for (int i = 0; i < 20; ++i) big.add(1, 0, bytes(1500, '\xee'));
  const std::string first = save(dir.file("first.pcap"), big.data());
  const bytes header = file_header(65535);
  const std::string second = save(dir.file("second.pcap"), header);
  varn::capture_walker shared(0);
  EXPECT_EQ(read_with(first, &shared).records.size(), 20u);
  const read_result r = read_with(second, &shared);
  ASSERT_EQ(r.records.size(), 1u);
  EXPECT_EQ(r.records[0].span, header + zeros(98 - 24));
}

TEST(capture_reader_test, files_shorter_than_the_header_read_zeros_for_missing_bytes) {
  varn_test::temp_dir dir;
  const bytes full = file_header(100, 0, 1, 0);
  struct short_case {
    size_t size;
    bytes content;
    size_t records;
  };
  bytes thiszone_one = full;
  thiszone_one[8] = 1;  // thiszone 1
  const short_case cases[] = {
      // The high byte of version_minor missing: it reads 0, so the version is 2.4; snaplen and
      // incl_len read 0, so one record.
      {7, full.substr(0, 7), 1},
      // Magic and version only.
      {8, full.substr(0, 8), 1},
      // thiszone 1 but snaplen missing (0): incl_len 1 > 0 ends the file.
      {12, thiszone_one.substr(0, 12), 0},
      // thiszone 1 and snaplen 100 present: incl_len 1 passes.
      {20, thiszone_one.substr(0, 20), 1},
      {23, full.substr(0, 23), 1},
  };
  for (const short_case& c : cases) {
    SCOPED_TRACE(c.size);
    const std::string path = save(dir.file("short" + std::to_string(c.size)), c.content);
    const read_result r = read_with(path);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.console, "Processing file: " + path + "\n");
    ASSERT_EQ(r.records.size(), c.records);
    if (c.records == 1) {
      EXPECT_EQ(r.records[0].frame, 1u);
      EXPECT_EQ(r.records[0].span, c.content + zeros(r.records[0].span.size() - c.size));
    }
    std::vector<walker_under_test> walkers = make_walkers({0});
    EXPECT_TRUE(walks_agree(path, walkers));
  }
  // Every size from 7 to 23, thiszone 0 and the bytes from 12 on set, against the plain reader.
  bytes busy = full;
  for (size_t i = 12; i < 24; ++i) busy[i] = static_cast<char>(0x11 * (i % 7) + 1);
  std::vector<walker_under_test> walkers = make_walkers({0, varn::capture_walker::default_window});
  for (size_t size = 7; size < 24; ++size) {
    const std::string path = save(dir.file("busy" + std::to_string(size)), busy.substr(0, size));
    EXPECT_TRUE(walks_agree(path, walkers)) << size;
  }
}

TEST(capture_reader_test, incl_len_equal_to_snaplen_advances_by_the_read_request) {
  // snaplen 60: reads of 76 bytes. Records 1 and 2 are full, record 3 holds incl_len 60 but only
  // 30 frame bytes before the end of the file.
  varn_test::temp_dir dir;
  const bytes f1 = bytes(60, '1');
  const bytes f2 = varn_test::seeded_bytes(60, 2);
  const bytes f3 = bytes(30, '3');
  const bytes file = file_header(60) + record_header(1, 0, 60, 60) + f1 + record_header(2, 0, 60, 60) + f2 +
                     record_header(3, 0, 60, 60) + f3;
  const std::string path = save(dir.file("equal.pcap"), file);
  const read_result r = read_with(path);
  EXPECT_TRUE(r.ok);
  ASSERT_EQ(r.records.size(), 3u);
  EXPECT_EQ(r.records[0].span.substr(16, 60), f1);
  EXPECT_EQ(r.records[1].span.substr(16, 60), f2);
  // Record 3: its own 46 bytes, then record 2's frame bytes 30..59 still in the buffer, then
  // bytes no read reached.
  const bytes& third = r.records[2].span;
  ASSERT_EQ(third.size(), 16u + 82u);
  EXPECT_EQ(third.substr(0, 16), record_header(3, 0, 60, 60));
  EXPECT_EQ(third.substr(16, 30), f3);
  EXPECT_EQ(third.substr(46, 30), f2.substr(30, 30));
  EXPECT_EQ(third.substr(76), zeros(98 - 76));
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  EXPECT_TRUE(walks_agree(path, walkers));
}

TEST(capture_reader_test, last_record_cut_short_shows_earlier_reads_behind_it) {
  // snaplen 200: a long record, then a short one cut after 5 frame bytes.
  varn_test::temp_dir dir;
  const bytes f1 = varn_test::seeded_bytes(150, 11);
  const bytes file = file_header(200) + record_header(1, 0, 150, 150) + f1 + record_header(2, 0, 90, 90) +
                     bytes(5, 'z');
  const std::string path = save(dir.file("cut.pcap"), file);
  const read_result r = read_with(path);
  ASSERT_EQ(r.records.size(), 2u);
  // The first read took all 187 bytes behind the file header: record 1 and 21 bytes after it.
  const bytes& second = r.records[1].span;
  ASSERT_EQ(second.size(), 16u + 90u);
  EXPECT_EQ(second.substr(0, 21), record_header(2, 0, 90, 90) + bytes(5, 'z'));
  EXPECT_EQ(second.substr(21, 85), f1.substr(5, 85));
}

TEST(capture_reader_test, tiny_snaplen_shows_the_file_header_behind_the_record_header) {
  // snaplen 0: every read is 16 bytes, so record bytes 16..23 are the header's snaplen and
  // link type forever, and bytes from 24 on were never read.
  varn_test::temp_dir dir;
  bytes file = file_header(0, 0, 0x86DD0001);
  for (uint32_t i = 0; i < 4; ++i) file += record_header(i + 1, i, 0, 1000 + i);
  const std::string path = save(dir.file("zero.pcap"), file);
  const read_result r = read_with(path);
  ASSERT_EQ(r.records.size(), 4u);
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(r.records[i].frame, i + 1);
    EXPECT_EQ(r.records[i].span.substr(0, 16), record_header(i + 1, i, 0, 1000 + i));
    EXPECT_EQ(r.records[i].span.substr(16, 8), file.substr(16, 8));
    EXPECT_EQ(r.records[i].span.substr(24), zeros(98 - 24));
  }
  // snaplen 12: reads of 28 bytes; nothing ever reaches record bytes 28 and beyond.
  pcap_writer w(12);
  for (int i = 0; i < 6; ++i) w.add(1, 0, varn_test::icmp4_frame({}).substr(0, 12), 98u);
  const std::string path12 = save(dir.file("twelve.pcap"), w.data());
  const read_result r12 = read_with(path12);
  ASSERT_EQ(r12.records.size(), 6u);
  for (const seen_record& s : r12.records) EXPECT_EQ(s.span.substr(28), zeros(98 - 28));
}

TEST(capture_reader_test, wrapped_read_unit_of_snaplen_fffffff0_reads_nothing) {
  // The read unit is 0: every record is the untouched file header, incl_len its thiszone.
  varn_test::temp_dir dir;
  const bytes header = file_header(0xFFFFFFF0, 0, 1, 0x01020304);
  const std::string path = save(dir.file("wrap0.pcap"), header + varn_test::seeded_bytes(100, 5));
  const read_result r = read_with(path);
  EXPECT_TRUE(r.ok);
  // 100 bytes behind the header, 16 per record: 7 records before remaining drops to 0 or below.
  ASSERT_EQ(r.records.size(), 7u);
  for (size_t i = 0; i < r.records.size(); ++i) {
    EXPECT_EQ(r.records[i].frame, i + 1);
    EXPECT_EQ(r.records[i].span, header + zeros(98 - 24));
  }
  // thiszone 40: each record advances 56.
  const bytes header40 = file_header(0xFFFFFFF0, 40);
  const std::string path40 = save(dir.file("wrap40.pcap"), header40 + bytes(100, 'q'));
  EXPECT_EQ(read_with(path40).records.size(), 2u);
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  EXPECT_TRUE(walks_agree(path, walkers));
  EXPECT_TRUE(walks_agree(path40, walkers));
}

TEST(capture_reader_test, wrapped_read_unit_of_snaplen_ffffffff_reads_fifteen_bytes) {
  // The read unit is 15: the record header's last byte and everything behind it stay as the
  // file header left them.
  varn_test::temp_dir dir;
  const bytes header = file_header(0xFFFFFFFF, 0, 0x0800AABB, 0x77000000);
  const bytes f1 = varn_test::seeded_bytes(40, 8);
  const bytes f2 = varn_test::seeded_bytes(70, 9);
  const bytes file = header + record_header(5, 6, 40, 0x11111111) + f1 + record_header(7, 8, 70, 0x22222222) + f2;
  const std::string path = save(dir.file("wrap15.pcap"), file);
  const read_result r = read_with(path);
  ASSERT_EQ(r.records.size(), 2u);
  EXPECT_EQ(r.records[0].span.substr(0, 15), record_header(5, 6, 40, 0x11111111).substr(0, 15));
  EXPECT_EQ(r.records[0].span.substr(15, 9), header.substr(15, 9));
  EXPECT_EQ(r.records[0].span.substr(24), zeros(98 - 24));
  EXPECT_EQ(r.records[1].span.substr(0, 15), record_header(7, 8, 70, 0x22222222).substr(0, 15));
  EXPECT_EQ(r.records[1].span.substr(15, 9), header.substr(15, 9));
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  EXPECT_TRUE(walks_agree(path, walkers));
}

// ---------------------------------------------------------------------------------------------
// The read request above the buffer.

bytes oversized_capture(size_t size) {
  bytes f = file_header(200000) + record_header(1, 0, 100, 100) + varn_test::seeded_bytes(100, 3);
  f += varn_test::seeded_bytes(size - f.size(), 4);
  return f;
}

TEST(capture_reader_test, read_request_of_exactly_the_buffer_size_is_read) {
  varn_test::temp_dir dir;
  const std::string path = save(dir.file("fits.pcap"), oversized_capture(24 + k_buffer_size));
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  walk_summary s;
  EXPECT_TRUE(walks_agree(path, walkers, &s));
  EXPECT_NE(s.end, walk_end::would_abort);
  EXPECT_GE(s.records, 1u);
}

TEST(capture_reader_death_test, read_request_above_the_buffer_flushes_and_aborts) {
  varn_test::temp_dir dir;
  const std::string path = save(dir.file("huge.pcap"), oversized_capture(24 + k_buffer_size + 1));
  {
    plain_reader<posix_file> model(path);
    uint64_t frame;
    const uint8_t* record;
    EXPECT_FALSE(model.next(frame, record));
    EXPECT_EQ(model.end(), walk_end::would_abort);
  }
  // The console is standard error here, so the flushed progress line shows before the message.
  auto run = [&] {
    uni::out_stream console(2);
    varn::frame_context ctx;
    std::vector<seen_record> seen;
    g_seen = &seen;
    varn::read_capture_file(path, keep_record, &ctx, console);
    console.flush();
  };
  EXPECT_DEATH(run(), "^Processing file: [^\n]*huge\\.pcap\nfatal assertion failed in read_capture_file: [^\n]+\n$");
}

TEST(capture_reader_death_test, shared_captures_whose_first_read_exceeds_the_buffer_abort) {
  const std::string dir = varn_test::shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "shared captures not present";
  size_t checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file()) continue;
    const std::string path = entry.path().string();
    plain_reader<posix_file> model(path);
    uint64_t frame;
    const uint8_t* record;
    bool any = false;
    while (model.next(frame, record)) any = true;
    if (model.end() != walk_end::would_abort) continue;
    ++checked;
    EXPECT_FALSE(any) << path;
    varn::capture_walker walker(0);
    ASSERT_TRUE(walker.open(path));
    ASSERT_EQ(walker.read_header(), varn::walk_status::accepted);
    EXPECT_DEATH(walker.next(frame, record), "fatal assertion failed in read_capture_file: ") << path;
  }
  EXPECT_GT(checked, 0u) << "no shared capture exceeds the buffer";
}

// ---------------------------------------------------------------------------------------------
// The walker against the plain reader on many files.

// Copies SOURCE to PATH and cuts it at every length from its size down to 0 (or at the lengths
// in CUTS, in decreasing order), comparing the walks at each.
void compare_every_cut(const std::string& source_path, const std::string& path, const std::vector<int64_t>& cuts,
                       std::vector<walker_under_test>& walkers, size_t* compared) {
  const bytes content = varn_test::read_file(source_path);
  save(path, content);
  const int fd = ::open(path.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  for (int64_t cut : cuts) {
    ASSERT_EQ(::ftruncate(fd, cut), 0);
    const std::string_view now(content.data(), static_cast<size_t>(cut));
    const ::testing::AssertionResult agree = walks_agree(path, walkers, nullptr, &now);
    ++*compared;
    if (!agree) {
      ADD_FAILURE() << source_path << " cut to " << cut << " bytes: " << agree.message();
      break;
    }
  }
  ::close(fd);
}

std::vector<std::string> shared_capture_files() {
  std::vector<std::string> out;
  const std::string dir = varn_test::shared_captures_dir();
  if (dir.empty()) return out;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file()) continue;
    const std::string ext = entry.path().extension().string();
    if (ext == ".pcap" || ext == ".cap" || ext == ".pcapng") out.push_back(entry.path().string());
  }
  std::sort(out.begin(), out.end());
  return out;
}

constexpr int64_t k_every_cut_limit = 20 * 1024;

TEST(capture_reader_test, shared_captures_agree_with_plain_reader_at_every_cut) {
  const std::vector<std::string> files = shared_capture_files();
  if (files.empty()) GTEST_SKIP() << "shared captures not present";
  varn_test::temp_dir dir;
  // Every window holds a whole capture of this size, so one walker stands for all sizes.
  std::vector<walker_under_test> walkers = make_walkers({0});
  size_t compared = 0;
  for (const std::string& file : files) {
    const int64_t size = static_cast<int64_t>(std::filesystem::file_size(file));
    if (size >= k_every_cut_limit) continue;
    std::vector<int64_t> cuts;
    for (int64_t cut = size; cut >= 0; --cut) cuts.push_back(cut);
    compare_every_cut(file, dir.file("cut.pcap"), cuts, walkers, &compared);
  }
  EXPECT_GT(compared, 0u);
}

TEST(capture_reader_test, large_shared_captures_agree_with_plain_reader_at_sampled_cuts) {
  const std::vector<std::string> files = shared_capture_files();
  if (files.empty()) GTEST_SKIP() << "shared captures not present";
  varn_test::temp_dir dir;
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  std::mt19937_64 rng(20240607);
  size_t compared = 0;
  for (const std::string& file : files) {
    const int64_t size = static_cast<int64_t>(std::filesystem::file_size(file));
    if (size < k_every_cut_limit) continue;
    // The whole file, read by the plain reader through the system calls; and where its
    // records start.
    walk_summary full;
    EXPECT_TRUE(walks_agree(file, walkers, &full));
    std::set<int64_t, std::greater<>> cuts{size, size - 1};
    // Around the largest file the buffer takes without ending the process.
    for (int64_t c : {int64_t{24} + 131072, int64_t{24} + 131073})
      if (c <= size) cuts.insert(c);
    // Inside and around the headers of a few records, and a few anywhere.
    for (int i = 0; i < 6 && !full.record_offsets.empty(); ++i) {
      const int64_t start = full.record_offsets[rng() % full.record_offsets.size()];
      for (int64_t d : {-1, 0, 1, 8, 11, 12, 15, 16, 17, 60, 97, 98})
        if (start + d >= 0 && start + d <= size) cuts.insert(start + d);
    }
    for (int i = 0; i < 6; ++i) cuts.insert(static_cast<int64_t>(rng() % static_cast<uint64_t>(size + 1)));
    compare_every_cut(file, dir.file("cut.pcap"), std::vector<int64_t>(cuts.begin(), cuts.end()), walkers,
                      &compared);
  }
  EXPECT_GT(compared, 0u);
}

// A capture of random records: ICMP frames of both kinds, random bytes, lengths up to
// MAX_FRAME, now and then a record of exactly snaplen bytes.
bytes random_capture(std::mt19937_64& rng, uint32_t snaplen, size_t target_size, uint32_t max_frame,
                     std::vector<size_t>* record_offsets = nullptr) {
  bytes f = file_header(snaplen, static_cast<int32_t>(rng() % 3 == 0 ? rng() % 64 : 0), 1,
                        static_cast<uint32_t>(rng()));
  const uint32_t frame_cap = std::min<uint32_t>(std::min<uint32_t>(snaplen, max_frame), k_largest_frame);
  while (f.size() < target_size) {
    bytes frame;
    switch (rng() % 4) {
      case 0: {
        varn_test::icmp4_spec s;
        s.ihl = static_cast<uint8_t>(5 + rng() % 11);
        s.payload = varn_test::seeded_bytes(rng() % 200, static_cast<uint32_t>(rng()));
        frame = varn_test::icmp4_frame(s);
        break;
      }
      case 1: {
        varn_test::icmp6_spec s;
        s.payload = varn_test::seeded_bytes(rng() % 200, static_cast<uint32_t>(rng()));
        frame = varn_test::icmp6_frame(s);
        break;
      }
      default:
        frame = varn_test::seeded_bytes(rng() % (frame_cap + 1), static_cast<uint32_t>(rng()));
        break;
    }
    uint32_t incl = static_cast<uint32_t>(std::min<size_t>(frame.size(), frame_cap));
    if (rng() % 16 == 0) incl = frame_cap;  // exactly snaplen when snaplen is small enough
    frame.resize(incl, '\x5a');
    if (record_offsets != nullptr) record_offsets->push_back(f.size());
    f += record_header(static_cast<uint32_t>(rng()), static_cast<uint32_t>(rng() % 1000000), incl,
                       static_cast<uint32_t>(incl + rng() % 100));
    f += frame;
  }
  return f;
}

// Flipped bytes, rewritten incl_len fields (including ones above snaplen), a new snaplen, and a
// cut at a random length. RECORD_OFFSETS, when given, are where the records start: their
// incl_len fields are rewritten too.
void damage(std::mt19937_64& rng, bytes& f, const std::vector<size_t>* record_offsets = nullptr) {
  const uint32_t old_snaplen = varn::le32_at(reinterpret_cast<const uint8_t*>(f.data()), 16);
  if (record_offsets != nullptr && !record_offsets->empty()) {
    const int rewrites = 1 + static_cast<int>(rng() % 3);
    for (int i = 0; i < rewrites; ++i) {
      const size_t at = (*record_offsets)[rng() % record_offsets->size()] + 8;
      uint32_t v;
      switch (rng() % 5) {
        case 0: v = old_snaplen; break;
        case 1: v = old_snaplen + 1; break;
        case 2: v = static_cast<uint32_t>(rng() % 100); break;
        case 3: v = static_cast<uint32_t>(rng() % (uint64_t{old_snaplen} + 1)); break;
        default: v = static_cast<uint32_t>(rng()); break;
      }
      for (int b = 0; b < 4; ++b) f[at + static_cast<size_t>(b)] = static_cast<char>(v >> (8 * b));
    }
  }
  if (rng() % 3 == 0) {
    uint32_t snaplen = varn::le32_at(reinterpret_cast<const uint8_t*>(f.data()), 16);
    switch (rng() % 3) {
      case 0: snaplen = static_cast<uint32_t>(rng() % 4096); break;
      case 1: snaplen = static_cast<uint32_t>(rng() % 100); break;
      default: snaplen = snaplen > 0 ? snaplen - 1 : 1; break;
    }
    for (int b = 0; b < 4; ++b) f[16 + static_cast<size_t>(b)] = static_cast<char>(snaplen >> (8 * b));
  }
  const int flips = static_cast<int>(rng() % 6);
  for (int i = 0; i < flips && f.size() > 24; ++i) f[24 + rng() % (f.size() - 24)] ^= static_cast<char>(1u << (rng() % 8));
  const int rewrites = static_cast<int>(rng() % 4);
  for (int i = 0; i < rewrites && f.size() > 40; ++i) {
    const size_t at = 24 + rng() % (f.size() - 28);
    uint32_t v = static_cast<uint32_t>(rng());
    switch (rng() % 3) {
      case 0: v %= 256; break;
      case 1: v %= 4096; break;
      default: break;
    }
    for (int b = 0; b < 4; ++b) f[at + static_cast<size_t>(b)] = static_cast<char>(v >> (8 * b));
  }
  if (rng() % 3 == 0) f.resize(24 + rng() % (f.size() - 23));
}

TEST(capture_reader_test, random_damaged_captures_agree_with_plain_reader) {
  varn_test::temp_dir dir;
  std::vector<walker_under_test> walkers = make_walkers(k_windows);
  struct shape {
    uint32_t snaplen;
    size_t size;       // roughly; large files cross the walker's block boundaries
    uint32_t max_frame;
    int files;
  };
  const shape shapes[] = {
      {96, 700000, 96, 3},        {200, 600000, 200, 4},     {1514, 900000, 1514, 4},
      {2000, 400000, 2000, 4},    {65535, 700000, 1600, 3},  {65535, 300000, 70000, 2},
      {131056, 131096, 131056, 4}, {131070, 131096, 131056, 4}, {262144, 131000, 9000, 4},
      {0xFFFFFFFF, 5000, 300, 3}, {0xFFFFFFF0, 3000, 300, 2},
  };
  std::mt19937_64 rng(77);
  uint64_t records = 0;
  size_t files_ended_early = 0;
  for (const shape& sh : shapes) {
    for (int i = 0; i < sh.files; ++i) {
      std::vector<size_t> offsets;
      bytes f = random_capture(rng, sh.snaplen, sh.size, sh.max_frame, &offsets);
      if (f.size() > k_buffer_size + 24 && sh.snaplen > k_largest_frame) f.resize(k_buffer_size + 24);
      while (!offsets.empty() && offsets.back() + 12 > f.size()) offsets.pop_back();
      const bool damaged = i % 2 == 1;
      if (damaged) damage(rng, f, &offsets);
      const std::string path = save(dir.file("random.pcap"), f);
      walk_summary s;
      const ::testing::AssertionResult agree = walks_agree(path, walkers, &s);
      EXPECT_TRUE(agree) << "snaplen " << sh.snaplen << " file " << i << (damaged ? " (damaged)" : "");
      records += s.records;
      if (s.end != walk_end::finished) ++files_ended_early;
      if (!damaged) {
        EXPECT_NE(s.end, walk_end::would_abort);
        EXPECT_GT(s.records, 0u);
      }
    }
  }
  // The files must have been walked, and damage must have ended some walks early.
  EXPECT_GT(records, 10000u);
  EXPECT_GE(files_ended_early, 5u);
}

TEST(capture_reader_test, tiny_snaplens_agree_with_plain_reader) {
  // Frames longer than the read unit: the handler's header reads reach stale bytes.
  varn_test::temp_dir dir;
  std::vector<walker_under_test> walkers = make_walkers({0, k_smallest_window + 1});
  std::mt19937_64 rng(12);
  for (uint32_t snaplen : {0u, 1u, 8u, 12u, 50u, 64u, 81u, 82u, 96u}) {
    for (int i = 0; i < 12; ++i) {
      bytes f = file_header(snaplen, 0, 1, static_cast<uint32_t>(rng()));
      const size_t records = 1 + rng() % 3000;
      for (size_t k = 0; k < records; ++k) {
        bytes frame = rng() % 2 ? varn_test::icmp4_frame({}) : varn_test::icmp6_frame({});
        uint32_t incl = static_cast<uint32_t>(rng() % (snaplen + 1));
        if (rng() % 4 == 0) incl = snaplen;
        if (rng() % 500 == 0) incl = snaplen + 1;  // ends the file
        frame.resize(std::min<uint32_t>(incl, static_cast<uint32_t>(frame.size())));
        frame.resize(incl, '\x33');
        f += record_header(static_cast<uint32_t>(k), 0, incl, static_cast<uint32_t>(frame.size() + 40));
        f += frame;
      }
      if (i % 3 == 2) damage(rng, f);
      if (i % 4 == 1) f.resize(f.size() - rng() % std::min<size_t>(f.size() - 24 + 1, snaplen + 17));
      const std::string path = save(dir.file("tiny.pcap"), f);
      EXPECT_TRUE(walks_agree(path, walkers)) << "snaplen " << snaplen << " file " << i;
    }
  }
}

}  // namespace
