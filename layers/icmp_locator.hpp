// Locating the ICMP message of a frame of any link type read: the link layer, then IP.
#pragma once

#include <cstdint>

#include "capture/frame_layout.hpp"
#include "capture/icmp_frame.hpp"

namespace varn {

enum class frame_verdict : uint8_t {
  icmp,       // an ICMP or ICMPv6 message, located
  not_icmp,   // something else: not reported, not counted
  truncated,  // too short for its headers: skipped and counted
};

// Looks for the ICMP (IPv4) or ICMPv6 (IPv6) message in the frame at FRAME (CAP_LEN captured
// bytes) of link type LINK_TYPE, which must be one link_type_is_read() accepts. On icmp, fills
// F's frame, cap_len, link_type, ip_offset, ipv6, icmp_offset and regions (set_icmp_regions);
// then the fixed IP header and the 8-byte ICMP header lie within the captured bytes. Nothing at
// or past CAP_LEN is read. F's other fields are left alone.
frame_verdict locate_icmp_message(uint32_t link_type, const uint8_t* frame, uint32_t cap_len, icmp_frame& f) noexcept;

// The test every frame takes first, inline: false when FRAME surely holds no ICMP message and is
// long enough to tell (an Ethernet frame of another ethertype, or whose IPv4 protocol or IPv6 next
// header rules ICMP out), which is what locate_icmp_message would find too; true otherwise.
inline bool may_hold_icmp(uint32_t link_type, const uint8_t* frame, uint32_t cap_len) noexcept {
  if (link_type != 1 || cap_len < 24) return true;
  const uint16_t type = be16_at(frame, 12);
  if (type == 0x0800) return frame[23] == 1;
  if (type == 0x86DD) {
    const uint8_t next = frame[20];  // ICMPv6, or an extension header walked on the way to it
    return next == 58 || next == 0 || next == 43 || next == 44 || next == 60;
  }
  return type == 0x8100 || type == 0x88A8 || type == 0x9100;  // tags
}

}  // namespace varn
