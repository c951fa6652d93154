// The byte pattern of -find_pattern / -find_pattern_h: its elements, and find() against
// find_by_walk() and a step-by-step search written out from the description.
#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "capture/byte_pattern.hpp"

namespace {

// "45:2 10:0": each element's literal in hex (or "-" for none) and its skip.
std::string elements(const varn::byte_pattern& p) {
  std::string s;
  for (const varn::pattern_element& e : p.elements()) {
    for (uint8_t b : e.literal.bytes()) s += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    s += e.has_literal ? ":" : "-:";
    s += std::to_string(e.skip);
    s += ' ';
  }
  return s.substr(0, s.size() - !s.empty());
}

TEST(byte_pattern_test, builds_elements_from_tokens) {
  const struct {
    const char* text;
    bool hex;
    const char* elements;
    size_t min_length;
  } cases[] = {
      {"0x45 ? ? 0x10", false, "45:2 10:0", 4},       {"45 ? ? 10", true, "45:2 10:0", 4},
      {"1 2 3", false, "010203:0", 3},                 {"? ? 7", false, "-:2 07:0", 3},
      {"7 ? ? ?", false, "07:3", 4},                   {"1 2 ? 3 ? ? 4 5", false, "0102:1 03:2 0405:0", 8},
      {"?? 1 ?x ?7 2", false, "-:1 01:2 02:0", 5},     {"  1   ?    2  ", false, "01:1 02:0", 3},
      // The number forms, keeping the low 8 bits; a token that does not read is 0.
      {"65 0x41 0X41 x41 o101 'A' '?' +7 300 0x1ff -1 12abc 1x41 'x' o8 abc 'AB'", false,
       "4141414141413f072cffff0c4100000000:0", 17},
      {"41 ff FF 0x41 1ff 12zz -1 zz 'A'", true, "41ffff41ff12ff0000:0", 9},
  };
  for (const auto& c : cases) {
    varn::byte_pattern p;
    EXPECT_TRUE(p.build(c.text, c.hex)) << c.text;
    EXPECT_EQ(elements(p), c.elements) << c.text;
    EXPECT_EQ(p.min_length(), c.min_length) << c.text;
  }
  for (const char* text : {"", " ", "?", "? ? ?", "  ?  ??  ?x "}) {
    varn::byte_pattern p;
    EXPECT_FALSE(p.build(text, false) || p.valid() || !p.elements().empty()) << text;
  }
}

std::optional<size_t> found(const varn::byte_pattern& p, const std::vector<uint8_t>& data, bool walk) {
  size_t at = 0;
  const bool hit = walk ? p.find_by_walk(data.data(), data.size(), &at) : p.find(data.data(), data.size(), &at);
  return hit ? std::optional<size_t>(at) : std::nullopt;
}

TEST(byte_pattern_test, finds_as_the_step_by_step_search) {
  std::mt19937 rng(4242);
  size_t matches = 0;
  // The examples first: the lowest start wins; leading wildcards come before the literal; trailing
  // ones count in the minimum length but need not lie inside the range.
  const std::tuple<const char*, std::vector<uint8_t>, std::optional<size_t>> examples[] = {
      {"0x45 ? ? 16", {0x45, 16, 0x45, 1, 2, 16}, 2}, {"0x45 ? ? 16", {0x45, 1, 16}, {}}, {"170 187", {170, 170, 187, 170, 187}, 1},
      {"? ? 7", {1, 2, 3, 7}, 1}, {"? ? 7", {7, 7, 1}, {}}, {"7 ? ?", {1, 7, 2}, 1}, {"7 ? ?", {7, 1}, {}}, {"1 2 3", {9, 9, 1, 2}, {}}};
  for (const auto& [text, data, at] : examples) {
    varn::byte_pattern p;
    ASSERT_TRUE(p.build(text, false));
    EXPECT_EQ(found(p, data, false), at) << text;
    EXPECT_EQ(found(p, data, true), at) << text;
  }
  for (int round = 0; round < 32000; ++round) {
    const unsigned alphabet = 2 + rng() % 3;
    std::string text;
    for (size_t n = 1 + rng() % 8; n > 0; --n) {
      text += ' ';
      text += rng() % 3 == 0 ? std::string("?") : std::to_string(rng() % alphabet * 17);
    }
    varn::byte_pattern p;
    p.build(text, false);
    std::vector<uint8_t> data(rng() % 24);
    for (uint8_t& b : data) b = static_cast<uint8_t>(rng() % alphabet * 17);
    // Each start in turn; a mismatch tries the next start, a literal past the end stops.
    std::optional<size_t> want;
    for (size_t s = 0; s < data.size() && p.valid() && p.min_length() <= data.size(); ++s) {
      size_t at = s, walked = 0;
      for (const varn::pattern_element& e : p.elements()) {
        const std::vector<uint8_t>& lit = e.literal.bytes();
        if (at >= data.size() || at + lit.size() > data.size() || !std::equal(lit.begin(), lit.end(), data.begin() + static_cast<std::ptrdiff_t>(at)))
          break;
        at += lit.size() + e.skip, ++walked;
      }
      const bool mismatch = walked < p.elements().size() && at < data.size() && at + p.elements()[walked].literal.size() <= data.size();
      if (walked == p.elements().size()) want = s;
      if (!mismatch) break;
    }
    ASSERT_EQ(found(p, data, false), want) << text << " in " << data.size() << " bytes";
    ASSERT_EQ(found(p, data, true), want) << text << " in " << data.size() << " bytes";
    matches += want.has_value();
  }
  EXPECT_GT(matches, 3200u);
  EXPECT_LT(matches, 28800u);
}

TEST(byte_pattern_test, run_of_65535_wildcards_is_an_open_gap) {
  std::string text = "45";
  for (int i = 0; i < 65535; ++i) text += " ?";
  varn::byte_pattern p;
  ASSERT_TRUE(p.build(text + " 46", true));
  EXPECT_EQ(elements(p), "45:65535 46:0");
  EXPECT_EQ(p.min_length(), 65537u);
  std::vector<uint8_t> data(70000, 0);
  data[10] = 0x45;
  data[300] = 0x46;  // much closer than 65535 bytes behind: the gap is open
  EXPECT_EQ(found(p, data, false), 10u);
  data[300] = 0;
  EXPECT_EQ(found(p, data, false), std::nullopt);
  EXPECT_EQ(found(p, std::vector<uint8_t>{0x45, 0x46}, false), std::nullopt);
}

}  // namespace
