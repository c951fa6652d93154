// Header and payload dumps of a selected frame: hex view, ascii text, raw bytes or strings.
#pragma once

#include <cstdint>

#include "capture/frame_context.hpp"

namespace uni {
class out_stream;
}

namespace varn {

// Regions larger than this are not rendered as a hex view.
constexpr uint32_t hex_dump_limit = 0x1000000;

// Writes the hex view of DATA[START_INDEX, LENGTH) to OUT, the first line's offset being
// DISPLAY_BASE. Above hex_dump_limit bytes it writes "size to big to output: size 0x<length>"
// and a line end instead.
void write_hex_dump(const uint8_t* data, uint32_t length, uni::out_stream& out, uint32_t start_index,
                    uint64_t display_base);

// Writes the dumps CTX asks for in its output format. HEADER/HEADER_LENGTH is the frame from its
// first byte through the ICMP header, clipped to the captured bytes; PAYLOAD/PAYLOAD_LENGTH the
// ICMP payload. Hex and binary show both regions as asked; ascii and strings show one region,
// the payload when asked for, else the header.
void write_frame_dumps(const frame_context& ctx, const uint8_t* header, uint32_t header_length,
                       const uint8_t* payload, uint32_t payload_length);

}  // namespace varn
