// The metadata record: one line per selected frame under a column header.
#pragma once

#include <cstdint>
#include <string>

#include "capture/frame_context.hpp"

namespace varn {

// Writes, when CTX->dump_meta is set and the format is not binary, the column header (while
// CTX->meta_header_pending, which it clears) and the frame's line: number, UTC date and time,
// proto, addresses, TTL, wire size, payload size, payload MD5, comments. RECORD is the record
// buffer (record header first), FRAME = RECORD + 16. True when a line was written.
bool write_metadata_record(uint64_t frame_number, const uint8_t* record, const uint8_t* frame,
                           const uint8_t* payload, uint32_t payload_length, frame_context* ctx);

// The column header for the given layout flags, its line end and the empty line included.
std::string metadata_column_header(bool comma_separated, bool padded);

}  // namespace varn
