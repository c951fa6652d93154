// The byte pattern of -find_pattern / -find_pattern_h: building it from the option text and
// searching byte ranges with it.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "capture/byte_pattern.hpp"

namespace {

struct element {
  std::vector<uint8_t> literal;  // empty: no literal
  uint16_t skip;
  bool operator==(const element&) const = default;
};

std::vector<element> elements_of(const varn::byte_pattern& p) {
  std::vector<element> out;
  for (const varn::pattern_element& e : p.elements()) {
    EXPECT_EQ(e.has_literal, !e.literal.empty());
    out.push_back({e.literal.bytes(), e.skip});
  }
  return out;
}

std::string describe(const std::vector<element>& es) {
  std::string s;
  for (const element& e : es) {
    s += "(";
    for (uint8_t b : e.literal) {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%02x", b);
      s += hex;
    }
    s += " skip " + std::to_string(e.skip) + ") ";
  }
  return s;
}

// ---------------------------------------------------------------------------------------------
// Building.

struct build_case {
  const char* text;
  bool hexadecimal;
  std::vector<element> expected;
  size_t min_length;
};

TEST(byte_pattern_test, builds_elements_from_tokens) {
  const build_case cases[] = {
      // The documented example, in both number forms.
      {"0x45 ? ? 0x10", false, {{{0x45}, 2}, {{0x10}, 0}}, 4},
      {"45 ? ? 10", true, {{{0x45}, 2}, {{0x10}, 0}}, 4},
      // Adjacent literals share one run.
      {"1 2 3", false, {{{1, 2, 3}, 0}}, 3},
      {"de ad be ef", true, {{{0xde, 0xad, 0xbe, 0xef}, 0}}, 4},
      // Leading wildcards: an element without literal.
      {"? ? 7", false, {{{}, 2}, {{7}, 0}}, 3},
      // Trailing wildcards become the last run's skip and count in the minimum length.
      {"7 ? ? ?", false, {{{7}, 3}}, 4},
      // Runs of literals separated by wildcards.
      {"1 2 ? 3 ? ? 4 5", false, {{{1, 2}, 1}, {{3}, 2}, {{4, 5}, 0}}, 8},
      {"? 1 ? 2 ?", false, {{{}, 1}, {{1}, 1}, {{2}, 1}}, 5},
      // Any token starting with "?" is one wildcard.
      {"?? 1 ?x ?7 2", false, {{{}, 1}, {{1}, 2}, {{2}, 0}}, 5},
      // Several spaces and leading or trailing spaces make empty tokens, which are ignored.
      {"  1   ?    2  ", false, {{{1}, 1}, {{2}, 0}}, 3},
  };
  for (const build_case& c : cases) {
    SCOPED_TRACE(c.text);
    varn::byte_pattern p;
    EXPECT_TRUE(p.build(c.text, c.hexadecimal));
    EXPECT_TRUE(p.valid());
    EXPECT_EQ(elements_of(p), c.expected) << describe(elements_of(p));
    EXPECT_EQ(p.min_length(), c.min_length);
    EXPECT_EQ(p.scope(), 0u);
  }
}

TEST(byte_pattern_test, reads_literal_tokens_by_number_form_keeping_low_eight_bits) {
  struct token_case {
    const char* token;
    bool hexadecimal;
    uint8_t byte;
  };
  const token_case cases[] = {
      // The command-line number reader.
      {"65", false, 65},
      {"0x41", false, 0x41},
      {"0X41", false, 0x41},
      {"x41", false, 0x41},
      {"o101", false, 0101},
      {"'A'", false, 'A'},
      {"'?'", false, '?'},
      {"+7", false, 7},
      {"300", false, 300 & 0xff},
      {"0x1ff", false, 0xff},
      {"-1", false, 0xff},
      {"12abc", false, 12},
      // A second character "x" means hexadecimal whatever the first is; it is tested before the
      // quoted character, so 'x' reads as hexadecimal text with no digits.
      {"1x41", false, 0x41},
      {"'x'", false, 0},
      {"'X'", false, 0},
      {"o8", false, 0},
      // Tokens that do not read give 0.
      {"abc", false, 0},
      {"A", false, 0},
      {"'AB'", false, 0},
      // Bare hexadecimal, read to the first foreign character.
      {"41", true, 0x41},
      {"ff", true, 0xff},
      {"FF", true, 0xff},
      {"0x41", true, 0x41},
      {"1ff", true, 0xff},
      {"12zz", true, 0x12},
      {"-1", true, 0xff},
      {"zz", true, 0},
      {"'A'", true, 0},
  };
  for (const token_case& c : cases) {
    SCOPED_TRACE(std::string(c.token) + (c.hexadecimal ? " hex" : " number"));
    varn::byte_pattern p;
    ASSERT_TRUE(p.build(c.token, c.hexadecimal));
    ASSERT_EQ(p.elements().size(), 1u);
    EXPECT_EQ(elements_of(p)[0], (element{{c.byte}, 0}));
  }
}

TEST(byte_pattern_test, wildcards_alone_or_nothing_give_no_pattern) {
  for (const char* text : {"", " ", "?", "? ? ?", "  ?  ??  ?x "}) {
    SCOPED_TRACE(text);
    varn::byte_pattern p;
    EXPECT_FALSE(p.build(text, false));
    EXPECT_FALSE(p.valid());
    EXPECT_TRUE(p.elements().empty());
    EXPECT_EQ(p.min_length(), 0u);
  }
}

TEST(byte_pattern_test, token_reading_zero_is_still_a_literal_byte) {
  varn::byte_pattern p;
  EXPECT_TRUE(p.build("nonsense", false));
  EXPECT_EQ(elements_of(p), (std::vector<element>{{{0}, 0}}));
  const uint8_t data[] = {5, 5, 0, 5};
  size_t at = 99;
  EXPECT_TRUE(p.find(data, sizeof data, &at));
  EXPECT_EQ(at, 2u);
}

TEST(byte_pattern_test, rebuilding_and_reset_start_from_scratch) {
  varn::byte_pattern p;
  ASSERT_TRUE(p.build("1 ? 2", false));
  p.set_scope(varn::byte_pattern::scope_payload);
  ASSERT_TRUE(p.build("9", false));
  EXPECT_EQ(elements_of(p), (std::vector<element>{{{9}, 0}}));
  EXPECT_EQ(p.min_length(), 1u);
  EXPECT_EQ(p.scope(), 0u);
  EXPECT_FALSE(p.build("?", false));
  EXPECT_TRUE(p.elements().empty());
  ASSERT_TRUE(p.build("3 4", false));
  p.reset();
  EXPECT_FALSE(p.valid());
  EXPECT_TRUE(p.elements().empty());
  EXPECT_EQ(p.min_length(), 0u);
  const uint8_t data[] = {3, 4};
  EXPECT_FALSE(p.find(data, 2));
}

TEST(byte_pattern_test, copy_searches_with_its_own_bytes) {
  // The driver copies the pattern of the options into the frame context; the copy must not
  // depend on the original staying as it was.
  varn::byte_pattern copy;
  varn::byte_pattern assigned;
  {
    varn::byte_pattern original;
    ASSERT_TRUE(original.build("aa ? bb cc", true));
    varn::byte_pattern constructed(original);
    copy = constructed;
    assigned = original;
    original.build("11 ? 22 33", true);  // new literal storage for the original
    constructed.reset();
  }
  const std::vector<uint8_t> data{0x11, 0x00, 0xaa, 0x01, 0xbb, 0xcc, 0x11, 0x02, 0x22, 0x33};
  for (const varn::byte_pattern* p : {&copy, &assigned}) {
    size_t at = 0;
    EXPECT_TRUE(p->find(data.data(), data.size(), &at));
    EXPECT_EQ(at, 2u);
    EXPECT_TRUE(p->find_by_walk(data.data(), data.size(), &at));
    EXPECT_EQ(at, 2u);
  }
  // Moving keeps the bytes too.
  varn::byte_pattern moved(std::move(copy));
  size_t at = 0;
  EXPECT_TRUE(moved.find(data.data(), data.size(), &at));
  EXPECT_EQ(at, 2u);
}

// ---------------------------------------------------------------------------------------------
// Searching.

varn::byte_pattern built(const std::string& text) {
  varn::byte_pattern p;
  EXPECT_TRUE(p.build(text, true)) << text;
  return p;
}

std::optional<size_t> found_by_find(const varn::byte_pattern& p, const std::vector<uint8_t>& data) {
  size_t at = 0;
  if (!p.find(data.data(), data.size(), &at)) return std::nullopt;
  return at;
}

std::optional<size_t> found_by_walk(const varn::byte_pattern& p, const std::vector<uint8_t>& data) {
  size_t at = 0;
  if (!p.find_by_walk(data.data(), data.size(), &at)) return std::nullopt;
  return at;
}

struct search_case {
  const char* pattern;  // hexadecimal tokens
  std::vector<uint8_t> data;
  std::optional<size_t> at;
};

TEST(byte_pattern_test, finds_lowest_matching_start) {
  const search_case cases[] = {
      {"45 ? ? 10", {0x45, 0, 0, 0x10}, 0},
      {"45 ? ? 10", {0x45, 0x45, 0, 0x10, 0x10}, 0},
      {"45 ? ? 10", {0x45, 0x10, 0x45, 1, 2, 0x10}, 2},
      {"45 ? ? 10", {0x45, 1, 2, 0x11}, std::nullopt},
      {"45 ? ? 10", {0x45, 1, 0x10}, std::nullopt},  // shorter than the minimum length
      // Lowest start wins even when a later start matches too.
      {"aa ? aa", {0xaa, 0xaa, 0xaa, 0xaa}, 0},
      {"aa bb", {0xaa, 0xaa, 0xbb, 0xaa, 0xbb}, 1},
      // Leading wildcards: the literal must lie behind them.
      {"? ? 7", {7, 7, 7}, 0},
      {"? ? 7", {7, 7, 1}, std::nullopt},
      {"? ? 7", {1, 2, 3, 7}, 1},
      // Trailing wildcards count in the minimum length, but a literal near the end still matches
      // once the range is long enough: the walk is over when the last element is walked.
      {"7 ? ?", {7, 1}, std::nullopt},
      {"7 ? ?", {1, 2, 7}, 2},
      {"7 ? ?", {1, 7, 2}, 1},
      // Matching at the very end.
      {"1 2 3", {9, 9, 1, 2, 3}, 2},
      {"1 2 3", {9, 9, 1, 2}, std::nullopt},
      // A single byte.
      {"0", {1, 2, 0}, 2},
      {"0", {}, std::nullopt},
  };
  for (const search_case& c : cases) {
    SCOPED_TRACE(c.pattern);
    const varn::byte_pattern p = built(c.pattern);
    EXPECT_EQ(found_by_find(p, c.data), c.at);
    EXPECT_EQ(found_by_walk(p, c.data), c.at);
  }
}

TEST(byte_pattern_test, no_data_or_no_pattern_never_matches) {
  const varn::byte_pattern p = built("1");
  const uint8_t one[] = {1};
  EXPECT_FALSE(p.find(nullptr, 5));
  EXPECT_FALSE(p.find_by_walk(nullptr, 5));
  EXPECT_FALSE(p.find(one, 0));
  EXPECT_FALSE(p.find_by_walk(one, 0));
  varn::byte_pattern empty;
  EXPECT_FALSE(empty.find(one, 1));
  EXPECT_FALSE(empty.find_by_walk(one, 1));
}

TEST(byte_pattern_test, run_of_65535_wildcards_is_an_open_gap) {
  std::string text = "45";
  for (int i = 0; i < 65535; ++i) text += " ?";
  text += " 46";
  varn::byte_pattern p;
  ASSERT_TRUE(p.build(text, true));
  EXPECT_EQ(elements_of(p), (std::vector<element>{{{0x45}, 65535}, {{0x46}, 0}}));
  EXPECT_EQ(p.min_length(), 65537u);
  std::vector<uint8_t> data(70000, 0);
  data[10] = 0x45;
  data[300] = 0x46;  // far closer than 65535 bytes behind the 0x45: the gap is open
  EXPECT_EQ(found_by_find(p, data), 10u);
  EXPECT_EQ(found_by_walk(p, data), 10u);
  data[300] = 0;
  EXPECT_EQ(found_by_find(p, data), std::nullopt);
  EXPECT_EQ(found_by_walk(p, data), std::nullopt);
  // Shorter than the minimum length: no match.
  std::vector<uint8_t> short_data(65536, 0);
  short_data[0] = 0x45;
  short_data[1] = 0x46;
  EXPECT_EQ(found_by_find(p, short_data), std::nullopt);
}

// The build and the search written out step by step, for random patterns.
struct reference_pattern {
  std::vector<element> elements;
  size_t min_length = 0;
};

// TOKENS: -1 for a "?" token, otherwise the literal byte.
reference_pattern reference_build(const std::vector<int>& tokens) {
  reference_pattern r;
  std::vector<uint8_t> run;
  unsigned w = 0;
  auto append = [&](const std::vector<uint8_t>& literal, unsigned skip) {
    if (literal.empty() && skip == 0) return;
    r.elements.push_back({literal, static_cast<uint16_t>(skip)});
    r.min_length += literal.size() + skip;
  };
  for (int t : tokens) {
    if (t < 0) {
      ++w;
      continue;
    }
    if (w != 0) {
      append(run, w);
      run.clear();
    }
    run.push_back(static_cast<uint8_t>(t));
    w = 0;
  }
  if (!run.empty()) append(run, w);
  return r;
}

std::optional<size_t> reference_search(const reference_pattern& r, const std::vector<uint8_t>& data) {
  const size_t n = data.size();
  if (r.elements.empty() || n == 0 || r.min_length > n) return std::nullopt;
  for (size_t s = 0; s < n; ++s) {
    size_t p = s;
    size_t walked = 0;
    bool failed = false;
    for (const element& e : r.elements) {
      if (p >= n) break;
      if (e.literal.empty()) {
        p += e.skip;
      } else {
        const size_t k = e.literal.size();
        if (p + k > n) return std::nullopt;
        if (!std::equal(e.literal.begin(), e.literal.end(), data.begin() + static_cast<std::ptrdiff_t>(p))) {
          failed = true;
          break;
        }
        p += k + e.skip;
      }
      ++walked;
    }
    if (failed) continue;
    if (walked == r.elements.size()) return s;
    return std::nullopt;
  }
  return std::nullopt;
}

TEST(byte_pattern_test, random_patterns_agree_with_step_by_step_walk) {
  std::mt19937 rng(4242);
  size_t matches = 0;
  size_t total = 0;
  for (int round = 0; round < 4000; ++round) {
    // A small alphabet so that patterns match often.
    const int alphabet = 2 + static_cast<int>(rng() % 3);
    std::vector<int> tokens(1 + rng() % 8);
    for (int& t : tokens) t = rng() % 3 == 0 ? -1 : static_cast<int>(rng() % alphabet) * 0x11;
    const bool hexadecimal = rng() % 2 == 0;
    std::string text;
    for (int t : tokens) {
      char tok[16];
      if (t < 0)
        std::snprintf(tok, sizeof tok, "?");
      else
        std::snprintf(tok, sizeof tok, hexadecimal ? "%x" : "0x%x", t);
      text += (text.empty() ? "" : " ") + std::string(tok);
    }
    const reference_pattern ref = reference_build(tokens);
    varn::byte_pattern p;
    EXPECT_EQ(p.build(text, hexadecimal), ref.min_length != 0) << text;
    ASSERT_EQ(elements_of(p), ref.elements) << text;
    ASSERT_EQ(p.min_length(), ref.min_length) << text;
    for (int d = 0; d < 8; ++d) {
      std::vector<uint8_t> data(rng() % 24);
      for (uint8_t& b : data) b = static_cast<uint8_t>((rng() % alphabet) * 0x11);
      const std::optional<size_t> expected = reference_search(ref, data);
      ASSERT_EQ(found_by_find(p, data), expected) << text << " in " << data.size() << " bytes";
      ASSERT_EQ(found_by_walk(p, data), expected) << text << " in " << data.size() << " bytes";
      ++total;
      if (expected) ++matches;
    }
  }
  // The random cases must exercise both outcomes.
  EXPECT_GT(matches, total / 10);
  EXPECT_LT(matches, total - total / 10);
}

}  // namespace
