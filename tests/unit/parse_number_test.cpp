// The command line's number reader and its list readers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options/parse_number.hpp"

namespace {

struct number_case {
  const char* text;
  bool ok;
  uint32_t value;
};

TEST(parse_number_test, number_forms) {
  const number_case cases[] = {
      {"0", true, 0},
      {"42", true, 42},
      {"+7", true, 7},
      {"017", true, 17},  // decimal: no octal without "o"
      {"12abc", true, 12},
      {"10.1.2.3", true, 10},  // no dotted-quad reading
      {"192.168.1.1", true, 192},
      {"0x1f", true, 0x1f},
      {"0X1F", true, 0x1f},
      {"0x0101A8C0", true, 0x0101a8c0},
      {"0xffffffff", true, 0xffffffffu},
      {"0x123456789", true, 0x23456789u},  // truncated to 32 bits
      {"0x1g", true, 1},
      {"x1f", true, 0x1f},
      {"X10", true, 0x10},
      {"1x10", true, 0x10},  // a second character "x" means hexadecimal from the third on
      {"o17", true, 15},
      {"O17", true, 15},
      {"o19", true, 1},
      {"4294967295", true, 0xffffffffu},
      {"4294967296", true, 0},  // truncated to 32 bits
      {"4294967297", true, 1},
      {"-1", true, 0xffffffffu},
      {"-5", true, 0xfffffffbu},
      {"'A'", true, 65},
      {"' '", true, 32},
      {"'''", true, 39},
      {"'0'", true, 48},
      {"", false, 0},
      {"abc", false, 0},
      {" 5", false, 0},
      {"'AB'", false, 0},
      {"''", false, 0},
      {"'A", false, 0},
      {"?", false, 0},
  };
  for (const auto& c : cases) {
    uint32_t out = 12345;
    EXPECT_EQ(varn::parse_number(c.text, out), c.ok) << '"' << c.text << '"';
    EXPECT_EQ(out, c.value) << '"' << c.text << '"';
  }
}

struct list_case {
  const char* text;
  std::vector<uint64_t> values;
};

TEST(parse_number_test, number_lists) {
  const list_case cases[] = {
      {"0,8;3|11", {0, 8, 3, 11}},
      {"1 2 3", {1, 2, 3}},
      {"5", {5}},
      {"7|7", {7, 7}},
      {"0x1F,X1f,x10,0X10", {31, 31, 16, 16}},
      {"o17;O17", {15, 15}},
      {"017", {17}},
      {"264", {264}},  // kept whole; the handler compares the low 8 bits
      {"18446744073709551615", {18446744073709551615ULL}},
      {"12abc", {12}},
      {"\t9", {9}},  // leading blanks other than the separators
      {"1,,2", {1, 2}},
      {",1;", {1}},
      {"  4  ", {4}},
      {"", {}},
      {"|,; ", {}},
  };
  for (const auto& c : cases) {
    std::vector<uint64_t> out;
    varn::read_number_list(c.text, out);
    EXPECT_EQ(out, c.values) << '"' << c.text << '"';
  }
}

TEST(parse_number_test, number_list_appends) {
  std::vector<uint64_t> out{99};
  varn::read_number_list("1,2", out);
  EXPECT_EQ(out, (std::vector<uint64_t>{99, 1, 2}));
}

TEST(parse_number_test, frame_lists) {
  const list_case cases[] = {
      {"1 2 3", {1, 2, 3}},
      {"3", {3}},
      {"  7  8 ", {7, 8}},
      {"a 5 b6 +9", {5, 9}},  // pieces not starting with a digit, "+" or "-" are skipped
      {"1,2", {1}},            // only spaces separate frames
      {"12abc", {12}},
      {"0x10", {0}},  // frames are decimal
      {"18446744073709551615", {18446744073709551615ULL}},
      {"", {}},
  };
  for (const auto& c : cases) {
    std::vector<uint64_t> out;
    varn::read_frame_list(c.text, out);
    EXPECT_EQ(out, c.values) << '"' << c.text << '"';
  }
}

}  // namespace
