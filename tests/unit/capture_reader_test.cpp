// The capture reader against a plain reader that walks a capture the slow, obvious way: one
// zero-filled 131072-byte buffer and, for every record, one read of snaplen + 16 bytes (or what
// is left of the file) from the record's offset into the buffer's start. Every capture is walked
// as a file and as the same bytes on a pipe.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <set>
#include <poll.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

#include "capture/capture_reader.hpp"
#include "capture/pcap_format.hpp"
#include "support/capture_text.hpp"
#include "support/run_varn.hpp"

namespace {

using varn_test::bytes;

struct walk {
  bool accepted = false, aborts = false;  // aborts: a read request above the buffer ends the process
  std::vector<std::string> spans;         // record_span(incl_len) bytes of each record
  std::vector<int64_t> offsets;           // file offset of each record
};

walk plain_walk(std::string_view file) {
  static std::vector<uint8_t> buf(varn::record_buffer_size, 0);  // zero again up to what the last file wrote
  static size_t written = 0;
  std::fill_n(buf.begin(), written, 0);
  written = std::min(buf.size(), file.size());
  const int64_t size = static_cast<int64_t>(file.size());
  auto read_at = [&](int64_t at, uint64_t n) {
    if (at < size) std::memcpy(buf.data(), file.data() + at, std::min<uint64_t>(n, static_cast<uint64_t>(size - at)));
  };
  walk w;
  read_at(0, 24);
  w.accepted = varn::le32_at(buf.data(), 0) == 0xA1B2C3D4 && varn::le16_at(buf.data(), 4) == 2 && varn::le16_at(buf.data(), 6) == 4;
  const uint32_t snaplen = varn::le32_at(buf.data(), 16), unit = snaplen + 16;  // 32-bit: may wrap
  for (int64_t remaining = size - 24, next = 24, first = 1; w.accepted && (first || remaining > 0); first = 0) {
    const uint64_t available = static_cast<uint64_t>(std::max<int64_t>(size - next, 0)), request = std::min<uint64_t>(unit, available);
    if ((w.aborts = request > varn::record_buffer_size)) break;
    read_at(next, request);
    const uint32_t incl = varn::le32_at(buf.data(), 8);
    if (incl > snaplen || incl > 131056) break;
    w.offsets.push_back(next);
    w.spans.emplace_back(reinterpret_cast<const char*>(buf.data()), varn::record_span(incl));
    const int64_t advance = incl < snaplen ? int64_t{incl} + 16 : static_cast<int64_t>(request);
    remaining -= advance;
    next += advance;
  }
  return w;
}

// BYTES on a pipe, as `cat FILE | varn -ifile /dev/stdin` hands them over: the walker opens
// path(), the pipe's /proc/self/fd entry. Up to 16 KiB are written at once; more are written by a
// thread in pieces of uneven sizes, each once the pipe is empty again, so that the reads return
// those pieces (or less) and end anywhere in a record or the read-ahead window.
class pipe_feed {
 public:
  explicit pipe_feed(std::string_view bytes) {
    static const bool sigpipe_ignored = std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;  // a reader may stop early
    int fds[2];
    if (!sigpipe_ignored || ::pipe2(fds, O_CLOEXEC) != 0) return;
    m_read = fds[0];
    auto feed = [bytes, out = fds[1]] {
      static constexpr size_t pieces[] = {1, 40000, 7, 65536, 300, 200000, 24, 131072, 33333, 4096, 70001, 98};
      for (size_t at = 0, k = bytes.size() % std::size(pieces); at < bytes.size(); ++k) {
        const size_t end = at + std::min(pieces[k % std::size(pieces)], bytes.size() - at);
        for (; at < end;) {
          const ssize_t n = ::write(out, bytes.data() + at, end - at);
          if (n <= 0) return (void)::close(out);  // the reader is gone
          at += static_cast<size_t>(n);
        }
        for (int queued = 1; bytes.size() > 16384 && ::ioctl(out, FIONREAD, &queued) == 0 && queued > 0;) {
          pollfd p{out, 0, 0};
          if (::poll(&p, 1, 0) > 0 && (p.revents & POLLERR)) return (void)::close(out);
          std::this_thread::yield();
        }
      }
      ::close(out);
    };
    if (bytes.size() <= 16384) feed();
    else m_writer = std::thread(feed);
  }
  ~pipe_feed() {
    if (m_read >= 0) ::close(m_read);  // a writer still blocked gets EPIPE
    if (m_writer.joinable()) m_writer.join();
  }
  pipe_feed(const pipe_feed&) = delete;
  pipe_feed& operator=(const pipe_feed&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(m_read); }

 private:
  int m_read = -1;
  std::thread m_writer;
};

// W, opened on PATH, against the model: through walk() (the record loop a run uses) or next().
testing::AssertionResult walker_agrees(varn::capture_walker& w, const std::string& path, const walk& model, bool use_walk) {
  if (!w.open(path) || (w.read_header() == varn::walk_status::accepted) != model.accepted)
    return testing::AssertionFailure() << "header accepted " << !model.accepted;
  const bool whole = model.accepted && !model.aborts;
  size_t i = 0;
  bool same = true;
  auto check = [&](uint64_t n, const uint8_t* r) {
    same = same && i < model.spans.size() && n == i + 1 && std::memcmp(r, model.spans[i].data(), model.spans[i].size()) == 0;
    ++i;
  };
  uint64_t frame = 0;
  const uint8_t* record = nullptr;
  if (use_walk && whole)
    w.walk(check);
  else
    while (i < model.spans.size() && same && w.next(frame, record)) check(frame, record);
  if (!same || i != model.spans.size() || (!use_walk && whole && w.next(frame, record)))
    return testing::AssertionFailure() << (use_walk ? "(walk) " : "") << "records differ from frame " << i;
  return testing::AssertionSuccess();
}

// The first COUNT of five walkers with different read windows walk PATH, which holds FILE, and
// STREAMS of three walkers with small read-ahead windows (from FIRST_STREAM on) walk FILE's bytes
// on a pipe, as the plain reader walks FILE: odd ones through walk(), even ones through next().
// The walkers are reused from file to file, as in a list run.
testing::AssertionResult walks_agree(const std::string& path, std::string_view file, size_t count = 5, size_t streams = 3,
                                     size_t first_stream = 0) {
  constexpr size_t small = varn::capture_walker::min_window;
  static varn::capture_walker walkers[5] = {varn::capture_walker(0), varn::capture_walker(small + 4093), varn::capture_walker(300000),
                                            varn::capture_walker(1 << 20), varn::capture_walker()};
  static varn::capture_walker stream_walkers[3] = {varn::capture_walker(0, 0), varn::capture_walker(0, small + 4093),
                                                   varn::capture_walker(0, small + 70001)};
  const walk model = plain_walk(file);
  for (size_t k = 0; k < count; ++k) {
    const testing::AssertionResult agree = walker_agrees(walkers[k], path, model, k % 2 == 1);
    walkers[k].close();
    if (!agree) return testing::AssertionFailure() << "walker " << k << ": " << agree.message();
  }
  for (size_t k = first_stream; k < std::min<size_t>(first_stream + streams, 3); ++k) {
    const pipe_feed feed(file);
    const testing::AssertionResult agree = walker_agrees(stream_walkers[k], feed.path(), model, k % 2 == 1);
    stream_walkers[k].close();
    if (!agree) return testing::AssertionFailure() << "walker " << k << " on a pipe: " << agree.message();
  }
  return testing::AssertionSuccess();
}

TEST(capture_reader_test, shared_and_regression_captures_agree_at_every_cut_or_at_sampled_cuts) {
  const varn_test::temp_dir scratch;
  const std::string dir = varn_test::shared_captures_dir(), path = scratch.file("cut.pcap");
  if (dir.empty()) GTEST_SKIP() << "shared captures not present";
  std::vector<std::filesystem::path> captures;
  for (const std::string& folder : {dir, std::string(VARN_SOURCE_DIR) + "/tests/regress"})
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      if (entry.is_regular_file() && entry.path().extension() != ".md") captures.push_back(entry.path());
  std::sort(captures.begin(), captures.end());
  std::mt19937_64 rng(20240607);
  for (const std::filesystem::path& capture : captures) {
    const bytes content = varn_test::read_file(capture);
    const int64_t size = static_cast<int64_t>(content.size());
    // Every walker around the buffer size, around the headers of a few records and anywhere;
    // small files also at every length, with two file walkers, and on a pipe (one walker) up
    // to 1 KiB.
    std::set<int64_t, std::greater<>> sampled{size, size - 1, 24 + 131072, 24 + 131073}, cuts;
    const std::vector<int64_t> starts = plain_walk(content).offsets;
    for (int i = 0; i < 6 && !starts.empty(); ++i) {
      for (int64_t d : {-1, 0, 1, 8, 11, 12, 15, 16, 17, 60, 97, 98}) sampled.insert(starts[rng() % starts.size()] + d);
      sampled.insert(static_cast<int64_t>(rng() % static_cast<uint64_t>(size + 1)));
    }
    for (int64_t cut = 0; size < 20 * 1024 && cut <= size; ++cut) cuts.insert(cut);
    cuts.insert(sampled.begin(), sampled.end());
    varn_test::write_file(path, content);
    const int fd = ::open(path.c_str(), O_WRONLY);
    for (int64_t cut : cuts)
      if (cut >= 0 && cut <= size) {
        ASSERT_EQ(::ftruncate(fd, cut), 0);
        const bool all = sampled.count(cut) > 0;
        const std::string_view file = std::string_view(content).substr(0, static_cast<size_t>(cut));
        ASSERT_TRUE(walks_agree(path, file, all && size >= 20 * 1024 ? 5 : 2, all ? 3 : cut < 1024, all ? 0 : cut % 2))
            << capture << " cut to " << cut;
      }
    ::close(fd);
  }
}

TEST(capture_reader_test, hand_made_random_and_damaged_captures_agree) {
  // Rejected magic and versions, the header-only file and its stale record, read units that
  // wrap (snaplen + 16 as a 32-bit sum), records of exactly snaplen bytes; each also cut short.
  std::vector<bytes> files;
  for (const char* text : {"header magic=0xd4c3b2a1", "header magic=0xa1b23c4d", "header minor=3", "header major=1",
                           "header major=3 minor=4", "header thiszone=7", "header thiszone=0xffffffff",
                           "header snaplen=0 link=0x86dd0001\nrecord incl=0 orig=1000\nrecord incl=0\nrecord incl=1",
                           "header snaplen=0xfffffff0 sigfigs=0x01020304\nraw random 100", "header snaplen=0xfffffff0 thiszone=40\nraw fill 100 0x71",
                           "header snaplen=0xffffffff link=0x0800aabb\nrecord incl=40 orig=0x11111111\nrandom 40\nrecord incl=70\nrandom 70 seed=9",
                           "header snaplen=60\nrecord\nfill 60 0x31\nrecord\nrandom 60\nrecord incl=60 keep=30\nfill 60 0x33",
                           "header snaplen=200\nrecord\nrandom 150 seed=11\nrecord incl=90 keep=5\nfill 90 0x7a"}) {
    const bytes full = varn_test::capture(text);
    for (size_t cut = 0; cut <= std::min<size_t>(full.size(), 30); ++cut) files.push_back(full.substr(0, full.size() - cut));
  }
  // Random records (ICMP frames of both kinds, random bytes, some exactly snaplen long), every
  // second file damaged: rewritten incl_len fields and words, flipped bits, a new snaplen, a cut.
  std::mt19937_64 rng(77);
  const uint32_t shapes[][3] = {{96, 700000, 96}, {200, 600000, 200}, {1514, 900000, 1514}, {65535, 700000, 1600},
                                {65535, 300000, 70000}, {100000, 1200000, 100000}, {131056, 131096, 131056}, {131070, 131096, 131056}, {262144, 131000, 9000},
                                {0xFFFFFFFF, 5000, 300}, {0xFFFFFFF0, 3000, 300}, {0, 3000, 0}, {1, 3000, 1}, {12, 9000, 12},
                                {81, 20000, 81}, {82, 20000, 82}};  // snaplen, size, largest frame
  for (const auto& [snaplen, size, max_frame] : shapes)
    for (int i = 0; i < 6; ++i) {
      bytes f = varn_test::capture("header snaplen=" + std::to_string(snaplen) + " thiszone=" + std::to_string(rng() % 3 ? 0 : rng() % 64));
      const uint32_t cap = std::min({snaplen, max_frame, uint32_t{131056}});
      std::vector<size_t> starts;
      while (f.size() < size) {
        const uint64_t kind = rng() % 4;
        bytes frame = kind < 2 ? varn_test::capture("record\n" + (kind ? "icmp4 ihl=" + std::to_string(5 + rng() % 11) : "icmp6") +
                                                    "\nrandom " + std::to_string(rng() % 200) + " seed=" + std::to_string(rng() % 999))
                                     .substr(40)
                               : varn_test::seeded_bytes(rng() % (cap + 1), static_cast<uint32_t>(rng()));
        frame.resize(rng() % 16 == 0 ? cap : std::min<size_t>(frame.size(), cap), '\x5a');
        starts.push_back(f.size());
        for (uint64_t v : {rng(), rng() % 1000000, frame.size(), frame.size() + rng() % 100}) varn_test::put_le32(f, static_cast<uint32_t>(v));
        f += frame;
      }
      if (f.size() > 131072 + 24 && snaplen > 131056) f.resize(131072 + 24);  // no abort
      auto put = [&](size_t at, uint64_t v) { f.replace(std::min(at, f.size() - 4), 4, bytes(reinterpret_cast<const char*>(&v), 4)); };
      for (int k = 0; i % 2 == 1 && k < 3; ++k) {
        const uint64_t incl[] = {snaplen, snaplen + 1ULL, rng() % 100, rng()};
        put(starts[rng() % starts.size()] + 8, incl[rng() % 4]);
        put(24 + rng() % (f.size() - 24), rng() % 4096);
        f[24 + rng() % (f.size() - 24)] ^= static_cast<char>(1u << (rng() % 8));
        if (k == 0 && rng() % 3 == 0) put(16, rng() % 2 ? rng() % 4096 : snaplen - 1);
        if (k == 0 && rng() % 3 == 0) f.resize(24 + rng() % (f.size() - 23));
      }
      files.push_back(f);
    }
  const varn_test::temp_dir dir;
  for (const bytes& f : files) {
    varn_test::write_file(dir.file("c.pcap"), f);
    ASSERT_TRUE(walks_agree(dir.file("c.pcap"), f)) << "file " << &f - files.data() << " of " << files.size();
  }
}

// 131072 bytes behind the header are read (the shared captures walk that far); one more aborts,
// from a file and from a pipe.
TEST(capture_reader_death_test, read_request_above_the_buffer_aborts_on_a_file_and_on_a_pipe) {
  const varn_test::temp_dir dir;
  const bytes f = varn_test::capture("header snaplen=200000\nraw random 131073");
  varn_test::write_file(dir.file("big.pcap"), f);
  EXPECT_TRUE(plain_walk(f).aborts && !plain_walk(f.substr(0, f.size() - 1)).aborts);
  ASSERT_TRUE(walks_agree(dir.file("big.pcap"), f));
  for (const bool on_pipe : {false, true})
    EXPECT_DEATH(
        {
          const pipe_feed feed(on_pipe ? std::string_view(f) : std::string_view());
          varn::capture_walker w;
          uint64_t frame;
          const uint8_t* record;
          if (w.open(on_pipe ? feed.path() : dir.file("big.pcap")) && w.read_header() == varn::walk_status::accepted)
            w.next(frame, record);
        },
        "fatal assertion failed in read_capture_file: read_size <= record_buffer_size\n"
        "the capture's snapshot length \\(200000\\) exceeds the 131056 bytes the classic reader takes; -any_format reads it\n");
}

}  // namespace
