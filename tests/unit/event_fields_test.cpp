// The texts of the JSON events' fields: capture timestamps at every resolution and range, and
// IPv6 addresses in the RFC 5952 form.
#include <gtest/gtest.h>

#include "json/event_time.hpp"
#include "json/ipv6_text.hpp"

namespace {

TEST(event_fields_test, timestamps) {
  struct timestamp_case {
    uint64_t seconds, fraction;
    unsigned digits;
    std::string text;
  };
  const std::vector<timestamp_case> cases = {
      {0, 0, 6, "1970-01-01T00:00:00.000000+0000"},
      {1704164645, 123456, 6, "2024-01-02T03:04:05.123456+0000"},
      {1704164645, 123456789, 9, "2024-01-02T03:04:05.123456789+0000"},
      {1704164645, 5, 9, "2024-01-02T03:04:05.000000005+0000"},
      {1704164645, 1999999, 6, "2024-01-02T03:04:06.999999+0000"},          // a fraction above a second carries
      {1704164645, 3000000000, 9, "2024-01-02T03:04:08.000000000+0000"},
      {951782400, 0, 6, "2000-02-29T00:00:00.000000+0000"},                 // leap day of a century year
      {4102444799, 999999, 6, "2099-12-31T23:59:59.999999+0000"},
      {4294967295, 0, 6, "2106-02-07T06:28:15.000000+0000"},
      {253402300799, 0, 6, "9999-12-31T23:59:59.000000+0000"},
      {253402300800, 0, 6, "10000-01-01T00:00:00.000000+0000"},             // years past 9999 widen
      {1704164645, 12, 2, "2024-01-02T03:04:05.120000+0000"},               // other resolutions scale
      {1704164645, 1234567, 7, "2024-01-02T03:04:05.123456700+0000"},
      {1704164645, 123456789012, 12, "2024-01-02T03:04:05.123456789+0000"},
      {UINT64_MAX, 2000000, 6, "584554051223-11-09T07:00:15.000000+0000"},  // the carry saturates
  };
  varn::json::timestamp_texts texts;
  for (int pass = 0; pass < 2; ++pass) {  // the second pass meets the cached second
    for (const timestamp_case& c : cases) {
      char out[varn::json::timestamp_room];
      char* end = texts.put(out, c.seconds, c.fraction, c.digits);
      EXPECT_EQ(std::string(out, static_cast<size_t>(end - out)), c.text) << c.seconds << " " << c.fraction;
    }
  }
}

TEST(event_fields_test, ipv6_texts_follow_rfc5952) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"00000000000000000000000000000000", "::"},
      {"00000000000000000000000000000001", "::1"},
      {"00010000000000000000000000000000", "1::"},
      {"20010db8000000000000000000000001", "2001:db8::1"},
      {"20010db8000000000001000000000001", "2001:db8::1:0:0:1"},      // the first of two equal runs
      {"00010000000000020000000000000003", "1:0:0:2::3"},             // the longest run
      {"20010db8000000010001000100010001", "2001:db8:0:1:1:1:1:1"},   // one zero group stays "0"
      {"fe800000000000000abc00ff0000000a", "fe80::abc:ff:0:a"},
      {"ABCDEF0123456789abcdef0123456789", "abcd:ef01:2345:6789:abcd:ef01:2345:6789"},
      {"00000000000000000000ffffc0000201", "::ffff:192.0.2.1"},       // IPv4-mapped
      {"000000000000000000000000c0000201", "::c000:201"},             // IPv4-compatible: plain groups
      {"0000000000000000ffff0000c0000201", "::ffff:0:c000:201"},
  };
  for (const auto& [hex, text] : cases) {
    uint8_t address[16];
    for (int i = 0; i < 16; ++i) address[i] = static_cast<uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    char out[varn::json::ipv6_text_room];
    const char* end = varn::json::put_ipv6_text(out, address);
    EXPECT_EQ(std::string(out, static_cast<size_t>(end - out)), text) << hex;
  }
}

}  // namespace
