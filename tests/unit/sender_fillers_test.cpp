// Sender fillers: payloads captured from the real programs (iputils, busybox, fping, mtr,
// traceroute, hping3, nmap, scamper, pro-bing) and, for senders that do not run here, built from
// their documented layouts (FreeBSD/macOS, OpenBSD, Solaris, Windows, Cisco); each must get its
// label and the length of its clock or fields, and data must stay "none".
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "conversations/sender_fillers.hpp"

namespace {

using varn::conversations::filler;
using varn::conversations::filler_name;
using varn::conversations::recognise_filler;

std::vector<uint8_t> hex(const std::string& text) {
  std::vector<uint8_t> b;
  for (size_t i = 0; i + 1 < text.size(); i += 2) b.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return b;
}
std::vector<uint8_t> counter(size_t from, size_t n) {
  std::vector<uint8_t> b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(from + i);
  return b;
}
std::vector<uint8_t> cat(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
std::vector<uint8_t> cycle(const std::string& unit, size_t n) {
  std::vector<uint8_t> b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(unit[i % unit.size()]);
  return b;
}

// KIND 0: recognise_filler alone; else recognise_payload for that message type, captured at
// TIME_NS. LENGTH 0: the payload's size.
struct row {
  const char* what;
  std::vector<uint8_t> payload;
  filler label;
  uint8_t clock_bytes;
  uint8_t kind = 0;
  bool request = true;
  int64_t time_ns = 0;
  uint32_t length = 0;
};

TEST(sender_fillers_test, labels_each_sender_and_leaves_data_alone) {
  const int64_t sent = 0x18eac8ddd0eda6fcll;  // the first pro-bing request's clock (ns)
  const int64_t day = 86400ll * 1000000000ll;
  // SENT as 32-bit little-endian seconds and microseconds, then data; as a big-endian double of seconds.
  const std::vector<uint8_t> seconds_micros = hex("e0ab046b400000000102030405060708"), double_seconds = hex("41dac12af81eaa06");
  const std::vector<row> rows = {
      {"iputils default (captured)",
       hex("ed88046b00000000bcf9040000000000101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f3031323334353637"),
       filler::iputils, 16},
      {"iputils -s 8: no clock (captured)", hex("0001020304050607"), filler::iputils, 0},
      {"iputils -s 100 -p 16 bytes, zero tail (captured)",
       hex("f988046b0000000059bd0300000000000102030405060708090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f1001020304050607"
           "08090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f1000000000"),
       filler::iputils_pattern, 16},
      {"iputils -p text chunk, pattern tail (captured)",
       hex("0b8a046b00000000e0c90a00000000005055424c4943204c4943454e53450a205055424c4943204c4943454e53450a205055424c4943204c"),
       filler::iputils_pattern, 16},
      {"busybox (captured)", hex("b4b74443" + std::string(104, '0')), filler::busybox, 4},
      {"fping, minimal busybox: zeros", std::vector<uint8_t>(56, 0), filler::fping, 0},
      {"mtr: 36 zeros", std::vector<uint8_t>(36, 0), filler::mtr, 0},
      {"mtr -B 65 (captured)", cycle("A", 36), filler::mtr, 0},
      {"hping3 -d 120", cycle("X", 120), filler::hping3, 0},
      {"traceroute -I (captured)", hex("48494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f6061626364656667"), filler::traceroute, 0},
      {"fping -R (captured)",
       hex("67c6697351ff4aec29cdbaabf2fbe3467cc254f81be8e78d765a2e63339fc99a66320db73158a35a255d051758e95ed4abb2cdc69bb45411"),
       filler::fping_random, 0},
      {"oping (captured)", hex("6c69626f70696e67202d2d2049434d502070696e67206c696272617279203c687474703a2f2f6f63746f2e69742f6c69626f70696e672f3e"),
       filler::oping, 0},
      {"icmplib (captured)", hex("707730564c4e57486d6f794833494968736b58676a535a314f466e6e41346f495635544f6a6b46475730344a41573572616a54656236484e"),
       filler::icmplib, 0},
      {"hex text is data, not icmplib", cycle("0123456789abcdef3a", 56), filler::none, 0},
      {"base64 of text is data, not icmplib",
       hex("49434167494341674943416749434167494341674943416749434248546c55675230564f52564a425443425156554a4d53554d6754456c445255355452516f67"),
       filler::none, 0},
      {"base32 is data, not icmplib", cycle("JBSWY3DPEBLW64TMMQQQ", 40), filler::none, 0},
      {"Windows ping", cycle("abcdefghijklmnopqrstuvw", 32), filler::windows, 0},
      {"Cisco IOS", cycle("\xab\xcd", 72), filler::cisco, 0},
      {"macOS: big-endian seconds and microseconds", cat(hex("6a1b2c3d000a1b2c"), counter(8, 48)), filler::bsd, 8},
      {"FreeBSD -p", cat(hex("6a1b2c3d000a1b2c"), cycle("\x12\x34\x56", 48)), filler::bsd, 8},
      {"macOS ping6: the clock, then 0x00, 0x01, ...", cat(hex("6a1b2c3d000a1b2c"), counter(0, 48)), filler::bsd, 8},
      {"Cisco data pattern 0x1234", cycle("\x12\x34", 72), filler::pattern, 0},
      {"Solaris x86: little-endian timeval", cat(hex("3d2c1b6a2c1b0a00"), counter(8, 48)), filler::solaris, 8},
      {"OpenBSD: timespec, MAC", cat(hex("000000006a1b2c3d000000001a2b3c4d0123456789abcdef"), counter(24, 32)), filler::openbsd, 24},
      {"nmap -PE: empty", {}, filler::empty, 0},
      {"cut by the capture before the counter", hex("ed88046b00000000bcf90400"), filler::truncated, 0, 0, true, 0, 56},
      {"iputils cut after the counter began", cat(hex("ed88046b00000000bcf9040000000000"), counter(16, 16)), filler::iputils, 16,
       0, true, 0, 1400},
      {"check_icmp (captured)", hex("dfa4046b00000000628b0a00000000000a002c9e627f0000" + std::string(88, '0')),
       filler::check_icmp, 16},
      {"ptunnel-ng header (captured)", hex("deadc0de0a63000200001f40400000000000ffff000000000000dca8"), filler::none, 0},
      {"text chunk", cycle("GNU GENERAL PUBLIC LICENSE Version 3, 29 June 2007 ", 64), filler::none, 0},
      {"iputils layout with a clock that is no timeval", cat(hex("ed88046b11111111bcf9040000000000"), counter(16, 40)),
       filler::none, 0},
      // Timestamp and address mask requests and replies: their fields, then any bytes behind them.
      {"hping3, scamper: the time, two zeros (captured)", hex("047328a60000000000000000"), filler::message_fields, 12, 13},
      {"inetutils: the time thrice (captured)", hex("0472fa5b0472fa5b0472fa5b"), filler::message_fields, 12, 13},
      {"a time with the high-order bit", hex("812345670000000000000000"), filler::message_fields, 12, 13},
      {"reply: the responder's times (captured)", hex("64625f68046b5be9046b5be9"), filler::message_fields, 12, 13, false},
      {"text in the fields (captured)", hex("64625f686f73743d31302e32"), filler::none, 0, 13},
      {"86,400,000 ms: no time of day", hex("05265c000000000000000000"), filler::none, 0, 13},
      {"receive and transmit filled in by the sender", hex("0472fa5b0000000100000002"), filler::none, 0, 13},
      {"scamper: fields and zeros (captured)", cat(hex("04738a0c0000000000000000"), std::vector<uint8_t>(32, 0)),
       filler::message_fields, 12, 13},
      {"nping --data-string behind zero fields (captured)",
       hex("0000000000000000000000005a474a666147397a644430784d4334794d43347a4d4334304d41706b"), filler::none, 12, 13},
      {"mask request: zero", hex("00000000"), filler::message_fields, 4, 17},
      {"mask reply: /24", hex("ffffff00"), filler::message_fields, 4, 17, false},
      {"mask with a hole", hex("ff00ff00"), filler::none, 0, 17, false},
      {"nmap --data-length behind a mask (captured)", hex("00000000d22452015f8f74798637c90684a625aca8ef36d7763f005c"),
       filler::none, 4, 17},
      {"echo: no fields", hex("0001e2400001e2410001e242"), filler::none, 0, 8},
      // Clocks told by the capture time: Go pingers, and where an unknown sender's data begins.
      {"pro-bing, 56 bytes (smokeping_prober, captured)",
       cat(hex("18eac8ddd0eda6fca9b02de1b11d4140b02d26859844721e"), cycle("\x01", 32)), filler::go_ping, 8, 8, true,
       sent + 250000},
      {"pro-bing -s 24 (captured)", hex("18eac8df192b7f916eaa007dc0c84bafbef9b97e17895ad1"), filler::go_ping, 8, 8, true,
       sent + 6 * 1000000000ll},
      {"the same two days off", hex("18eac8df192b7f916eaa007dc0c84bafbef9b97e17895ad1"), filler::none, 0, 8, true, sent + 2 * day},
      {"32-bit seconds and microseconds, then data", seconds_micros, filler::none, 8, 8, true, sent},
      {"a double of seconds (ping3), then data", cat(double_seconds, cycle("Q", 16)), filler::none, 8, 8, true, sent},
      {"more than 24 bytes: from byte 16 on", cycle("GNU GENERAL PUBLIC LICENSE Version 3", 40), filler::none, 16, 8, true, sent},
      {"a capture time unknown", seconds_micros, filler::none, 0, 8},
  };
  for (const row& r : rows) {
    const auto n = static_cast<uint32_t>(r.payload.size());
    const uint32_t length = r.length != 0 ? r.length : n;
    const auto m = r.kind == 0 ? recognise_filler(r.payload.data(), n, length)
                               : varn::conversations::recognise_payload(r.kind, r.request, r.payload.data(), n, length, r.time_ns);
    EXPECT_STREQ(filler_name(m.label), filler_name(r.label)) << r.what;
    EXPECT_EQ(m.clock_bytes, r.clock_bytes) << r.what;
  }
}

TEST(sender_fillers_test, patterns_are_told_apart_by_their_variant) {
  const auto a = hex("f788046b00000000cd070f0000000000deadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeef");
  auto b = a;
  for (size_t i = 16; i < b.size(); i += 4) b[i] = 0x11;
  auto later = a;
  later[8] = 0x99;  // another send time, same pattern
  const auto ma = recognise_filler(a.data(), 56, 56);
  EXPECT_STREQ(filler_name(ma.label), "iputils-pattern");
  EXPECT_NE(ma.variant, 0u);
  EXPECT_NE(ma.variant, recognise_filler(b.data(), 56, 56).variant);
  EXPECT_EQ(ma.variant, recognise_filler(later.data(), 56, 56).variant);
}

}  // namespace
