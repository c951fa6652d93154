// Locating the ICMP message behind every link layer and encapsulation -any_format reads, and never
// reading past the captured bytes: every frame is also tried cut at every shorter length, each
// copy in a buffer of exactly its size (AddressSanitizer builds catch a byte read too far).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "layers/icmp_locator.hpp"
#include "layers/link_layer.hpp"
#include "support/capture_text.hpp"

namespace {

using varn::frame_verdict;
using varn_test::bytes;

bytes hex(const std::string& text) {
  bytes b;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    if (text[i] == ' ') {
      --i;
      continue;
    }
    b += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  }
  return b;
}

const bytes k_eth = hex("66778899aabb 001122334455");  // addresses; the type follows
// IPv4 header (IHL 5) carrying protocol PROTO with the flags and fragment offset FRAG.
bytes ipv4(const std::string& proto = "01", const std::string& frag = "0000") {
  return hex("4500 0054 1234" + frag + "40" + proto + "0000 c0a80102 c0a80101");
}
const bytes k_ipv4_options = hex("4600 0058 1234 0000 4001 0000 c0a80102 c0a80101 94040000");  // router alert
bytes ipv6(const std::string& next = "3a") { return hex("6000 0000 0010" + next + "40") + bytes(32, '\x11'); }
const bytes k_icmp = hex("0800 f7ff 1a2b 0001");
const bytes k_icmpv6 = hex("8000 0000 1a2b 0001");

struct locate_case {
  const char* name;
  uint32_t link_type;
  bytes frame;
  frame_verdict verdict;
  uint32_t ip_offset = 0, icmp_offset = 0;
  bool ipv6 = false;
};

std::vector<locate_case> cases() {
  const bytes eth4 = k_eth + hex("0800"), eth6 = k_eth + hex("86dd");
  const bytes hop = hex("2b00 0000 0000 0000");                          // hop-by-hop, next routing, 8 bytes
  const bytes routing = hex("3c02 0000 0000 0000") + bytes(16, '\x22');  // routing, next dest opts, 24 bytes
  const bytes dest = hex("2c01 0000 0000 0000") + bytes(8, '\0');       // dest opts, next fragment, 16 bytes
  const bytes first_fragment = hex("3a00 0001 0000 5151"), later_fragment = hex("3a00 0100 0000 5151");
  using v = frame_verdict;
  return {
      {"Ethernet IPv4", 1, eth4 + ipv4() + k_icmp, v::icmp, 14, 34},
      {"Ethernet IPv4 with options", 1, eth4 + k_ipv4_options + k_icmp, v::icmp, 14, 38},
      {"Ethernet IPv4 first fragment", 1, eth4 + ipv4("01", "2000") + k_icmp, v::icmp, 14, 34},
      {"Ethernet IPv4 later fragment", 1, eth4 + ipv4("01", "0003") + k_icmp, v::not_icmp},
      {"Ethernet IPv4 UDP", 1, eth4 + ipv4("11") + k_icmp, v::not_icmp},
      {"Ethernet IPv6", 1, eth6 + ipv6() + k_icmpv6, v::icmp, 14, 54, true},
      {"Ethernet IPv6 TCP", 1, eth6 + ipv6("06") + k_icmpv6, v::not_icmp},
      {"Ethernet ARP", 1, k_eth + hex("0806") + bytes(28, '\0'), v::not_icmp},
      {"802.1Q IPv4", 1, k_eth + hex("8100 000a 0800") + ipv4() + k_icmp, v::icmp, 18, 38},
      {"802.1ad 802.1Q IPv6", 1, k_eth + hex("88a8 0064 8100 000a 86dd") + ipv6() + k_icmpv6, v::icmp, 22, 62, true},
      {"0x9100 0x8100 IPv4", 1, k_eth + hex("9100 0064 8100 000a 0800") + ipv4() + k_icmp, v::icmp, 22, 42},
      {"802.1Q ARP", 1, k_eth + hex("8100 000a 0806") + bytes(28, '\0'), v::not_icmp},
      {"IPv6 four extension headers", 1, eth6 + ipv6("00") + hop + routing + dest + first_fragment + k_icmpv6, v::icmp, 14,
       110, true},
      {"IPv6 later fragment", 1, eth6 + ipv6("2c") + later_fragment + k_icmpv6, v::not_icmp},
      {"IPv6 hop-by-hop UDP", 1, eth6 + ipv6("00") + hex("1100 0000 0000 0000") + k_icmpv6, v::not_icmp},
      {"cooked v1 IPv4", 113, hex("0000 0001 0006 001122334455 0000 0800") + ipv4() + k_icmp, v::icmp, 16, 36},
      {"cooked v1 tagged IPv6", 113, hex("0004 0001 0006 001122334455 0000 8100 000a 86dd") + ipv6() + k_icmpv6, v::icmp,
       20, 60, true},
      {"cooked v1 netlink", 113, hex("0004 0338 0000 0000000000000000 0800") + ipv4() + k_icmp, v::not_icmp},
      {"cooked v2 IPv6", 276, hex("86dd 0000 00000002 0001 00 06 001122334455 0000") + ipv6() + k_icmpv6, v::icmp, 20, 60,
       true},
      {"cooked v2 netlink", 276, hex("0800 0000 00000002 0338 00 06 001122334455 0000") + ipv4() + k_icmp, v::not_icmp},
      {"raw IPv4 (101)", 101, ipv4() + k_icmp, v::icmp, 0, 20},
      {"raw IPv6 (12)", 12, ipv6() + k_icmpv6, v::icmp, 0, 40, true},
      {"raw IPv4 (14)", 14, ipv4() + k_icmp, v::icmp, 0, 20},
      {"raw version 5", 101, hex("55") + ipv4().substr(1) + k_icmp, v::not_icmp},
      {"raw IPv4 only (228)", 228, ipv4() + k_icmp, v::icmp, 0, 20},
      {"raw IPv6 only (229)", 229, ipv6() + k_icmpv6, v::icmp, 0, 40, true},
      {"null, little-endian AF_INET", 0, hex("02000000") + ipv4() + k_icmp, v::icmp, 4, 24},
      {"null, big-endian AF_INET6 (Darwin)", 0, hex("0000001e") + ipv6() + k_icmpv6, v::icmp, 4, 44, true},
      {"null, little-endian AF_INET6 (FreeBSD)", 0, hex("1c000000") + ipv6() + k_icmpv6, v::icmp, 4, 44, true},
      {"loop, AF_INET6 (BSD)", 108, hex("00000018") + ipv6() + k_icmpv6, v::icmp, 4, 44, true},
      {"loop, little-endian AF_INET", 108, hex("02000000") + ipv4() + k_icmp, v::icmp, 4, 24},
      {"null, Linux AF_INET6 number", 0, hex("0a000000") + ipv6() + k_icmpv6, v::not_icmp},
      {"IEEE 802.11", 105, eth4 + ipv4() + k_icmp, v::not_icmp},
  };
}

varn::icmp_frame locate_in_copy(const locate_case& c, size_t length, frame_verdict& verdict) {
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[length == 0 ? 1 : length]);
  std::memcpy(copy.get(), c.frame.data(), length);
  varn::icmp_frame f;
  verdict = varn::locate_icmp_message(c.link_type, copy.get(), static_cast<uint32_t>(length), f);
  f.frame = nullptr;  // the copy is gone
  f.payload = nullptr;
  return f;
}

TEST(icmp_locator_test, finds_the_icmp_header_behind_each_link_layer_and_encapsulation) {
  for (const locate_case& c : cases()) {
    SCOPED_TRACE(c.name);
    frame_verdict verdict;
    const varn::icmp_frame f = locate_in_copy(c, c.frame.size(), verdict);
    ASSERT_EQ(verdict, c.verdict);
    if (verdict != frame_verdict::icmp) continue;
    EXPECT_EQ(f.link_type, c.link_type);
    EXPECT_EQ(f.ip_offset, c.ip_offset);
    EXPECT_EQ(f.icmp_offset, c.icmp_offset);
    EXPECT_EQ(f.ipv6, c.ipv6);
    EXPECT_EQ(f.header_length, c.icmp_offset + 8);
    EXPECT_EQ(f.payload_length, 0u);
    EXPECT_EQ(f.cap_len, c.frame.size());
  }
}

// Each ICMP frame above ends with its ICMP header: any shorter capture of it is too short for its
// headers; the others are decided before their last byte or are too short.
TEST(icmp_locator_test, a_frame_cut_short_is_never_read_past_its_end) {
  for (const locate_case& c : cases()) {
    SCOPED_TRACE(c.name);
    for (size_t length = 0; length < c.frame.size(); ++length) {
      frame_verdict verdict;
      locate_in_copy(c, length, verdict);
      if (c.verdict == frame_verdict::icmp)
        EXPECT_EQ(verdict, frame_verdict::truncated) << length;
      else
        EXPECT_NE(verdict, frame_verdict::icmp) << length;
    }
  }
}

TEST(icmp_locator_test, reads_exactly_the_documented_link_types) {
  std::vector<uint32_t> read;
  for (uint32_t t = 0; t < 300; ++t)
    if (varn::link_type_is_read(t)) read.push_back(t);
  EXPECT_EQ(read, (std::vector<uint32_t>{0, 1, 12, 14, 101, 108, 113, 228, 229, 276}));
}

}  // namespace
