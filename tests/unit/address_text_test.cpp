// Address texts: IPv4 and hardware addresses, IPv6 groups with only the first zero run
// compressed, and the IPv6 option reader that keeps only the groups written.
#include <gtest/gtest.h>

#include "zq/zq_address_text.hpp"

namespace {

std::vector<uint8_t> hex(const std::string& text) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i + 1 < text.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  return out;
}

TEST(address_text_test, address_texts) {
  const char* bytes_cases[][2] = {{"00000000", "0.0.0.0"}, {"ffffffff", "255.255.255.255"}, {"0a006407", "10.0.100.7"},
                                  {"001a2bc3d4ff", "00:1a:2b:c3:d4:ff"}, {"010203040506a00b", "01:02:03:04:05:06:a0:0b"},
                                  {"010203", ""}, {"0102030405", ""}, {"01020304050607", ""}};
  for (const auto& c : bytes_cases) {
    std::string s = "stale";
    zq::format_address_bytes(hex(c[0]).data(), hex(c[0]).size(), s);
    EXPECT_EQ(s, c[1]) << c[0];
  }
  const char* ipv6_cases[][2] = {
      {"20010db8000000000000000000000001", "2001:db8::1"}, {"00000000000000000000000000000000", "::"},
      {"00000000000000000000000000000001", "::1"},          {"00010000000000000000000000000000", "1::"},
      {"fe800000000000000001000000000002", "fe80::1:0:0:2"}, {"00010000000200030004000500060007", "1::2:3:4:5:6:7"},
      {"00010000000200000000000000000003", "1::2:0:0:0:0:3"}, {"00010002000300040005000600070000", "1:2:3:4:5:6:7:"},
      {"00000001000200030004000500060007", "::1:2:3:4:5:6:7"}, {"00000001000000000000000000000000", "::1:0:0:0:0:0:0"},
      {"abcd0ef0000affff0100100000ff0001", "abcd:ef0:a:ffff:100:1000:ff:1"}, {"20010db80001", "2001:db8:1"},
      {"00010000", "1:"}, {"0000", ":"}, {"123456", "1234"}};
  for (const auto& c : ipv6_cases) {
    std::string s = "stale";
    zq::format_ipv6_groups(hex(c[0]).data(), hex(c[0]).size(), s);
    EXPECT_EQ(s, c[1]) << c[0];
  }
}

TEST(address_text_test, ipv6_option_text_keeps_the_groups_written) {
  const char* cases[][2] = {
      {"", "00000000000000000000000000000000"}, {"2001:0db8:0000:0000:0000:0000:0000:0001", "20010db8000000000000000000000001"},
      {"2001:db8::1", "20010db80001"}, {"::1", "0001"}, {"1::", "0001"}, {"fe80::1:0:0:2", "fe800001000000000002"},
      {"1:2:3:4:5:6:7:8:9", "000100020003000400050006000700080009"}, {"ABCD:ef01", "abcdef01"}, {"12345", "2345"},
      {"::ffff:1.2.3.4", "ffff0001"}, {"zz:1", "00000001"}, {"12g4", "0012"}, {":", "fails"}, {"::", "fails"},
      {"::::::::::", "fails"}};
  for (const auto& c : cases) {
    zq::byte_run run;
    run.append(0x77);
    std::string got = zq::parse_ipv6_text(c[0], run) ? "" : "fails";
    for (uint8_t b : run.bytes()) got += std::string{"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    EXPECT_EQ(got, c[1]) << '"' << c[0] << '"';
  }
}

}  // namespace
