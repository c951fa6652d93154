#include "layers/icmp_locator.hpp"

#include "layers/ip_layer.hpp"
#include "layers/link_layer.hpp"

namespace varn {

frame_verdict locate_icmp_message(uint32_t link_type, const uint8_t* frame, uint32_t cap_len, icmp_frame& f) noexcept {
  const network_layer net = find_network_layer(link_type, frame, cap_len);
  icmp_position at;
  switch (net.protocol) {
    case network_protocol::ipv4:
      at = find_icmp_in_ipv4(frame, cap_len, net.offset);
      break;
    case network_protocol::ipv6:
      at = find_icmp_in_ipv6(frame, cap_len, net.offset);
      break;
    case network_protocol::truncated:
      return frame_verdict::truncated;
    default:
      return frame_verdict::not_icmp;
  }
  if (at.result == icmp_search::not_icmp) return frame_verdict::not_icmp;
  if (at.result == icmp_search::truncated) return frame_verdict::truncated;
  f.frame = frame;
  f.cap_len = cap_len;
  f.link_type = link_type;
  f.ip_offset = net.offset;
  f.ipv6 = net.protocol == network_protocol::ipv6;
  f.icmp_offset = at.icmp_offset;
  set_icmp_regions(f);
  return frame_verdict::icmp;
}

}  // namespace varn
