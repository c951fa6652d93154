// String extraction: runs of printable ascii bytes and of UTF-16LE units, with their offsets.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zq/zq_strings.hpp"

namespace {

using namespace std::string_literals;

struct found {
  bool scanned = false;
  std::vector<std::string> strings;
  std::vector<uint64_t> offsets;
};

found ascii(const std::string& data, uint32_t min_length = 5) {
  found f;
  f.scanned = zq::extract_ascii_strings(reinterpret_cast<const uint8_t*>(data.data()),
                                        static_cast<uint32_t>(data.size()), min_length, f.strings,
                                        f.offsets, false, false);
  return f;
}

found unicode(const std::string& data, uint32_t min_length = 5) {
  found f;
  f.scanned = zq::extract_unicode_strings(reinterpret_cast<const uint8_t*>(data.data()),
                                          static_cast<uint32_t>(data.size()), min_length, f.strings,
                                          f.offsets, false, false);
  return f;
}

// UTF-16LE form of an ascii text.
std::string utf16(const std::string& text) {
  std::string out;
  for (char c : text) {
    out.push_back(c);
    out.push_back('\0');
  }
  return out;
}

struct scan_case {
  std::string data;
  std::vector<std::string> strings;
  std::vector<uint64_t> offsets;
  const char* what;
};

TEST(strings_test, ascii_runs_and_offsets) {
  const scan_case cases[] = {
      {"  hello\0"s, {"hello"}, {2}, "leading spaces dropped, offset of the first kept character"},
      {"hell", {}, {}, "four letters are too short"},
      {"    abcd\x01"s, {}, {}, "skipped spaces do not count toward the length"},
      {"hello world   \x01"s, {"hello world   "}, {0}, "inner and trailing blanks kept"},
      {"abc  \x01"s, {"abc  "}, {0}, "trailing blanks count toward the length"},
      {"xx\x01" "abcdef", {"abcdef"}, {3}, "a run at the end of the region is kept"},
      {"abcdefg\x01     ", {"abcdefg"}, {0}, "a run of spaces only at the end gives nothing"},
      {"\x01     hello"s, {"hello"}, {6}, "spaces after a break are skipped"},
      {"\0hello\0\0world!\xff" "12345"s, {"hello", "world!", "12345"}, {1, 8, 15}, "several runs"},
      {"hello\tworld\r\nagain", {"hello", "world", "again"}, {0, 6, 13}, "tab, CR and LF break runs"},
      {"hel\x7flo w\x80ld", {}, {}, "0x7f and 0x80 break runs"},
      {" !~}| ", {"!~}| "}, {1}, "punctuation is printable; strict is off"},
      {utf16("ABCDEFGH"), {}, {}, "UTF-16 text never makes an ascii run"},
      {"hello", {"hello"}, {0}, "the whole region"},
  };
  for (const auto& c : cases) {
    const found f = ascii(c.data);
    EXPECT_TRUE(f.scanned) << c.what;
    EXPECT_EQ(f.strings, c.strings) << c.what;
    EXPECT_EQ(f.offsets, c.offsets) << c.what;
  }
}

TEST(strings_test, ascii_minimum_length_is_honoured) {
  const found one = ascii("a\x01" "bc\x02", 1);
  EXPECT_EQ(one.strings, (std::vector<std::string>{"a", "bc"}));
  EXPECT_EQ(one.offsets, (std::vector<uint64_t>{0, 2}));
  const found two = ascii("a\x01" "bc\x02", 2);
  EXPECT_EQ(two.strings, (std::vector<std::string>{"bc"}));
  const found ten = ascii("123456789\x01" "1234567890", 10);
  EXPECT_EQ(ten.strings, (std::vector<std::string>{"1234567890"}));
  EXPECT_EQ(ten.offsets, (std::vector<uint64_t>{10}));
}

TEST(strings_test, unicode_runs_and_offsets) {
  const scan_case cases[] = {
      {utf16("ABCDE"), {"ABCDE"}, {0}, "the UTF-16LE form of ABCDE"},
      {"\x01"s + utf16("ABCDE"), {"ABCDE"}, {1}, "a run at an odd index is found"},
      {"\x01"s + utf16("ABCDE") + "\x02", {"ABCDE"}, {1}, "odd index and an odd trailing byte"},
      {utf16("ABCD"), {}, {}, "four units are too short"},
      {utf16("  hello"), {"hello"}, {4}, "leading spaces dropped"},
      {utf16("  abcd"), {}, {}, "skipped spaces do not count"},
      {utf16("hello  ") + "\x01\0"s, {"hello  "}, {0}, "trailing blanks kept"},
      {utf16("hello") + "\0"s + utf16("world"), {"hello", "world"}, {0, 11}, "a zero byte between runs"},
      {utf16("hello") + "\0\0"s + utf16("world"), {"hello", "world"}, {0, 12}, "a zero unit between runs"},
      {"A\x01"s + utf16("BCDEF"), {"BCDEF"}, {2}, "a unit with a non-zero high byte breaks the run"},
      {utf16("hel") + "\x7f\0"s + utf16("lo wo"), {"lo wo"}, {8}, "0x7f is not printable"},
      {"hello world", {}, {}, "ascii text has no unicode run"},
      {"\0A\0B\0C\0D\0E"s, {}, {}, "big-endian order is not read: only ABCD pair up"},
      {"A", {}, {}, "one byte: nothing examined"},
  };
  for (const auto& c : cases) {
    const found f = unicode(c.data);
    EXPECT_TRUE(f.scanned) << c.what;
    EXPECT_EQ(f.strings, c.strings) << c.what;
    EXPECT_EQ(f.offsets, c.offsets) << c.what;
  }
}

TEST(strings_test, unicode_minimum_length_is_honoured) {
  const found f = unicode(utf16("ab") + "\x01" + utf16("cde"), 3);
  EXPECT_EQ(f.strings, (std::vector<std::string>{"cde"}));
  EXPECT_EQ(f.offsets, (std::vector<uint64_t>{5}));
}

TEST(strings_test, null_or_empty_region_is_refused_and_lists_are_emptied) {
  std::vector<std::string> strings{"stale"};
  std::vector<uint64_t> offsets{99};
  const uint8_t byte = 'a';
  EXPECT_FALSE(zq::extract_ascii_strings(nullptr, 10, 5, strings, offsets, false, false));
  EXPECT_TRUE(strings.empty());
  EXPECT_TRUE(offsets.empty());

  strings = {"stale"};
  offsets = {99};
  EXPECT_FALSE(zq::extract_ascii_strings(&byte, 0, 5, strings, offsets, false, false));
  EXPECT_TRUE(strings.empty());
  EXPECT_TRUE(offsets.empty());

  strings = {"stale"};
  offsets = {99};
  EXPECT_FALSE(zq::extract_unicode_strings(nullptr, 10, 5, strings, offsets, false, false));
  EXPECT_TRUE(strings.empty());
  EXPECT_TRUE(offsets.empty());

  strings = {"stale"};
  offsets = {99};
  EXPECT_FALSE(zq::extract_unicode_strings(&byte, 0, 5, strings, offsets, false, false));
  EXPECT_TRUE(strings.empty());
  EXPECT_TRUE(offsets.empty());
}

TEST(strings_test, earlier_results_are_replaced) {
  std::vector<std::string> strings{"stale"};
  std::vector<uint64_t> offsets{99};
  const std::string data = "\x01" "abcdef";
  ASSERT_TRUE(zq::extract_ascii_strings(reinterpret_cast<const uint8_t*>(data.data()), 7, 5, strings,
                                        offsets, false, false));
  EXPECT_EQ(strings, (std::vector<std::string>{"abcdef"}));
  EXPECT_EQ(offsets, (std::vector<uint64_t>{1}));

  // One byte: the unicode scan examines nothing but still succeeds with empty lists.
  ASSERT_TRUE(zq::extract_unicode_strings(reinterpret_cast<const uint8_t*>(data.data()), 1, 5, strings,
                                          offsets, false, false));
  EXPECT_TRUE(strings.empty());
  EXPECT_TRUE(offsets.empty());
}

}  // namespace
