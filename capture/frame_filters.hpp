// The selection filters a frame must pass before the ICMP lists and the report.
#pragma once

#include <cstdint>
#include <vector>

#include "capture/frame_context.hpp"

namespace varn {

// Applies, in order: Ethernet IPv4/IPv6, minimum wire size, frame numbers, time window,
// addresses (with -track_replies either way round), ports, byte pattern over the captured
// frame. RECORD is the record buffer, FRAME = RECORD + 16, PAYLOAD/PAYLOAD_LENGTH the ICMP
// payload. True when the frame passes.
bool frame_passes_filters(uint64_t frame_number, const uint8_t* record, const uint8_t* frame,
                          const uint8_t* payload, uint32_t payload_length, const frame_context* ctx);

// The IPv6 address filter test of VALUE against the 16 address bytes at ADDRESS. A 16-byte
// value compares all bytes; a shorter even-length value (a "::" text whose reader kept only the
// written groups) matches when one run of zero groups inserted somewhere gives the address;
// other lengths match nothing.
bool ipv6_filter_matches(const std::vector<uint8_t>& value, const uint8_t* address) noexcept;

}  // namespace varn
