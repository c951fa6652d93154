// The payload randomness test: the thresholds on histograms worked out by hand, and the short-cut
// test of the metadata record against the full statistics on sweeps across them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>

#include "support/capture_text.hpp"
#include "zq/zq_stats.hpp"

namespace {

// K bytes of each value, COUNT of VALUE, shuffled by SEED.
std::string histogram(uint32_t k, int value = 0, uint32_t count = 0, uint32_t seed = 1) {
  std::array<uint32_t, 256> c;
  c.fill(k);
  c[value] = value != 0 || count != 0 ? count : k;
  std::string out;
  for (int v = 0; v < 256; ++v) out.append(c[v], static_cast<char>(v));
  std::shuffle(out.begin(), out.end(), std::mt19937(seed));
  return out;
}

// 100 of each value, then MOVES bytes moved from value 128 + j to j (DOWN) or back, spread over j,
// then NUDGE bytes one value further out: 1500 moves down give mean 120.0, 500 up 130.0.
std::string shifted(uint32_t moves, bool down, uint32_t nudge = 0) {
  std::string out = histogram(100);
  std::sort(out.begin(), out.end(), [](char a, char b) { return static_cast<uint8_t>(a) < static_cast<uint8_t>(b); });
  for (uint32_t i = 0; i < moves; ++i) out[(down ? 128 + i % 128 : i % 128) * 100 + i / 128] ^= '\x80';
  for (uint32_t i = 0; i < nudge; ++i) out[(down ? 1 : 254) * 100 + 99 - i] = down ? '\0' : '\xff';
  return out;
}

bool full(const std::string& b) { return zq::stats(reinterpret_cast<const uint8_t*>(b.data()), static_cast<int>(b.size())).entropy_high(); }
bool short_cut(const std::string& b) { return zq::payload_entropy_high(reinterpret_cast<const uint8_t*>(b.data()), static_cast<uint32_t>(b.size())); }

TEST(stats_test, thresholds_are_inclusive_and_exact) {
  const std::tuple<std::string, bool, const char*> cases[] = {
      {varn_test::all_values(1, 7), true, "each value once: mean 127.5, stddev 73.9, entropy 1, spread 0"},
      {varn_test::all_values(1, 7).substr(1), false, "255 bytes: a value is missing, spread 100"},
      {histogram(20, 77, 0), false, "one missing value in 5100 bytes"},
      {std::string(4096, '\x7f'), false, "one value: entropy 0"},
      {shifted(1500, true), true, "mean exactly 120"},         {shifted(1500, true, 1), false, "mean 120 - 1/25600"},
      {shifted(500, false), true, "mean exactly 130"},         {shifted(500, false, 1), false, "mean 130 + 1/25600"},
      {histogram(10, 128, 6), true, "spread (10 - 6) / 10 = 40 %"}, {histogram(10, 128, 5), false, "spread 50 %"},
      {histogram(100, 128, 60), true, "spread 40 %"},          {histogram(100, 128, 59), false, "spread 41 %"}};
  for (const auto& [bytes, high, what] : cases) {
    EXPECT_EQ(full(bytes), high) << what;
    EXPECT_EQ(short_cut(bytes), high) << what;
  }
  EXPECT_FALSE(zq::stats(nullptr, 10).entropy_high() || zq::payload_entropy_high(nullptr, 4096));
}

TEST(stats_test, short_cut_answers_as_the_full_statistics) {
  std::vector<std::string> buffers;
  std::mt19937 rng(42);
  for (uint32_t n = 1; n <= 4096; ++n) buffers.push_back(varn_test::seeded_bytes(n, n * 31 + 1));
  for (uint32_t variant = 0; variant < 16 * 24; ++variant) {  // every value 1 to 16 times, a few bytes changed
    std::string b = varn_test::all_values(1 + variant / 24, variant);
    for (uint32_t i = 0; i < variant % 8; ++i) b[rng() % b.size()] = static_cast<char>(rng());
    buffers.push_back(variant % 3 == 0 ? b : variant % 3 == 1 ? b.substr(1) : b + static_cast<char>(rng()));
  }
  for (uint32_t moves = 480; moves <= 520; ++moves)  // means around 120 and 130
    for (uint32_t nudge = 0; nudge <= 2; ++nudge) buffers.insert(buffers.end(), {shifted(moves + 1000, true, nudge), shifted(moves, false, nudge)});
  for (uint32_t top : {5u, 10u, 20u, 25u, 50u, 100u})  // spreads around 40 %
    for (uint32_t low = top / 2; low <= top; ++low) buffers.push_back(histogram(top, 5, low, top + low));
  for (uint32_t outer = 1; outer <= 30; ++outer)  // heavier middle values: stddev around 65
    for (int width = 0; width <= 128; width += 8) {
      std::string b;
      for (int v = 0; v < 256; ++v) b.append(std::abs(v * 2 - 255) < width * 2 ? 30 : outer, static_cast<char>(v));
      buffers.push_back(b);
    }
  for (uint32_t extra = 0; extra <= 1200; extra += 40)  // one dominant value: entropy around 0.987
    for (int value : {0, 127, 128, 255}) buffers.push_back(histogram(20, value, 20 + extra));
  size_t high = 0;
  for (const std::string& b : buffers) {
    high += full(b);
    ASSERT_EQ(short_cut(b), full(b)) << b.size() << " bytes";
  }
  EXPECT_GT(high, 200u);
  EXPECT_LT(high, buffers.size() / 2);
}

}  // namespace
