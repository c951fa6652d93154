// Builders for the captures the tests write: pcap file bytes and Ethernet ICMP/ICMPv6 frames.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varn_test {

using bytes = std::string;  // raw bytes

void put_le16(bytes& b, uint16_t v);
void put_le32(bytes& b, uint32_t v);
void put_be16(bytes& b, uint16_t v);
void put_be32(bytes& b, uint32_t v);

// A pcap file in memory.
class pcap_writer {
 public:
  explicit pcap_writer(uint32_t snaplen = 65535, uint32_t link_type = 1, uint32_t magic = 0xA1B2C3D4,
                       uint16_t major = 2, uint16_t minor = 4, int32_t thiszone = 0);
  // Appends a record: the frame bytes as given, incl_len = frame size and orig_len = incl_len
  // unless overridden (an override does not change the bytes written).
  pcap_writer& add(uint32_t ts_sec, uint32_t ts_usec, const bytes& frame,
                   std::optional<uint32_t> orig_len = std::nullopt,
                   std::optional<uint32_t> incl_len = std::nullopt);
  const bytes& data() const { return m_data; }
  // Writes the file; fails the calling test on error.
  void save(const std::string& path) const;

 private:
  bytes m_data;
};

using mac = std::array<uint8_t, 6>;
using ipv4 = std::array<uint8_t, 4>;
using ipv6 = std::array<uint8_t, 16>;

// Parses "2001:db8::1" style text (full RFC form) into 16 bytes, for test inputs.
ipv6 v6(const std::string& text);

struct icmp4_spec {
  ipv4 src{192, 168, 1, 2};
  ipv4 dst{192, 168, 1, 1};
  uint8_t type = 8;
  uint8_t code = 0;
  uint16_t id = 0x1a2b;
  uint16_t seq = 1;
  bytes payload;
  uint8_t ttl = 64;
  uint8_t ihl = 5;          // IP options are filled with zero bytes
  uint8_t protocol = 1;
  uint16_t ethertype = 0x0800;
  mac eth_src{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  mac eth_dst{0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb};
};

struct icmp6_spec {
  ipv6 src{};
  ipv6 dst{};
  uint8_t type = 128;
  uint8_t code = 0;
  uint16_t id = 0x1a2b;
  uint16_t seq = 1;
  bytes payload;
  uint8_t hop_limit = 64;
  uint8_t next_header = 58;
  uint16_t ethertype = 0x86DD;
  mac eth_src{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  mac eth_dst{0x33, 0x33, 0x00, 0x00, 0x00, 0x01};
};

// Ethernet II + IPv4 (+ options) + ICMP header + payload, with valid IP and ICMP checksums.
bytes icmp4_frame(const icmp4_spec& s);
// Ethernet II + IPv6 + ICMPv6 header + payload (checksum left 0).
bytes icmp6_frame(const icmp6_spec& s);
// Ethernet II with any ethertype and body.
bytes ethernet_frame(uint16_t ethertype, const bytes& body, const mac& src = {0, 1, 2, 3, 4, 5},
                     const mac& dst = {6, 7, 8, 9, 10, 11});

// N bytes from a fixed-seed generator (same bytes on every run).
bytes seeded_bytes(size_t n, uint32_t seed);
// Every byte value 0..255 REPEAT times, shuffled with SEED.
bytes all_values(unsigned repeat, uint32_t seed);

}  // namespace varn_test
