// The command line's number reader and its list readers.
#include <gtest/gtest.h>

#include "options/parse_number.hpp"

namespace {

TEST(parse_number_test, number_forms) {
  const struct {
    const char* text;
    bool ok;
    uint32_t value;
  } cases[] = {{"0", true, 0}, {"+7", true, 7}, {"017", true, 17}, {"12abc", true, 12}, {"192.168.1.1", true, 192},
               {"0X1F", true, 0x1f}, {"0x0101A8C0", true, 0x0101a8c0}, {"0x123456789", true, 0x23456789u},
               {"0x1g", true, 1}, {"x1f", true, 0x1f}, {"X10", true, 0x10}, {"1x10", true, 0x10}, {"o17", true, 15},
               {"O17", true, 15}, {"o19", true, 1}, {"4294967296", true, 0}, {"4294967297", true, 1}, {"-5", true, 0xfffffffbu},
               {"'A'", true, 65}, {"'''", true, 39}, {"' '", true, 32}, {"", false, 0}, {"abc", false, 0}, {" 5", false, 0},
               {"'AB'", false, 0}, {"''", false, 0}, {"'A", false, 0}, {"?", false, 0}};
  for (const auto& c : cases) {
    uint32_t out = 12345;
    EXPECT_EQ(varn::parse_number(c.text, out), c.ok) << '"' << c.text << '"';
    EXPECT_EQ(out, c.value) << '"' << c.text << '"';
  }
}

TEST(parse_number_test, number_and_frame_lists) {
  const struct {
    bool frames;
    const char* text;
    std::vector<uint64_t> values;
  } cases[] = {
      {false, "0,8;3|11", {0, 8, 3, 11}}, {false, "0x1F,X1f,x10,0X10", {31, 31, 16, 16}}, {false, "o17;O17", {15, 15}},
      {false, "017", {17}}, {false, "264", {264}}, {false, "18446744073709551615", {18446744073709551615ULL}},
      {false, "12abc", {12}}, {false, "\t9", {9}}, {false, "1,,2", {1, 2}}, {false, "  4  ", {4}}, {false, "|,; ", {}},
      {true, "  7  8 ", {7, 8}}, {true, "a 5 b6 +9", {5, 9}}, {true, "1,2", {1}}, {true, "12abc", {12}}, {true, "0x10", {0}},
      {true, "18446744073709551615", {18446744073709551615ULL}}, {true, "", {}}};
  for (const auto& c : cases) {
    std::vector<uint64_t> out{99};
    (c.frames ? varn::read_frame_list : varn::read_number_list)(c.text, out);
    out.erase(out.begin());
    EXPECT_EQ(out, c.values) << (c.frames ? "frames " : "numbers ") << '"' << c.text << '"';
  }
}

}  // namespace
