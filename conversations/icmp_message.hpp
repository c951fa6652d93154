// The facts of one ICMP or ICMPv6 message that the conversation analysis works from: who sent it
// to whom, its kind, identifier and sequence number, and its payload as the IP header declares
// it (not as the captured frame happens to end: Ethernet pads short frames, and snapshot
// lengths cut long ones).
#pragma once

#include <cstdint>

#include "capture/icmp_frame.hpp"

namespace varn::conversations {

// How a message takes part in an echo-style exchange (ICMP 8/0, 13/14, 15/16, 17/18; ICMPv6
// 128/129), or not at all.
enum class echo_role : uint8_t { none, request, reply };

// Where an IPv4 or IPv6 datagram stands among its fragments.
enum class fragment_place : uint8_t {
  whole,  // not fragmented
  first,  // offset 0, more to come: the ICMP header is here, the payload continues elsewhere
  later,  // offset above 0: no ICMP header at all, only payload bytes
};

struct icmp_message {
  bool ipv6 = false;
  const uint8_t* source = nullptr;       // 4 or 16 bytes in the frame
  const uint8_t* destination = nullptr;
  uint8_t type = 0;
  uint8_t code = 0;
  uint16_t identifier = 0;
  uint16_t sequence = 0;
  echo_role role = echo_role::none;
  uint8_t echo_kind = 0;  // the request's type for echo-style messages (8, 13, 15, 17, 128)
  fragment_place fragment = fragment_place::whole;
  uint16_t ip_identification = 0;  // IPv4 datagram id (fragments of one datagram share it)
  const uint8_t* payload = nullptr;
  uint32_t captured = 0;  // payload bytes present in the capture
  uint32_t length = 0;    // payload bytes the datagram declares (at least captured... unless the
                          // header lies; never above what the IP length allows)
  int64_t time_ns = 0;    // capture time, nanoseconds since 1970
  bool time_in_ns = false;  // the capture gave it in nanoseconds (else microseconds)

  uint32_t address_length() const noexcept { return ipv6 ? 16 : 4; }
  bool truncated() const noexcept { return captured < length; }
};

// Reads M from F. False when F cannot be read as an ICMP message (its IP header is cut off by
// the capture); a later fragment reads as fragment_place::later with no ICMP fields.
bool read_icmp_message(const icmp_frame& f, icmp_message& m) noexcept;

// The echo role and request type of ICMP (IPV6 false) or ICMPv6 type TYPE.
echo_role role_of(bool ipv6, uint8_t type, uint8_t& request_type) noexcept;

}  // namespace varn::conversations
