// Known tunnel formats recognised at the start of an echo payload: the published headers of the
// ICMP tunnel programs, and whole IP packets carried as payload.
#pragma once

#include <cstdint>

namespace varn::conversations {

enum class tunnel_signature : uint8_t {
  none,
  ptunnel,      // magic d5 20 08 80, then ptunnel's 28-byte header
  ptunnel_ng,   // magic de ad c0 de, or any magic before a consistent 28-byte ptunnel header
  hans,         // "hanc" (client) or "hans" (server), then a type byte
  icmptunnel,   // "TUNL", then a type byte
  ip_packet,    // an IPv4 packet with a valid header checksum, or an IPv6 packet, filling the payload
  count_,
};

// The signature at the start of the CAPTURED bytes at P of a payload of LENGTH bytes, or none.
tunnel_signature find_tunnel_signature(const uint8_t* p, uint32_t captured, uint32_t length) noexcept;

const char* tunnel_signature_name(tunnel_signature s) noexcept;

}  // namespace varn::conversations
