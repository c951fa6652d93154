#include "capture/capture_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

#include "capture/pcap_format.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_fatal.hpp"

namespace varn {

capture_walker::capture_walker(size_t window)
    : m_window_capacity(std::max(window, size_t{2} * record_buffer_size + 4096)) {}

capture_walker::~capture_walker() { close(); }

void capture_walker::close() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  finish();
}

bool capture_walker::open(const std::string& file_name) {
  close();
  m_fd = ::open(file_name.c_str(), O_RDONLY | O_CLOEXEC);
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
  if (end >= 0) ::lseek(m_fd, 0, SEEK_SET);

  if (!m_record || !m_window) {
    m_record.reset(new (std::nothrow) uint8_t[record_buffer_size]());
    m_window.reset(new (std::nothrow) uint8_t[m_window_capacity]);
    if (!m_record || !m_window) {
      m_record.reset();
      m_window.reset();
      close();
      return walk_status::no_memory;
    }
    m_record_dirty = 0;
  }
  reset_record_buffer();
  m_window_start = 0;
  m_window_length = 0;

  // The header read: a short read is not an error, the check below decides.
  size_t got = 0;
  while (got < pcap_file_header_size) {
    const ssize_t n = ::read(m_fd, m_record.get() + got, pcap_file_header_size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close();
      return walk_status::read_failed;
    }
    if (n == 0) break;
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
  m_remaining = m_size - pcap_file_header_size;
  m_pos = pcap_file_header_size;
  m_frame = 0;
  m_deferred_pos = 0;
  m_deferred_req = 0;
  // The first pass through the loop does not test the remaining count; when it is positive
  // the test would pass anyway.
  m_started = m_remaining > 0;
  m_done = false;
  m_steady = m_size >= 0 && m_unit >= k_header_reach && m_unit <= record_buffer_size;
  return walk_status::accepted;
}

const uint8_t* capture_walker::fetch(int64_t from, int64_t to) {
  const int64_t window_end = m_window_start + static_cast<int64_t>(m_window_length);
  if (from >= m_window_start && to <= window_end) return m_window.get() + (from - m_window_start);
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
  // The loop body runs once before the remaining byte count is first tested.
  if (m_started && m_remaining <= 0) {
    finish();
    return false;
  }
  m_started = true;
  if (m_size < 0) {  // not seekable: the seek to the first record fails
    finish();
    return false;
  }

  const int64_t available = std::max<int64_t>(m_size - m_pos, 0);
  const uint64_t request = m_unit > static_cast<uint64_t>(available) ? static_cast<uint64_t>(available) : m_unit;
  if (request > record_buffer_size) {
    uni::out_stream::flush_all();
    zq::fatal_assertion("read_capture_file", "read_size <= record_buffer_size");
  }
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
  m_remaining -= advance;

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
