// The link layers varn reads with -any_format: which link-layer header types it knows, and where
// the IP header starts in a frame of each.
#pragma once

#include <cstdint>

namespace varn {

// Link-layer header type values as capture files store them (pcap file header, pcapng interface
// description).
namespace link_types {
constexpr uint32_t null = 0;           // BSD loopback: 4-byte address family, host byte order
constexpr uint32_t ethernet = 1;       // Ethernet II, with 802.1Q / 802.1ad tags
constexpr uint32_t raw_12 = 12;        // raw IP as most BSDs number it
constexpr uint32_t raw_14 = 14;        // raw IP as OpenBSD numbers it
constexpr uint32_t raw = 101;          // raw IP, the number capture files use
constexpr uint32_t loop = 108;         // OpenBSD loopback: address family in network byte order
constexpr uint32_t linux_sll = 113;    // Linux cooked capture, version 1 (tcpdump -i any)
constexpr uint32_t ipv4 = 228;         // raw IPv4 only
constexpr uint32_t ipv6 = 229;         // raw IPv6 only
constexpr uint32_t linux_sll2 = 276;   // Linux cooked capture, version 2
}  // namespace link_types

// True when frames of LINK_TYPE are searched for ICMP; frames of other types are skipped.
bool link_type_is_read(uint32_t link_type) noexcept;

// A short name for LINK_TYPE ("Ethernet", "Linux cooked v1", ...), or null when not read.
const char* link_type_name(uint32_t link_type) noexcept;

enum class network_protocol : uint8_t {
  ipv4,
  ipv6,
  other,      // something else (ARP, another address family, an unread link type...)
  truncated,  // the captured bytes end inside the link-layer header
};

struct network_layer {
  network_protocol protocol;
  uint32_t offset;  // first byte of the IP header (for ipv4 and ipv6)
};

// Where the IP header of the frame at FRAME (CAP_LEN captured bytes, link type LINK_TYPE) starts,
// reading no byte at or past CAP_LEN. Ethernet and cooked frames are judged by their ethertype
// (behind any number of 802.1Q / 802.1ad tags), loopback frames by their address family (2 IPv4;
// 24, 28, 30 IPv6, in either byte order), raw IP frames by the version nibble (228 and 229 by the
// link type alone).
network_layer find_network_layer(uint32_t link_type, const uint8_t* frame, uint32_t cap_len) noexcept;

}  // namespace varn
