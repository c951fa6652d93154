// The per-frame handler: keeps Ethernet IPv4/ICMP and IPv6/ICMPv6 frames, applies the filters
// and the ICMP lists, and writes the report of each selected frame.
#pragma once

#include <cstdint>

#include "capture/frame_context.hpp"
#include "capture/icmp_frame.hpp"

namespace varn {

// Classifies the Ethernet II frame at FRAME (INCL_LEN captured bytes): true for IPv4 protocol 1
// or IPv6 next header 58, with the layer offsets and the regions of F filled in (the other
// fields are left alone). The header fields are read whatever the captured length says.
bool locate_icmp(const uint8_t* frame, uint32_t incl_len, icmp_frame& f) noexcept;

// Runs the filters and the ICMP type, code and identifier lists over F and, when it passes,
// reports it: to CTX->writer when one is set, else as the metadata line and the dumps. Returns
// whether the frame was selected.
bool report_icmp_frame(const icmp_frame& f, frame_context* ctx);

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
