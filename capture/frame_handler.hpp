// The per-frame handler: keeps Ethernet IPv4/ICMP and IPv6/ICMPv6 frames, applies the filters
// and the ICMP lists, and writes the report of each selected frame.
#pragma once

#include <cstdint>

#include "capture/frame_context.hpp"

namespace varn {

// Where the ICMP message of a frame lies.
struct icmp_regions {
  bool ipv6 = false;
  uint32_t icmp_offset = 0;         // frame offset of the ICMP header
  uint32_t header_length = 0;       // H: through the end of the ICMP header
  uint32_t payload_length = 0;      // L: captured bytes after H, 0 when none
  uint32_t header_dump_length = 0;  // Hd: H clipped to the captured length
};

// Classifies FRAME (INCL_LEN captured bytes): true for Ethernet IPv4 protocol 1 or Ethernet
// IPv6 next header 58, with the regions filled in. The header fields are read whatever the
// captured length says.
bool locate_icmp(const uint8_t* frame, uint32_t incl_len, icmp_regions& regions) noexcept;

// The rest of handle_frame for a frame whose ethertype and protocol say ICMP or ICMPv6.
bool handle_icmp_frame(uint64_t frame_number, const uint8_t* record, frame_context* ctx);

// The handler the capture reader calls for each record. RECORD points at the record header
// with the frame behind it; at least record_span(incl_len) bytes are readable. Returns whether
// the frame was selected. The test every record takes is inline; ICMP frames go on out of line.
inline bool handle_frame(uint64_t frame_number, const uint8_t* record, frame_context* ctx) {
  if (record == nullptr || ctx == nullptr) return false;
  const uint8_t* frame = record + 16;
  const uint16_t ethertype = static_cast<uint16_t>(frame[12] << 8 | frame[13]);
  if (ethertype == 0x0800) {
    if (frame[23] != 1) return false;  // IPv4 protocol: ICMP
  } else if (ethertype == 0x86DD) {
    if (frame[20] != 58) return false;  // IPv6 next header: ICMPv6
  } else {
    return false;
  }
  return handle_icmp_frame(frame_number, record, ctx);
}

}  // namespace varn
