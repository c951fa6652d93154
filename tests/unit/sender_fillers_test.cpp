// Sender fillers: payloads captured from the real programs (iputils, busybox, fping, mtr,
// traceroute, hping3) and, for senders that do not run here, built from their documented layouts
// (FreeBSD/macOS, OpenBSD, Solaris, Windows, Cisco); each must get its label and clock length,
// and data must stay "none".
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

struct filler_case {
  const char* what;
  std::vector<uint8_t> payload;
  uint32_t length;  // 0: the payload's size
  filler label;
  uint8_t clock_bytes;
};

TEST(sender_fillers_test, labels_each_sender_and_leaves_data_alone) {
  const std::vector<uint8_t> iputils_default = hex(
      "ed88046b00000000bcf9040000000000101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f3031323334353637");
  const std::vector<filler_case> cases = {
      {"iputils default (captured)", iputils_default, 0, filler::iputils, 16},
      {"iputils -s 1400", cat(hex("ed88046b00000000bcf9040000000000"), counter(16, 1384)), 0, filler::iputils, 16},
      {"iputils -s 8: no clock (captured)", hex("0001020304050607"), 0, filler::iputils, 0},
      {"iputils -p deadbeef (captured)",
       hex("f788046b00000000cd070f0000000000deadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeef"), 0,
       filler::iputils_pattern, 16},
      {"iputils -s 100 -p 16 bytes, zero tail (captured)",
       hex("f988046b0000000059bd0300000000000102030405060708090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f1001020304050607"
           "08090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f100102030405060708090a0b0c0d0e0f1000000000"),
       0, filler::iputils_pattern, 16},
      {"iputils -p text chunk, pattern tail (captured)",
       hex("0b8a046b00000000e0c90a00000000005055424c4943204c4943454e53450a205055424c4943204c4943454e53450a205055424c4943204c"),
       0, filler::iputils_pattern, 16},
      {"busybox (captured)", hex("b4b74443" + std::string(104, '0')), 0, filler::busybox, 4},
      {"busybox -p 41", cat(hex("d75e6343"), cycle("A", 96)), 0, filler::busybox, 4},
      {"fping, minimal busybox: zeros", std::vector<uint8_t>(56, 0), 0, filler::fping, 0},
      {"mtr: 36 zeros", std::vector<uint8_t>(36, 0), 0, filler::mtr, 0},
      {"mtr -B 65 (captured)", cycle("A", 36), 0, filler::mtr, 0},
      {"hping3 -d 120", cycle("X", 120), 0, filler::hping3, 0},
      {"traceroute -I (captured)", hex("48494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f6061626364656667"), 0,
       filler::traceroute, 0},
      {"fping -R (captured)",
       hex("67c6697351ff4aec29cdbaabf2fbe3467cc254f81be8e78d765a2e63339fc99a66320db73158a35a255d051758e95ed4abb2cdc69bb45411"),
       0, filler::fping_random, 0},
      {"oping (captured)", hex("6c69626f70696e67202d2d2049434d502070696e67206c696272617279203c687474703a2f2f6f63746f2e69742f6c69626f70696e672f3e"),
       0, filler::oping, 0},
      {"icmplib (captured)", hex("707730564c4e57486d6f794833494968736b58676a535a314f466e6e41346f495635544f6a6b46475730344a41573572616a54656236484e"),
       0, filler::icmplib, 0},
      {"hex text is data, not icmplib", cycle("0123456789abcdef3a", 56), 0, filler::none, 0},
      {"base64 of text is data, not icmplib",
       hex("49434167494341674943416749434167494341674943416749434248546c55675230564f52564a425443425156554a4d53554d6754456c445255355452516f67"),
       0, filler::none, 0},
      {"Windows ping", cycle("abcdefghijklmnopqrstuvw", 32), 0, filler::windows, 0},
      {"Windows ping -l 1000", cycle("abcdefghijklmnopqrstuvw", 1000), 0, filler::windows, 0},
      {"Cisco IOS", cycle("\xab\xcd", 72), 0, filler::cisco, 0},
      {"macOS: big-endian seconds and microseconds", cat(hex("6a1b2c3d000a1b2c"), counter(8, 48)), 0, filler::bsd, 8},
      {"FreeBSD -p", cat(hex("6a1b2c3d000a1b2c"), cycle("\x12\x34\x56", 48)), 0, filler::bsd, 8},
      {"macOS ping6: the clock, then 0x00, 0x01, ...", cat(hex("6a1b2c3d000a1b2c"), counter(0, 48)), 0, filler::bsd, 8},
      {"Cisco data pattern 0x1234", cycle("\x12\x34", 72), 0, filler::pattern, 0},
      {"Solaris x86: little-endian timeval", cat(hex("3d2c1b6a2c1b0a00"), counter(8, 48)), 0, filler::solaris, 8},
      {"OpenBSD: timespec, MAC", cat(hex("000000006a1b2c3d000000001a2b3c4d0123456789abcdef"), counter(24, 32)), 0,
       filler::openbsd, 24},
      {"nmap -PE: empty", {}, 0, filler::empty, 0},
      {"cut by the capture before the counter", hex("ed88046b00000000bcf90400"), 56, filler::truncated, 0},
      {"iputils cut after the counter began", cat(hex("ed88046b00000000bcf9040000000000"), counter(16, 16)), 1400,
       filler::iputils, 16},
      {"ptunnel-ng header (captured)", hex("deadc0de0a63000200001f40400000000000ffff000000000000dca8"), 0, filler::none, 0},
      {"text chunk", cycle("GNU GENERAL PUBLIC LICENSE Version 3, 29 June 2007 ", 64), 0, filler::none, 0},
      {"iputils layout with a clock that is no timeval", cat(hex("ed88046b11111111bcf9040000000000"), counter(16, 40)), 0,
       filler::none, 0},
  };
  for (const filler_case& c : cases) {
    const uint32_t length = c.length != 0 ? c.length : static_cast<uint32_t>(c.payload.size());
    const auto m = recognise_filler(c.payload.data(), static_cast<uint32_t>(c.payload.size()), length);
    EXPECT_STREQ(filler_name(m.label), filler_name(c.label)) << c.what;
    EXPECT_EQ(m.clock_bytes, c.clock_bytes) << c.what;
  }
}

TEST(sender_fillers_test, timestamp_and_mask_messages_carry_fields) {
  const auto fields = hex("0001e2400001e2410001e242");  // originate, receive, transmit
  EXPECT_EQ(varn::conversations::recognise_payload(13, fields.data(), 12, 12).label, filler::message_fields);
  EXPECT_EQ(varn::conversations::recognise_payload(17, fields.data(), 4, 4).label, filler::message_fields);
  EXPECT_EQ(varn::conversations::recognise_payload(8, fields.data(), 12, 12).label, filler::none);
}

TEST(sender_fillers_test, patterns_are_told_apart_by_their_variant) {
  const auto a = hex("f788046b00000000cd070f0000000000" + std::string("deadbeef") + "deadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeefdeadbeef");
  auto b = a;
  for (size_t i = 16; i < b.size(); i += 4) b[i] = 0x11;
  auto later = a;
  later[8] = 0x99;  // another send time, same pattern
  const auto ma = recognise_filler(a.data(), 56, 56);
  EXPECT_NE(ma.variant, 0u);
  EXPECT_NE(ma.variant, recognise_filler(b.data(), 56, 56).variant);
  EXPECT_EQ(ma.variant, recognise_filler(later.data(), 56, 56).variant);
}

}  // namespace
