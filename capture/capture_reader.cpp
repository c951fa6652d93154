#include "capture/capture_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>

#include "capture/input_source.hpp"
#include "capture/pcap_format.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_fatal.hpp"

namespace varn {

namespace {

// A read request larger than the record buffer ends the process, as the buffer's bounds check
// does; the message tells the analyst why and how to read the capture anyway.
[[noreturn]] __attribute__((noinline, cold)) void read_above_buffer(uint32_t snaplen) {
  static char note[160];
  std::snprintf(note, sizeof note,
                "the capture's snapshot length (%u) exceeds the %u bytes the classic reader takes; "
                "-any_format reads it",
                snaplen, max_frame_in_buffer);
  uni::out_stream::flush_all();
  zq::fatal_assertion("read_capture_file", "read_size <= record_buffer_size", note);
}

}  // namespace

capture_walker::capture_walker(size_t window, size_t stream_window)
    : m_file_window(std::max(window, min_window)), m_stream_window(std::max(stream_window, min_window)) {}

capture_walker::~capture_walker() { close(); }

void capture_walker::close() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  finish();
}

bool capture_walker::open(const std::string& file_name) {
  close();
  m_fd = open_capture_input(file_name);
  return m_fd >= 0;
}

void capture_walker::reset_record_buffer() noexcept {
  std::memset(m_record.get(), 0, m_record_dirty);
  m_record_dirty = 0;
}

walk_status capture_walker::read_header() {
  if (m_fd < 0) return walk_status::open_failed;
  const off_t end = ::lseek(m_fd, 0, SEEK_END);
  m_size = end;
  m_stream = end < 0;
  if (!m_stream) ::lseek(m_fd, 0, SEEK_SET);

  m_window_capacity = m_stream ? m_stream_window : m_file_window;
  if (!m_record) {
    m_record.reset(new (std::nothrow) uint8_t[record_buffer_size]());
    m_record_dirty = 0;
  }
  if (m_window_allocated < m_window_capacity) {
    m_window.reset(new (std::nothrow) uint8_t[m_window_capacity]);
    m_window_allocated = m_window ? m_window_capacity : 0;
  }
  if (!m_record || !m_window) {
    close();
    return walk_status::no_memory;
  }
  reset_record_buffer();
  m_window_start = pcap_file_header_size;
  m_window_length = 0;

  // The header read: a short read is not an error, the check below decides.
  size_t got = 0;
  while (got < pcap_file_header_size) {
    const ssize_t n = read_some(m_fd, m_record.get() + got, pcap_file_header_size - got);
    if (n < 0) {
      close();
      return walk_status::read_failed;
    }
    if (n == 0) {
      if (m_stream) m_size = static_cast<int64_t>(got);  // a stream that ends inside its header
      break;
    }
    got += static_cast<size_t>(n);
  }
  m_record_dirty = got;

  const uint8_t* h = m_record.get();
  if (le32_at(h, 0) != pcap_magic || le16_at(h, 4) != pcap_version_major ||
      le16_at(h, 6) != pcap_version_minor) {
    close();
    return walk_status::rejected;
  }
  m_snaplen = le32_at(h, pcap_snaplen_offset);
  m_unit = m_snaplen + pcap_record_header_size;  // wraps for snaplen near 2^32, as a 32-bit sum
  m_pos = pcap_file_header_size;
  m_frame = 0;
  m_deferred_pos = 0;
  m_deferred_req = 0;
  m_started = false;  // the loop body runs once before the remaining byte count is first tested
  m_done = false;
  m_steady = m_unit >= k_header_reach && m_unit <= record_buffer_size;
  return walk_status::accepted;
}

// Stream input: drops the window's bytes before FROM (FROM is never before the window) and reads
// on until the window holds the input up to TO or the input has ended (m_size is then set).
// False on a read error. TO - FROM must not exceed the window's capacity.
bool capture_walker::fill_stream(int64_t from, int64_t to) {
  const int64_t window_end = m_window_start + static_cast<int64_t>(m_window_length);
  if (to <= window_end || m_size >= 0) return true;
  from = std::max(from, m_window_start);
  uint8_t* const window = m_window.get();
  if (from >= window_end) {  // nothing kept: skip to FROM
    m_window_start = window_end;
    m_window_length = 0;
    while (m_window_start < from) {
      const ssize_t n = read_some(m_fd, window, static_cast<size_t>(std::min<int64_t>(from - m_window_start,
                                                                                      static_cast<int64_t>(m_window_capacity))));
      if (n < 0) return false;
      if (n == 0) {
        m_size = m_window_start;
        return true;
      }
      m_window_start += n;
    }
    m_window_start = from;
  } else if (const int64_t room = m_window_start + static_cast<int64_t>(m_window_capacity) - window_end;
             room < to - window_end || room < static_cast<int64_t>(m_window_capacity / 4)) {
    // Too little room left behind the window's bytes: slide the kept ones down.
    const size_t keep = static_cast<size_t>(window_end - from);
    std::memmove(window, window + (from - m_window_start), keep);
    m_window_start = from;
    m_window_length = keep;
  }
  while (m_window_start + static_cast<int64_t>(m_window_length) < to) {
    const ssize_t n = read_some(m_fd, window + m_window_length, m_window_capacity - m_window_length);
    if (n < 0) return false;
    if (n == 0) {
      m_size = m_window_start + static_cast<int64_t>(m_window_length);
      return true;
    }
    m_window_length += static_cast<size_t>(n);
  }
  return true;
}

const uint8_t* capture_walker::fetch(int64_t from, int64_t to) {
  const int64_t window_end = m_window_start + static_cast<int64_t>(m_window_length);
  if (from >= m_window_start && to <= window_end) return m_window.get() + (from - m_window_start);
  if (m_stream) {
    if (from < m_window_start || !fill_stream(from, to) || to > m_window_start + static_cast<int64_t>(m_window_length))
      return nullptr;
    return m_window.get() + (from - m_window_start);
  }
  size_t keep = 0;
  if (from >= m_window_start && from < window_end) {
    keep = static_cast<size_t>(window_end - from);
    std::memmove(m_window.get(), m_window.get() + (from - m_window_start), keep);
  }
  m_window_start = from;
  m_window_length = keep;
  const int64_t want_end = std::min(m_size, from + static_cast<int64_t>(m_window_capacity));
  while (m_window_start + static_cast<int64_t>(m_window_length) < want_end) {
    const int64_t at = m_window_start + static_cast<int64_t>(m_window_length);
    const ssize_t n = ::pread(m_fd, m_window.get() + m_window_length, static_cast<size_t>(want_end - at), at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    m_window_length += static_cast<size_t>(n);
  }
  if (to > m_window_start + static_cast<int64_t>(m_window_length)) return nullptr;
  return m_window.get();
}

bool capture_walker::next(uint64_t& frame_number, const uint8_t*& record) {
  if (m_done) return false;
  // A stream is read ahead as far as this read request reaches (and by one byte at least, to
  // tell whether it goes on), or until it ends.
  const int64_t lookahead = std::clamp<int64_t>(m_unit, 1, int64_t{record_buffer_size} + 1);
  if (m_size < 0 && !fill_stream(keep_from(), m_pos + lookahead)) {
    finish();
    return false;
  }
  // The loop body runs once before the remaining byte count (the input's size less the next
  // record's offset) is first tested.
  if (m_started && m_size >= 0 && m_size - m_pos <= 0) {
    finish();
    return false;
  }
  m_started = true;

  // Past the read-ahead of a stream that goes on, at least LOOKAHEAD bytes are available.
  const int64_t available = m_size >= 0 ? std::max<int64_t>(m_size - m_pos, 0) : lookahead;
  const uint64_t request = m_unit > static_cast<uint64_t>(available) ? static_cast<uint64_t>(available) : m_unit;
  if (request > record_buffer_size) read_above_buffer(m_snaplen);
  const uint32_t req = static_cast<uint32_t>(request);

  // Bytes [req, deferred) of the previous read outlive this read: move them into the buffer.
  const uint8_t* cur = nullptr;
  if (req < m_deferred_req) {
    const int64_t lo = std::min(m_deferred_pos + req, m_pos);
    const int64_t hi = std::max(m_deferred_pos + m_deferred_req, m_pos + static_cast<int64_t>(req));
    const uint8_t* base = fetch(lo, hi);
    if (base == nullptr) {
      finish();
      return false;
    }
    std::memcpy(m_record.get() + req, base + (m_deferred_pos + req - lo), m_deferred_req - req);
    m_record_dirty = std::max<size_t>(m_record_dirty, m_deferred_req);
    cur = base + (m_pos - lo);
  } else if (req > 0) {
    // Only the bytes a handler may look at need to be in memory: the record header and the
    // frame's first bytes now, the rest of the frame once incl_len is known.
    cur = fetch(m_pos, m_pos + std::min(req, record_span(0)));
    if (cur == nullptr) {  // a read error ends the walk
      finish();
      return false;
    }
  }
  m_deferred_pos = m_pos;
  m_deferred_req = req;

  uint32_t incl_len;
  if (req >= rec_incl_len + 4) {
    incl_len = le32_at(cur, rec_incl_len);
  } else {
    uint8_t b[4];
    for (uint32_t j = 0; j < 4; ++j) {
      const uint32_t at = rec_incl_len + j;
      b[j] = at < req ? cur[at] : m_record[at];
    }
    incl_len = le32_at(b, 0);
  }
  // incl_len above snaplen ends the file silently; so does a frame too large for the buffer.
  if (incl_len > m_snaplen || incl_len > max_frame_in_buffer) {
    finish();
    return false;
  }
  const int64_t advance = incl_len < m_snaplen ? static_cast<int64_t>(incl_len) + pcap_record_header_size
                                                : static_cast<int64_t>(req);
  ++m_frame;

  const uint32_t span = record_span(incl_len);
  if (span > record_span(0) && req > record_span(0)) {
    cur = fetch(m_pos, m_pos + std::min(req, span));
    if (cur == nullptr) {
      finish();
      return false;
    }
  }
  if (req >= span) {
    record = cur;  // everything the handler may read came from this read
  } else {
    // The handler may read past this read: hand over the buffer as the reads left it.
    if (req > 0) std::memcpy(m_record.get(), cur, req);
    m_record_dirty = std::max<size_t>(m_record_dirty, req);
    m_deferred_req = 0;
    record = m_record.get();
  }
  frame_number = m_frame;
  m_pos += advance;
  return true;
}

walk_status start_capture_file(const std::string& file_name, capture_walker& walker, uni::out_stream* console) {
  if (!walker.open(file_name)) {
    if (console != nullptr) {
      console->write("prob opening ");
      console->write(file_name);
      console->write(" for read\n");
    }
    return walk_status::open_failed;
  }
  if (console != nullptr) {
    console->write("Processing file: ");
    console->write(file_name);
    console->put('\n');
  }
  const walk_status status = walker.read_header();
  if (status == walk_status::rejected && console != nullptr) console->write("invalid pcap file, aborting\n");
  return status;
}

bool read_capture_file(const std::string& file_name, frame_handler handler, frame_context* ctx,
                       uni::out_stream& console, capture_walker* walker) {
  capture_walker own(walker == nullptr ? capture_walker::default_window : 0);
  return read_capture_file_with(file_name, handler, ctx, console, walker == nullptr ? own : *walker);
}

}  // namespace varn
