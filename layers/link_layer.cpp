#include "layers/link_layer.hpp"

#include "capture/frame_layout.hpp"

namespace varn {

namespace {

enum class link_kind : uint8_t { ethernet, cooked_v1, cooked_v2, raw_by_version, raw_ipv4, raw_ipv6, loopback };

struct link_entry {
  uint32_t type;
  link_kind kind;
  const char* name;
};

// Every link type read, with how its header is read (values from the tcpdump.org link-layer
// header type list).
constexpr link_entry k_links[] = {
    {link_types::null, link_kind::loopback, "BSD loopback"},
    {link_types::ethernet, link_kind::ethernet, "Ethernet"},
    {link_types::raw_12, link_kind::raw_by_version, "raw IP"},
    {link_types::raw_14, link_kind::raw_by_version, "raw IP"},
    {link_types::raw, link_kind::raw_by_version, "raw IP"},
    {link_types::loop, link_kind::loopback, "OpenBSD loopback"},
    {link_types::linux_sll, link_kind::cooked_v1, "Linux cooked v1"},
    {link_types::ipv4, link_kind::raw_ipv4, "raw IPv4"},
    {link_types::ipv6, link_kind::raw_ipv6, "raw IPv6"},
    {link_types::linux_sll2, link_kind::cooked_v2, "Linux cooked v2"},
};

const link_entry* find_link(uint32_t link_type) noexcept {
  for (const link_entry& e : k_links)
    if (e.type == link_type) return &e;
  return nullptr;
}

constexpr uint16_t ethertype_vlan = 0x8100;   // 802.1Q customer tag
constexpr uint16_t ethertype_qinq = 0x88A8;   // 802.1ad service tag
constexpr uint16_t ethertype_qinq_old = 0x9100;  // service tag before 802.1ad
constexpr uint32_t vlan_tag_size = 4;         // tag control information, then the next ethertype

constexpr uint32_t sll_header_size = 16;   // packet type, ARPHRD type, address length, address, protocol
constexpr uint32_t sll_hatype = 2;
constexpr uint32_t sll_protocol = 14;
constexpr uint32_t sll2_header_size = 20;  // protocol, reserved, interface index, ARPHRD type, ...
constexpr uint32_t sll2_protocol = 0;
constexpr uint32_t sll2_hatype = 8;
constexpr uint16_t arphrd_netlink = 824;  // the protocol field holds a netlink family, not an ethertype

constexpr uint32_t loopback_header_size = 4;
constexpr uint32_t af_inet = 2;
constexpr uint32_t af_inet6_bsd = 24;      // NetBSD, OpenBSD
constexpr uint32_t af_inet6_freebsd = 28;
constexpr uint32_t af_inet6_darwin = 30;

constexpr network_layer k_truncated = {network_protocol::truncated, 0};
constexpr network_layer k_other = {network_protocol::other, 0};

// The ethertype at TYPE_AT, whose data starts at NEXT; a tag there (tag control, then the next
// ethertype) moves the data on by 4 bytes, as often as tags are stacked.
network_layer by_ethertype(const uint8_t* frame, uint32_t cap_len, uint32_t type_at, uint32_t next) noexcept {
  if (cap_len < type_at + 2) return k_truncated;
  uint16_t type = be16_at(frame, type_at);
  while (type == ethertype_vlan || type == ethertype_qinq || type == ethertype_qinq_old) {
    if (cap_len < next + vlan_tag_size) return k_truncated;
    type = be16_at(frame, next + 2);
    next += vlan_tag_size;
  }
  if (type == ethertype_ipv4) return {network_protocol::ipv4, next};
  if (type == ethertype_ipv6) return {network_protocol::ipv6, next};
  return k_other;
}

network_layer by_version(const uint8_t* frame, uint32_t cap_len, uint32_t at) noexcept {
  if (cap_len <= at) return k_truncated;
  switch (frame[at] >> 4) {
    case 4:
      return {network_protocol::ipv4, at};
    case 6:
      return {network_protocol::ipv6, at};
    default:
      return k_other;
  }
}

network_layer by_address_family(const uint8_t* frame, uint32_t cap_len) noexcept {
  if (cap_len < loopback_header_size) return k_truncated;
  // Written in the byte order of the capturing host (null) or of the network (loop), and both are
  // found in the wild for both: a family value is small, so the order that gives one is right.
  uint32_t family = static_cast<uint32_t>(frame[0]) | static_cast<uint32_t>(frame[1]) << 8 |
                    static_cast<uint32_t>(frame[2]) << 16 | static_cast<uint32_t>(frame[3]) << 24;
  if (family > 0xffff) family = __builtin_bswap32(family);
  if (family == af_inet) return {network_protocol::ipv4, loopback_header_size};
  if (family == af_inet6_bsd || family == af_inet6_freebsd || family == af_inet6_darwin)
    return {network_protocol::ipv6, loopback_header_size};
  return k_other;
}

}  // namespace

bool link_type_is_read(uint32_t link_type) noexcept { return find_link(link_type) != nullptr; }

const char* link_type_name(uint32_t link_type) noexcept {
  const link_entry* e = find_link(link_type);
  return e == nullptr ? nullptr : e->name;
}

network_layer find_network_layer(uint32_t link_type, const uint8_t* frame, uint32_t cap_len) noexcept {
  if (link_type == link_types::ethernet) return by_ethertype(frame, cap_len, eth_type, eth_header_size);  // the common case first
  const link_entry* e = find_link(link_type);
  if (e == nullptr) return k_other;
  switch (e->kind) {
    case link_kind::ethernet:
      return by_ethertype(frame, cap_len, eth_type, eth_header_size);
    case link_kind::cooked_v1:
      if (cap_len < sll_header_size) return k_truncated;
      if (be16_at(frame, sll_hatype) == arphrd_netlink) return k_other;
      return by_ethertype(frame, cap_len, sll_protocol, sll_header_size);
    case link_kind::cooked_v2:
      if (cap_len < sll2_header_size) return k_truncated;
      if (be16_at(frame, sll2_hatype) == arphrd_netlink) return k_other;
      return by_ethertype(frame, cap_len, sll2_protocol, sll2_header_size);
    case link_kind::raw_by_version:
      return by_version(frame, cap_len, 0);
    case link_kind::raw_ipv4:
      return {network_protocol::ipv4, 0};
    case link_kind::raw_ipv6:
      return {network_protocol::ipv6, 0};
    case link_kind::loopback:
      return by_address_family(frame, cap_len);
  }
  return k_other;
}

}  // namespace varn
