#include "conversations/icmp_message.hpp"

#include "capture/frame_layout.hpp"

namespace varn::conversations {

namespace {

constexpr uint8_t k_ipv6_hop_by_hop = 0;
constexpr uint8_t k_ipv6_routing = 43;
constexpr uint8_t k_ipv6_fragment = 44;
constexpr uint8_t k_ipv6_destination_options = 60;

int64_t time_of(const icmp_frame& f) noexcept {
  const uint64_t ns = f.ts_digits == 9 ? f.ts_frac : f.ts_frac * 1000;
  return static_cast<int64_t>(f.ts_sec * 1000000000ull + ns);
}

// The fragment header of the IPv6 header chain from IP to the ICMPv6 header, if any.
fragment_place ipv6_fragment(const icmp_frame& f) noexcept {
  const uint8_t* ip = f.ip();
  uint8_t next = ip[6];
  uint32_t at = f.ip_offset + 40;
  while (at + 8 <= f.icmp_offset && at + 8 <= f.cap_len) {
    const uint8_t* h = f.frame + at;
    if (next == k_ipv6_fragment) {
      const uint16_t offset_flags = be16_at(h, 2);
      if ((offset_flags & 0xfff8) != 0) return fragment_place::later;
      return (offset_flags & 1) != 0 ? fragment_place::first : fragment_place::whole;
    }
    if (next != k_ipv6_hop_by_hop && next != k_ipv6_routing && next != k_ipv6_destination_options) break;
    next = h[0];
    at += 8u * (h[1] + 1u);
  }
  return fragment_place::whole;
}

}  // namespace

echo_role role_of(bool ipv6, uint8_t type, uint8_t& request_type) noexcept {
  if (ipv6) {
    if (type == 128 || type == 129) {
      request_type = 128;
      return type == 128 ? echo_role::request : echo_role::reply;
    }
    return echo_role::none;
  }
  switch (type) {
    case 8: case 13: case 15: case 17:
      request_type = type;
      return echo_role::request;
    case 0: case 14: case 16: case 18:
      request_type = type == 0 ? 8 : static_cast<uint8_t>(type - 1);
      return echo_role::reply;
    default:
      return echo_role::none;
  }
}

bool read_icmp_message(const icmp_frame& f, icmp_message& m) noexcept {
  m = icmp_message{};
  m.ipv6 = f.ipv6;
  m.time_ns = time_of(f);
  m.time_in_ns = f.ts_digits == 9;
  // Addresses and the fixed IP header must be captured.
  const uint32_t ip_fixed = f.ipv6 ? 40 : 20;
  if (f.cap_len < f.ip_offset + ip_fixed) return false;
  m.source = f.source();
  m.destination = f.destination();
  const uint8_t* ip = f.ip();
  // Bytes of the datagram behind the ICMP header, as its IP header declares them.
  int64_t declared;
  if (f.ipv6) {
    declared = static_cast<int64_t>(be16_at(ip, 4)) + 40 - (f.icmp_offset - f.ip_offset) - icmp_header_size;
    m.fragment = f.ip_protocol() == ip_next_header_icmpv6 ? fragment_place::whole : ipv6_fragment(f);
    // A jumbogram declares 0; take what was captured.
    if (be16_at(ip, 4) == 0) declared = -1;
  } else {
    const uint16_t offset_flags = be16_at(ip, 6);
    m.ip_identification = be16_at(ip, 4);
    if ((offset_flags & 0x1fff) != 0)
      m.fragment = fragment_place::later;
    else if ((offset_flags & 0x2000) != 0)
      m.fragment = fragment_place::first;
    declared = static_cast<int64_t>(be16_at(ip, 2)) - (f.icmp_offset - f.ip_offset) - icmp_header_size;
  }
  if (m.fragment == fragment_place::later) {
    // No ICMP header: the bytes after the IP header are payload.
    m.payload = f.frame + f.icmp_offset;
    m.captured = f.cap_len > f.icmp_offset ? f.cap_len - f.icmp_offset : 0;
    const int64_t rest = declared + icmp_header_size;
    m.length = rest > 0 ? static_cast<uint32_t>(rest) : 0;
    if (m.captured > m.length) m.captured = m.length;
    return true;
  }
  if (f.cap_len < f.icmp_offset + icmp_header_size) return false;
  m.type = f.type();
  m.code = f.code();
  m.identifier = f.identifier();
  m.sequence = f.sequence();
  m.role = role_of(f.ipv6, m.type, m.echo_kind);
  m.payload = f.payload;
  m.captured = f.payload_length;
  if (declared >= 0) {
    // Ethernet padding lies behind the declared end; a first fragment declares only itself.
    if (m.captured > declared) m.captured = static_cast<uint32_t>(declared);
    m.length = static_cast<uint32_t>(declared);
  } else {
    m.length = m.captured;
  }
  return true;
}

}  // namespace varn::conversations
