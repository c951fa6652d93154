// The capture file reader: checks the pcap file header and walks the records in file order.
//
// Each record is handed over exactly as a 131072-byte record buffer would hold it after a seek
// to the record and a read of snaplen + 16 bytes (less at the end of the file) into the
// buffer's start: record header, frame bytes, and behind them whatever earlier reads left in
// the buffer (zero where nothing was ever read). The file itself is read in large blocks; only
// the bytes a handler may look at are reproduced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "capture/frame_context.hpp"

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

  // WINDOW is the block size read at once (at least 2 x 131072 + 4096 is used).
  explicit capture_walker(size_t window = default_window);
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
  // repeated next() calls. The common case (a full read unit left in the file, the record in the
  // window, incl_len below snaplen) runs inline with the loop's state in locals; everything else
  // takes next(). ON_RECORD must not use the walker.
  template <class OnRecord>
  void walk(OnRecord&& on_record) {
    for (;;) {
      if (m_steady && m_remaining > 0) {
        int64_t pos = m_pos, remaining = m_remaining, last = -1;
        uint64_t frame = m_frame;
        const int64_t last_full_read = m_size - static_cast<int64_t>(m_unit);
        const uint8_t* const window = m_window.get();
        const int64_t window_start = m_window_start;
        const size_t window_length = m_window_length;
        const uint32_t snaplen = m_snaplen;
        while (remaining > 0 && pos <= last_full_read) {
          const size_t offset = static_cast<size_t>(pos - window_start);
          if (offset + k_header_reach > window_length) break;
          const uint8_t* p = window + offset;
          const uint32_t incl_len = static_cast<uint32_t>(p[8]) | static_cast<uint32_t>(p[9]) << 8 |
                                    static_cast<uint32_t>(p[10]) << 16 | static_cast<uint32_t>(p[11]) << 24;
          if (incl_len >= snaplen || offset + 16 + incl_len > window_length) break;
          last = pos;
          const int64_t advance = static_cast<int64_t>(incl_len) + 16;
          remaining -= advance;
          pos += advance;
          on_record(++frame, p);
        }
        if (last >= 0) {
          m_deferred_pos = last;
          m_deferred_req = m_unit;
        }
        m_pos = pos;
        m_remaining = remaining;
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

  void finish() noexcept {
    m_done = true;
    m_steady = false;
  }
  const uint8_t* fetch(int64_t from, int64_t to);
  void reset_record_buffer() noexcept;

  int m_fd = -1;
  int64_t m_size = -1;  // -1: not seekable
  size_t m_window_capacity;
  std::unique_ptr<uint8_t[]> m_window;
  int64_t m_window_start = 0;
  size_t m_window_length = 0;
  std::unique_ptr<uint8_t[]> m_record;  // the emulated record buffer
  size_t m_record_dirty = 0;            // bytes of m_record written since it was last cleared
  uint32_t m_snaplen = 0;
  uint32_t m_unit = 0;                  // snaplen + 16, 32-bit
  int64_t m_pos = 0;
  int64_t m_remaining = 0;
  uint64_t m_frame = 0;
  int64_t m_deferred_pos = 0;           // the last read's bytes [0, m_deferred_req) are not yet
  uint32_t m_deferred_req = 0;          // copied into m_record: they come from the file there
  bool m_started = false;
  bool m_done = true;
  bool m_steady = false;  // seekable, and 98 <= snaplen + 16 <= 131072: the inline path may run
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
