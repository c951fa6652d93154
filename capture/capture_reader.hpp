// The capture file reader: checks the pcap file header and walks the records in file order.
//
// Each record is handed over exactly as a 131072-byte record buffer would hold it after a seek
// to the record and a read of snaplen + 16 bytes (less at the end of the file) into the
// buffer's start: record header, frame bytes, and behind them whatever earlier reads left in
// the buffer (zero where nothing was ever read). The file itself is read in large blocks; only
// the bytes a handler may look at are reproduced.
//
// An input that cannot seek (a pipe, a FIFO, /dev/stdin) is read forward once, through the same
// window: the walker keeps the last record and reads ahead as far as the next read request
// reaches (at most 131073 bytes past the record, enough to tell whether that request would
// exceed the buffer), so that a stream gives exactly the records of the same bytes in a file,
// in bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "capture/frame_context.hpp"
#include "capture/pcap_format.hpp"

namespace uni {
class out_stream;
}

namespace varn {

// Called once per record with the 1-based frame number, the record (record header, then the
// frame; record_span(incl_len) bytes readable) and the run's context. The result is ignored.
using frame_handler = bool (*)(uint64_t frame_number, const uint8_t* record, frame_context* ctx);

enum class walk_status {
  accepted,      // header read and accepted: records follow
  open_failed,   // the file could not be opened
  read_failed,   // the header read reported an error
  rejected,      // not a little-endian microsecond pcap 2.4 file
  no_memory,     // the buffers could not be allocated
};

class capture_walker {
 public:
  static constexpr size_t default_window = 384u << 10;
  static constexpr size_t default_stream_window = 2u << 20;
  static constexpr size_t min_window = 2 * record_buffer_size + 4096;

  // WINDOW is the block size read at once from a file, STREAM_WINDOW the read-ahead buffer of a
  // stream (both at least MIN_WINDOW).
  explicit capture_walker(size_t window = default_window, size_t stream_window = default_stream_window);
  ~capture_walker();
  capture_walker(const capture_walker&) = delete;
  capture_walker& operator=(const capture_walker&) = delete;

  // Opens FILE_NAME read-only; false when it cannot be opened.
  bool open(const std::string& file_name);
  // Reads and checks the file header of the opened file.
  walk_status read_header();
  // The next record: false when the walk has ended (end of file, a record whose incl_len
  // exceeds snaplen or 131056, or a read error). A read request above 131072 bytes, which the
  // record buffer cannot take, ends the process through a fatal assertion.
  bool next(uint64_t& frame_number, const uint8_t*& record);

  // Calls ON_RECORD(frame_number, record) for every remaining record: the same records as
  // repeated next() calls. The common case (a full read unit left in the input, the record in the
  // window, incl_len below snaplen) runs inline with the loop's state in locals; everything else
  // takes next(). ON_RECORD must not use the walker.
  template <class OnRecord>
  void walk(OnRecord&& on_record) {
    for (;;) {
      if (m_steady && m_size < 0) {
        walk_stream_inline(on_record);
      } else if (m_steady && m_pos < m_size) {
        int64_t pos = m_pos, last = -1;
        uint64_t frame = m_frame;
        const int64_t last_full_read = m_size - static_cast<int64_t>(m_unit);
        const uint8_t* const window = m_window.get();
        const int64_t window_start = m_window_start;
        const size_t window_length = m_window_length;
        const uint32_t snaplen = m_snaplen;
        while (pos <= last_full_read) {
          const size_t offset = static_cast<size_t>(pos - window_start);
          if (offset + k_header_reach > window_length) break;
          const uint8_t* p = window + offset;
          const uint32_t incl_len = static_cast<uint32_t>(p[8]) | static_cast<uint32_t>(p[9]) << 8 |
                                    static_cast<uint32_t>(p[10]) << 16 | static_cast<uint32_t>(p[11]) << 24;
          if (incl_len >= snaplen || offset + 16 + incl_len > window_length) break;
          last = pos;
          pos += static_cast<int64_t>(incl_len) + 16;
          on_record(++frame, p);
        }
        if (last >= 0) defer_full_read(last);
        m_pos = pos;
        m_frame = frame;
      }
      uint64_t frame_number;
      const uint8_t* record;
      if (!next(frame_number, record)) return;
      on_record(frame_number, record);
    }
  }
  // Closes the file; the buffers are kept for the next file.
  void close() noexcept;

  uint32_t snaplen() const noexcept { return m_snaplen; }
  // Records handed out so far in this file.
  uint64_t frames_read() const noexcept { return m_frame; }

 private:
  // Record header plus the furthest frame byte a handler reads on a short frame.
  static constexpr size_t k_header_reach = 16 + 82;

  // The inline record loop on a stream whose end has not been reached yet: the records whose
  // full read unit is in the window, refilling the window as it empties. Returns at the first
  // record it leaves to next(), at the end of the stream, or after a read error.
  template <class OnRecord>
  void walk_stream_inline(OnRecord& on_record) {
    const uint32_t unit = m_unit, snaplen = m_snaplen;
    for (;;) {
      int64_t pos = m_pos, last = -1;
      uint64_t frame = m_frame;
      const uint8_t* const window = m_window.get();
      const int64_t window_start = m_window_start;
      const size_t window_length = m_window_length;
      bool to_next = false;
      for (;;) {
        const size_t offset = static_cast<size_t>(pos - window_start);
        if (offset + unit > window_length) break;
        const uint8_t* p = window + offset;
        const uint32_t incl_len = static_cast<uint32_t>(p[8]) | static_cast<uint32_t>(p[9]) << 8 |
                                  static_cast<uint32_t>(p[10]) << 16 | static_cast<uint32_t>(p[11]) << 24;
        if (incl_len >= snaplen) {
          to_next = true;
          break;
        }
        last = pos;
        pos += static_cast<int64_t>(incl_len) + 16;
        on_record(++frame, p);
      }
      if (last >= 0) defer_full_read(last);
      m_pos = pos;
      m_frame = frame;
      if (to_next) return;
      if (!fill_stream(keep_from(), m_pos + unit)) {
        finish();
        return;
      }
      if (m_size >= 0) return;
    }
  }

  void finish() noexcept {
    m_done = true;
    m_steady = false;
  }
  // The record at POS was read with a full read unit, whose bytes stay in the input.
  void defer_full_read(int64_t pos) noexcept {
    m_deferred_pos = pos;
    m_deferred_req = m_unit;
    m_started = true;
  }
  // The first input offset whose bytes may still be needed.
  int64_t keep_from() const noexcept { return m_deferred_req > 0 ? m_deferred_pos : m_pos; }
  const uint8_t* fetch(int64_t from, int64_t to);
  bool fill_stream(int64_t from, int64_t to);
  void reset_record_buffer() noexcept;

  int m_fd = -1;
  int64_t m_size = -1;    // input size; -1 while a stream's end has not been reached
  bool m_stream = false;  // the input cannot seek: it is read forward once
  size_t m_file_window;
  size_t m_stream_window;
  size_t m_window_capacity = 0;  // the part of m_window in use for this input
  size_t m_window_allocated = 0;
  std::unique_ptr<uint8_t[]> m_window;
  int64_t m_window_start = 0;
  size_t m_window_length = 0;
  std::unique_ptr<uint8_t[]> m_record;  // the emulated record buffer
  size_t m_record_dirty = 0;            // bytes of m_record written since it was last cleared
  uint32_t m_snaplen = 0;
  uint32_t m_unit = 0;                  // snaplen + 16, 32-bit
  int64_t m_pos = 0;                    // offset of the next record
  uint64_t m_frame = 0;
  int64_t m_deferred_pos = 0;           // the last read's bytes [0, m_deferred_req) are not yet
  uint32_t m_deferred_req = 0;          // copied into m_record: they come from the input there
  bool m_started = false;               // the loop body has run once
  bool m_done = true;
  bool m_steady = false;  // 98 <= snaplen + 16 <= 131072: the inline loops may run
};

// Reads one capture file: writes "Processing file: NAME" (or "prob opening NAME for read") to
// CONSOLE, checks the header ("invalid pcap file, aborting" when rejected) and calls HANDLER for
// every record. True when the header was read and accepted. WALKER, when given, lends its
// buffers.
bool read_capture_file(const std::string& file_name, frame_handler handler, frame_context* ctx,
                       uni::out_stream& console, capture_walker* walker = nullptr);

// Opens FILE_NAME with WALKER and checks its header, writing the reader's messages to CONSOLE
// (none when CONSOLE is null): walk_status::accepted when records follow.
walk_status start_capture_file(const std::string& file_name, capture_walker& walker, uni::out_stream* console);

// read_capture_file with a handler the compiler can see (a lambda), so that it can be inlined
// into the record loop.
template <class Handler>
bool read_capture_file_with(const std::string& file_name, Handler&& handler, frame_context* ctx,
                            uni::out_stream& console, capture_walker& walker) {
  if (start_capture_file(file_name, walker, &console) != walk_status::accepted) return false;
  walker.walk([&](uint64_t frame_number, const uint8_t* record) { handler(frame_number, record, ctx); });
  walker.close();
  return true;
}

}  // namespace varn
