// icmp_frame: one captured frame whose ICMP or ICMPv6 message has been located. The filters,
// the report writers and the analyses read a frame only through it, whatever the capture's
// format and link layer.
#pragma once

#include <cstdint>

#include "capture/frame_layout.hpp"
#include "zq/zq_time.hpp"

namespace varn {

struct icmp_frame {
  uint64_t number = 0;             // 1-based position in its capture file
  const uint8_t* frame = nullptr;  // first byte of the link-layer header
  uint32_t cap_len = 0;            // captured bytes (incl_len)
  uint32_t wire_len = 0;           // bytes on the wire (orig_len)

  // Capture time: seconds since 1970-01-01 UTC and the fraction of the second in units of
  // 10^-ts_digits, both as the capture wrote them (a damaged file may hold a fraction of more
  // than one second).
  uint64_t ts_sec = 0;
  uint64_t ts_frac = 0;
  uint8_t ts_digits = 6;  // 6: microseconds, 9: nanoseconds

  uint32_t link_type = 1;   // link-layer header type of the capture (1: Ethernet)
  uint32_t ip_offset = 14;  // first byte of the IP header
  bool ipv6 = false;
  uint32_t icmp_offset = 0;         // first byte of the ICMP header
  uint32_t header_length = 0;       // H: the link layer through the ICMP header
  uint32_t payload_length = 0;      // L: captured bytes after H, 0 when none
  uint32_t header_dump_length = 0;  // Hd: H clipped to the captured length
  const uint8_t* payload = nullptr; // frame + H

  const uint8_t* ip() const noexcept { return frame + ip_offset; }
  const uint8_t* icmp() const noexcept { return frame + icmp_offset; }
  const uint8_t* source() const noexcept { return ip() + (ipv6 ? 8 : 12); }
  const uint8_t* destination() const noexcept { return ip() + (ipv6 ? 24 : 16); }
  uint32_t address_length() const noexcept { return ipv6 ? 16 : 4; }
  uint8_t ttl() const noexcept { return ip()[ipv6 ? 7 : 8]; }
  // The IPv4 protocol or the IPv6 next header byte of the fixed IP header.
  uint8_t ip_protocol() const noexcept { return ip()[ipv6 ? 6 : 9]; }
  uint8_t type() const noexcept { return icmp()[icmp_type]; }
  uint8_t code() const noexcept { return icmp()[icmp_code]; }
  uint16_t identifier() const noexcept { return be16_at(icmp(), icmp_identifier); }
  uint16_t sequence() const noexcept { return be16_at(icmp(), icmp_identifier + 2); }

  // The capture time as the time filters compare it: 0 when ts_sec is 0.
  zq::time_value time_value() const noexcept {
    if (ts_sec == 0) return 0;
    const uint64_t ticks = ts_digits == 9 ? ts_frac / 100 : ts_frac * 10;
    return ts_sec * zq::k_ticks_per_second + zq::k_unix_epoch_offset + ticks;
  }
  // Seconds and microseconds as the text report's date and time take them: seconds beyond 32
  // bits become a value the text leaves blank, like every value with its top bit set.
  uint32_t text_seconds() const noexcept {
    return ts_sec > 0xffffffffu ? 0x80000000u : static_cast<uint32_t>(ts_sec);
  }
  uint32_t text_microseconds() const noexcept {
    const uint64_t us = ts_digits == 9 ? ts_frac / 1000 : ts_frac;
    return us > 0xffffffffu ? 0xffffffffu : static_cast<uint32_t>(us);
  }
};

// Sets the regions of F from its ICMP offset and captured length: H = icmp_offset + 8,
// L = cap_len - H (0 when negative, as a signed 32-bit difference), Hd = min(H, cap_len).
inline void set_icmp_regions(icmp_frame& f) noexcept {
  f.header_length = f.icmp_offset + icmp_header_size;
  const int32_t rest = static_cast<int32_t>(f.cap_len - f.header_length);
  f.payload_length = rest > 0 ? static_cast<uint32_t>(rest) : 0;
  f.header_dump_length = f.header_length < f.cap_len ? f.header_length : f.cap_len;
  f.payload = f.frame + f.header_length;
}

}  // namespace varn
