// The selection filters a frame must pass before the ICMP lists and the report.
#pragma once

#include <cstdint>
#include <vector>

#include "capture/frame_context.hpp"
#include "capture/icmp_frame.hpp"

namespace varn {

// Applies, in order: minimum wire size, frame numbers, time window, addresses (with
// -track_replies either way round), ports, byte pattern over the captured frame (from its
// first link-layer byte). True when the frame passes.
bool frame_passes_filters(const icmp_frame& f, const frame_context* ctx);

// The IPv6 address filter test of VALUE against the 16 address bytes at ADDRESS. A 16-byte
// value compares all bytes; a shorter even-length value (a "::" text whose reader kept only the
// written groups) matches when one run of zero groups inserted somewhere gives the address;
// other lengths match nothing.
bool ipv6_filter_matches(const std::vector<uint8_t>& value, const uint8_t* address) noexcept;

}  // namespace varn
