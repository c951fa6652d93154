// Locating the ICMP message of a frame of any link type read: the link layer, then IP.
#pragma once

#include <cstdint>

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

}  // namespace varn
