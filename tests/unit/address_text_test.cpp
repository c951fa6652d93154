// IP address text forms: IPv4 and hardware address texts, the IPv6 text with its first-zero-run
// compression, and the IPv6 option reader that keeps only the groups written.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "zq/zq_address_text.hpp"

namespace {

std::vector<uint8_t> group_bytes(std::initializer_list<uint16_t> groups) {
  std::vector<uint8_t> out;
  for (uint16_t g : groups) {
    out.push_back(static_cast<uint8_t>(g >> 8));
    out.push_back(static_cast<uint8_t>(g & 0xff));
  }
  return out;
}

std::string ipv6_text(const std::vector<uint8_t>& bytes) {
  std::string s;
  zq::format_ipv6_groups(bytes.data(), bytes.size(), s);
  return s;
}

struct bytes_case {
  std::vector<uint8_t> bytes;
  const char* text;
};

TEST(address_text_test, address_bytes_by_length) {
  const bytes_case cases[] = {
      {{0, 0, 0, 0}, "0.0.0.0"},
      {{255, 255, 255, 255}, "255.255.255.255"},
      {{192, 168, 1, 10}, "192.168.1.10"},
      {{10, 0, 100, 7}, "10.0.100.7"},
      {{0x00, 0x1a, 0x2b, 0xc3, 0xd4, 0xff}, "00:1a:2b:c3:d4:ff"},
      {{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xa0, 0x0b}, "01:02:03:04:05:06:a0:0b"},
      {{1, 2, 3}, ""},
      {{1, 2, 3, 4, 5}, ""},
      {{1, 2, 3, 4, 5, 6, 7}, ""},
      {std::vector<uint8_t>(16, 1), ""},
  };
  for (const auto& c : cases) {
    std::string s = "stale";
    zq::format_address_bytes(c.bytes.data(), c.bytes.size(), s);
    EXPECT_EQ(s, c.text) << c.bytes.size() << " bytes";
  }
}

TEST(address_text_test, ipv4_text_into_a_buffer) {
  const uint8_t a[4] = {172, 16, 254, 1};
  char buf[16];
  char* end = zq::put_ipv4_text(buf, a);
  EXPECT_EQ(std::string(buf, end), "172.16.254.1");
}

TEST(address_text_test, ipv6_first_zero_run_compression) {
  const bytes_case cases[] = {
      {group_bytes({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}), "2001:db8::1"},
      {group_bytes({0, 0, 0, 0, 0, 0, 0, 0}), "::"},
      {group_bytes({0, 0, 0, 0, 0, 0, 0, 1}), "::1"},
      {group_bytes({1, 0, 0, 0, 0, 0, 0, 0}), "1::"},
      {group_bytes({0xfe80, 0, 0, 0, 1, 0, 0, 2}), "fe80::1:0:0:2"},
      // a single zero group is compressed
      {group_bytes({1, 0, 2, 3, 4, 5, 6, 7}), "1::2:3:4:5:6:7"},
      // a later, longer run is not compressed
      {group_bytes({1, 0, 2, 0, 0, 0, 0, 3}), "1::2:0:0:0:0:3"},
      // the run opening at the last group prints nothing after its separator
      {group_bytes({1, 2, 3, 4, 5, 6, 7, 0}), "1:2:3:4:5:6:7:"},
      // a run at group 0 gets its leading ":"
      {group_bytes({0, 1, 2, 3, 4, 5, 6, 7}), "::1:2:3:4:5:6:7"},
      {group_bytes({0, 1, 0, 0, 0, 0, 0, 0}), "::1:0:0:0:0:0:0"},
      {group_bytes({1, 2, 3, 4, 5, 6, 7, 8}), "1:2:3:4:5:6:7:8"},
      // lower case, no leading zeros
      {group_bytes({0xABCD, 0x0EF0, 0x000a, 0xffff, 0x0100, 0x1000, 0x00ff, 0x0001}),
       "abcd:ef0:a:ffff:100:1000:ff:1"},
      // lengths other than 16: length / 2 groups
      {group_bytes({0x2001, 0xdb8, 1}), "2001:db8:1"},
      {group_bytes({1, 0}), "1:"},
      {group_bytes({0}), ":"},
      {{0x12, 0x34, 0x56}, "1234"},
  };
  for (const auto& c : cases) EXPECT_EQ(ipv6_text(c.bytes), c.text) << c.text;
}

TEST(address_text_test, ipv6_null_or_zero_length_leaves_result_untouched) {
  std::string s = "kept";
  const uint8_t b[2] = {0, 1};
  zq::format_ipv6_groups(nullptr, 16, s);
  EXPECT_EQ(s, "kept");
  zq::format_ipv6_groups(b, 0, s);
  EXPECT_EQ(s, "kept");
}

TEST(address_text_test, ipv6_text_into_a_buffer_matches) {
  const std::vector<uint8_t> b = group_bytes({0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff});
  char buf[40];
  char* end = zq::put_ipv6_text(buf, b.data(), b.size());
  EXPECT_EQ(std::string(buf, end), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
}

struct parse_case {
  const char* text;
  bool ok;
  std::vector<uint8_t> bytes;
};

TEST(address_text_test, parse_ipv6_text_keeps_only_written_groups) {
  const parse_case cases[] = {
      {"", true, std::vector<uint8_t>(16, 0)},
      {"2001:0db8:0000:0000:0000:0000:0000:0001", true,
       group_bytes({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1})},
      {"2001:db8::1", true, {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01}},
      {"::1", true, {0x00, 0x01}},
      {"1::", true, {0x00, 0x01}},
      {"fe80::1:0:0:2", true, group_bytes({0xfe80, 1, 0, 0, 2})},
      {"1:2:3:4:5:6:7:8", true, group_bytes({1, 2, 3, 4, 5, 6, 7, 8})},
      {"1:2:3:4:5:6:7:8:9", true, group_bytes({1, 2, 3, 4, 5, 6, 7, 8, 9})},  // no group count check
      {"ABCD:ef01", true, {0xab, 0xcd, 0xef, 0x01}},
      {"12345", true, {0x23, 0x45}},            // low 16 bits
      {"12345:1", true, {0x23, 0x45, 0x00, 0x01}},
      {"::ffff:1.2.3.4", true, {0xff, 0xff, 0x00, 0x01}},  // a dotted tail reads as 1
      {"zz:1", true, {0x00, 0x00, 0x00, 0x01}},  // no hex digits read as 0
      {"12g4", true, {0x00, 0x12}},              // stops at the first non-hex character
      {":", false, {}},
      {"::", false, {}},
      {":::::::", false, {}},
      {"::::::::::", false, {}},
  };
  for (const auto& c : cases) {
    zq::byte_run run;
    run.append(0x77);  // stale content must go
    EXPECT_EQ(zq::parse_ipv6_text(c.text, run), c.ok) << '"' << c.text << '"';
    EXPECT_EQ(run.bytes(), c.bytes) << '"' << c.text << '"';
  }
}

TEST(address_text_test, parsed_full_form_prints_compressed) {
  zq::byte_run run;
  ASSERT_TRUE(zq::parse_ipv6_text("2001:0db8:0000:0000:0000:0000:0000:0001", run));
  ASSERT_EQ(run.size(), 16u);
  std::string s;
  zq::format_ipv6_groups(run.data(), run.size(), s);
  EXPECT_EQ(s, "2001:db8::1");
}

TEST(address_text_test, parsed_short_form_echoes_its_own_groups) {
  // The option echo prints the value read with its own length: "2001:db8::1" gives 3 groups.
  zq::byte_run run;
  ASSERT_TRUE(zq::parse_ipv6_text("2001:db8::1", run));
  std::string s;
  zq::format_ipv6_groups(run.data(), run.size(), s);
  EXPECT_EQ(s, "2001:db8:1");
}

}  // namespace
