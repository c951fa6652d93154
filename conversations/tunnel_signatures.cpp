#include "conversations/tunnel_signatures.hpp"

#include <cstddef>
#include <array>

namespace varn::conversations {

namespace {

constexpr std::array<const char*, static_cast<size_t>(tunnel_signature::count_)> k_names = {
    "none", "ptunnel", "ptunnel-ng", "hans", "icmptunnel", "ip-packet"};

uint32_t be32(const uint8_t* p) noexcept {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
         static_cast<uint32_t>(p[3]);
}
uint16_t be16(const uint8_t* p) noexcept { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

// ptunnel's header after its magic: destination address, destination port, state, ack, data
// length, sequence number, identifier, all big-endian; 28 bytes with the magic. The state word
// carries the sender's role in its top bits (0x4000_0000 client, 0x8000_0000 proxy) and a small
// state number below; the data length counts the bytes behind the header.
constexpr uint32_t k_ptunnel_header = 28;
bool ptunnel_header(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured < k_ptunnel_header || length < k_ptunnel_header) return false;
  const uint32_t state = be32(p + 12);
  const uint32_t role = state & 0xc0000000u;
  if ((role != 0x40000000u && role != 0x80000000u) || (state & 0x3fffffffu) > 16) return false;
  return be32(p + 20) == length - k_ptunnel_header;
}

bool ipv4_packet(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured < 20 || (p[0] >> 4) != 4) return false;
  const uint32_t header = 4u * (p[0] & 0x0f);
  if (header < 20 || captured < header || be16(p + 2) != length) return false;
  uint32_t sum = 0;
  for (uint32_t i = 0; i < header; i += 2) sum += be16(p + i);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return sum == 0xffff;
}

bool ipv6_packet(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured < 40 || (p[0] >> 4) != 6 || static_cast<uint32_t>(be16(p + 4)) + 40 != length) return false;
  switch (p[6]) {
    case 0: case 6: case 17: case 43: case 44: case 58: case 59: case 60:
      return true;
    default:
      return false;
  }
}

bool tag(const uint8_t* p, uint32_t captured, const char (&text)[5]) noexcept {
  return captured >= 5 && p[0] == text[0] && p[1] == text[1] && p[2] == text[2] && p[3] == text[3] && p[4] < 32;
}

}  // namespace

const char* tunnel_signature_name(tunnel_signature s) noexcept {
  const size_t i = static_cast<size_t>(s);
  return i < k_names.size() ? k_names[i] : "none";
}

tunnel_signature find_tunnel_signature(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured > length) captured = length;
  if (captured < 5) return tunnel_signature::none;
  if (captured >= 4) {
    const uint32_t magic = be32(p);
    if (magic == 0xd5200880u && captured >= k_ptunnel_header) return tunnel_signature::ptunnel;
    if (magic == 0xdeadc0deu && captured >= k_ptunnel_header) return tunnel_signature::ptunnel_ng;
  }
  if (tag(p, captured, "hanc") || tag(p, captured, "hans")) return tunnel_signature::hans;
  if (tag(p, captured, "TUNL")) return tunnel_signature::icmptunnel;
  if (ptunnel_header(p, captured, length)) return tunnel_signature::ptunnel_ng;
  if (ipv4_packet(p, captured, length) || ipv6_packet(p, captured, length)) return tunnel_signature::ip_packet;
  return tunnel_signature::none;
}

}  // namespace varn::conversations
