// The metadata record: one line per selected frame under a column header.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "capture/frame_context.hpp"
#include "capture/icmp_frame.hpp"
#include "zq/zq_md5_lanes.hpp"

namespace varn {

// Writes, when CTX->dump_meta is set and the format is not binary, the column header (while
// CTX->meta_header_pending, which it clears) and the line of F: number, UTC date and time,
// proto, addresses, TTL, wire size, payload size, payload MD5, comments. True when a line was
// written (or, with CTX->deferred_lines set, queued there).
bool write_metadata_record(const icmp_frame& f, frame_context* ctx);

// The column header for the given layout flags, its line end and the empty line included.
std::string metadata_column_header(bool comma_separated, bool padded);

// Lines whose digests are computed many at a time. A run that writes nothing but metadata
// lines points its context's deferred_lines at one: each line is queued with a copy of its
// payload and written, completed, when the batch is full or flushed. The caller flushes before
// anything else is written to the same stream (at the end of every input file).
class metadata_batch {
 public:
  // Lines go to CTX.out, laid out as CTX says.
  explicit metadata_batch(const frame_context& ctx);
  ~metadata_batch();  // flushes
  metadata_batch(const metadata_batch&) = delete;
  metadata_batch& operator=(const metadata_batch&) = delete;

  // Queues a line: HEAD (frame number through the payload size and the separator after it),
  // COMMENTS, and the payload whose digest and randomness test complete it.
  void add(std::string_view head, std::string_view comments, const uint8_t* payload, uint32_t payload_length);
  // Completes and writes every queued line, in the order queued.
  void flush();

 private:
  static constexpr size_t k_lines = 256;
  static constexpr size_t k_payload_bytes = 512 * 1024;
  struct queued {
    size_t text_at;
    size_t head_length;
    size_t comments_length;
    size_t payload_at;
    uint32_t payload_length;
  };
  uni::out_stream* m_out;
  const frame_context* m_ctx;
  std::vector<queued> m_lines;
  std::string m_texts;
  std::vector<uint8_t> m_payloads;
  std::vector<zq::md5_job> m_jobs;
};

}  // namespace varn
