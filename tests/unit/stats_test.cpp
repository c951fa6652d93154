// Byte statistics and the payload randomness test; the short-cut test used by the metadata record
// must answer as the full statistics do on every buffer.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/pcap_builder.hpp"
#include "zq/zq_stats.hpp"

namespace {

using counts = std::array<uint32_t, 256>;

const uint8_t* as_bytes(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

// A buffer holding COUNTS[v] bytes of each value v, in an order shuffled by SEED.
std::string from_counts(const counts& c, uint32_t seed) {
  std::string out;
  for (int v = 0; v < 256; ++v) out.append(c[v], static_cast<char>(v));
  std::mt19937 rng(seed);
  for (size_t i = out.size(); i > 1; --i) std::swap(out[i - 1], out[rng() % i]);
  return out;
}

counts flat(uint32_t k) {
  counts c;
  c.fill(k);
  return c;
}

// Moves MOVES bytes, spread evenly, from each value 128 + j to value j (DOWN) or back (up):
// every move changes the sum by 128.
counts shift_mean(uint32_t k, uint32_t moves, bool down) {
  counts c = flat(k);
  for (uint32_t j = 0; j < 128; ++j) {
    const uint32_t n = moves / 128 + (j < moves % 128 ? 1 : 0);
    if (down) {
      c[128 + j] -= n;
      c[j] += n;
    } else {
      c[j] -= n;
      c[128 + j] += n;
    }
  }
  return c;
}

bool full_test(const std::string& b) {
  return zq::stats(as_bytes(b), static_cast<int>(b.size())).entropy_high();
}
bool short_test(const std::string& b) {
  return zq::payload_entropy_high(as_bytes(b), static_cast<uint32_t>(b.size()));
}

TEST(stats_test, no_data_stays_reset_and_not_random) {
  const uint8_t byte = 0x80;
  const zq::stats null_data(nullptr, 10), zero_length(&byte, 0);
  for (const zq::stats* p : {&null_data, &zero_length}) {
    const zq::stats& s = *p;
    EXPECT_FALSE(s.computed());
    EXPECT_FALSE(s.entropy_high());
    EXPECT_EQ(s.num_values(), 0u);
    EXPECT_EQ(s.min_value(), 255.0);
    EXPECT_EQ(s.max_value(), 0.0);
    EXPECT_EQ(s.min_nonzero_value(), 255.0);
    EXPECT_EQ(s.min_hist(), 65535u);
    EXPECT_EQ(s.max_hist(), 0u);
    EXPECT_EQ(s.min_histnz(), 65535u);
    EXPECT_EQ(s.max_histnz(), 0u);
    ASSERT_EQ(s.histogram().size(), 256u);
    for (uint32_t c : s.histogram()) EXPECT_EQ(c, 0u);
  }
  EXPECT_FALSE(zq::payload_entropy_high(nullptr, 4096));
  EXPECT_FALSE(zq::payload_entropy_high(&byte, 0));
}

TEST(stats_test, figures_of_a_small_buffer) {
  // 0, 2, 4: mean 2, variance 20/3 - 4; non-zero bytes 2 and 4: mean 3, variance 10 - 9.
  const uint8_t data[] = {4, 0, 2};
  const zq::stats s(data, 3);
  ASSERT_TRUE(s.computed());
  EXPECT_EQ(s.num_values(), 3u);
  EXPECT_EQ(s.min_value(), 0.0);
  EXPECT_EQ(s.max_value(), 4.0);
  EXPECT_DOUBLE_EQ(s.mean(), 2.0);
  EXPECT_NEAR(s.variance(), 20.0 / 3.0 - 4.0, 1e-12);
  EXPECT_NEAR(s.stddev(), std::sqrt(20.0 / 3.0 - 4.0), 1e-12);
  EXPECT_EQ(s.count_nonzero(), 2u);
  EXPECT_EQ(s.min_nonzero_value(), 2.0);
  EXPECT_DOUBLE_EQ(s.mean_nonzero(), 3.0);
  // three values once each: entropy log2(3) / 8
  EXPECT_NEAR(s.entropy(), std::log2(3.0) / 8.0, 1e-12);
  EXPECT_EQ(s.max_hist(), 1u);
  EXPECT_EQ(s.min_hist(), 0u);  // empty bins count
  EXPECT_EQ(s.max_histnz(), 1u);
  EXPECT_EQ(s.min_histnz(), 0u);
  EXPECT_EQ(s.histogram()[0], 1u);
  EXPECT_EQ(s.histogram()[2], 1u);
  EXPECT_EQ(s.histogram()[4], 1u);
  EXPECT_EQ(s.histogram()[1], 0u);
  EXPECT_FALSE(s.entropy_high());
}

TEST(stats_test, histnz_ignores_bin_zero) {
  // value 0 five times, values 1..255 twice each: bin 0 is only in min/max hist.
  counts c = flat(2);
  c[0] = 5;
  const std::string b = from_counts(c, 1);
  const zq::stats s(as_bytes(b), static_cast<int>(b.size()));
  EXPECT_EQ(s.max_hist(), 5u);
  EXPECT_EQ(s.min_hist(), 2u);
  EXPECT_EQ(s.max_histnz(), 2u);
  EXPECT_EQ(s.min_histnz(), 2u);
  EXPECT_EQ(s.count_nonzero(), 510u);
}

TEST(stats_test, each_value_once_passes) {
  const std::string b = varn_test::all_values(1, 7);
  const zq::stats s(as_bytes(b), 256);
  EXPECT_DOUBLE_EQ(s.mean(), 127.5);
  EXPECT_NEAR(s.stddev(), std::sqrt((256.0 * 256.0 - 1.0) / 12.0), 1e-9);  // about 73.9
  EXPECT_DOUBLE_EQ(s.entropy(), 1.0);
  EXPECT_EQ(s.min_hist(), 1u);
  EXPECT_EQ(s.max_hist(), 1u);
  EXPECT_TRUE(s.entropy_high());
  EXPECT_TRUE(short_test(b));
}

TEST(stats_test, up_to_255_bytes_never_pass) {
  // The best a short buffer can do: distinct values around the middle; one bin stays empty.
  for (uint32_t n : {1u, 100u, 254u, 255u}) {
    std::string b;
    for (uint32_t i = 0; i < n; ++i) b.push_back(static_cast<char>(i));
    EXPECT_FALSE(full_test(b)) << n;
    EXPECT_FALSE(short_test(b)) << n;
  }
  std::string b = varn_test::all_values(1, 3);
  b.pop_back();
  EXPECT_FALSE(full_test(b));
  EXPECT_FALSE(short_test(b));
}

TEST(stats_test, one_missing_value_fails_a_long_buffer) {
  counts c = flat(20);
  c[77] = 0;
  c[78] = 40;
  const std::string b = from_counts(c, 2);
  EXPECT_FALSE(full_test(b));
  EXPECT_FALSE(short_test(b));
}

TEST(stats_test, uneven_counts_of_two_fail_on_spread) {
  // Each value twice, except one once and another three times: spread (3 - 1) / 3 = 66.7 %.
  counts c = flat(2);
  c[10] = 1;
  c[200] = 3;
  const std::string b = from_counts(c, 3);
  const zq::stats s(as_bytes(b), static_cast<int>(b.size()));
  EXPECT_EQ(s.min_hist(), 1u);
  EXPECT_EQ(s.max_hist(), 3u);
  EXPECT_FALSE(s.entropy_high());
  EXPECT_FALSE(short_test(b));
}

TEST(stats_test, one_repeated_value_has_entropy_zero) {
  const std::string b(4096, '\x7f');
  const zq::stats s(as_bytes(b), 4096);
  EXPECT_DOUBLE_EQ(s.entropy(), 0.0);
  EXPECT_FALSE(s.entropy_high());
  EXPECT_FALSE(short_test(b));
}

struct threshold_case {
  counts c;
  bool expected;
  const char* what;
};

TEST(stats_test, mean_and_spread_thresholds_are_inclusive) {
  // Expected answers from the four conditions worked out by hand for each histogram:
  // 25600 bytes; 1500 moves of 128 lower the mean by 7.5 to 120.0, 500 raise it by 2.5 to 130.0.
  counts below_120 = shift_mean(100, 1500, true);
  --below_120[1];
  ++below_120[0];
  counts above_130 = shift_mean(100, 500, false);
  --above_130[254];
  ++above_130[255];
  auto one_low = [](uint32_t k, uint32_t low) {
    counts c = flat(k);
    c[128] = low;
    return c;
  };
  const threshold_case cases[] = {
      {shift_mean(100, 1500, true), true, "mean exactly 120"},
      {below_120, false, "mean 120 - 1/25600"},
      {shift_mean(100, 500, false), true, "mean exactly 130"},
      {above_130, false, "mean 130 + 1/25600"},
      {one_low(10, 6), true, "spread (10 - 6) / 10 = 40 %"},
      {one_low(10, 5), false, "spread 50 %"},
      {one_low(100, 60), true, "spread 40 %"},
      {one_low(100, 59), false, "spread 41 %"},
      {one_low(50, 30), true, "spread 40 %"},
      {one_low(50, 29), false, "spread 42 %"},
  };
  uint32_t seed = 10;
  for (const auto& c : cases) {
    const std::string b = from_counts(c.c, seed++);
    EXPECT_EQ(full_test(b), c.expected) << c.what;
    EXPECT_EQ(short_test(b), c.expected) << c.what;
  }
}

// The property: the short-cut answer equals the full statistics' answer.
void expect_same_answer(const std::string& b, const std::string& what, int& positives) {
  const bool full = full_test(b);
  positives += full ? 1 : 0;
  ASSERT_EQ(short_test(b), full) << what << " (" << b.size() << " bytes)";
}

TEST(stats_test, short_cut_agrees_on_random_buffers_of_every_length) {
  int positives = 0;
  for (uint32_t n = 1; n <= 4096; ++n)
    expect_same_answer(varn_test::seeded_bytes(n, n * 31 + 1), "random", positives);
  for (uint32_t seed = 0; seed < 20; ++seed)
    for (uint32_t n : {256u, 511u, 1024u, 1500u, 4096u, 16384u, 65536u})
      expect_same_answer(varn_test::seeded_bytes(n, seed + 1000), "random", positives);
}

TEST(stats_test, short_cut_agrees_on_perturbed_all_value_buffers) {
  int positives = 0;
  std::mt19937 rng(42);
  for (unsigned repeat = 1; repeat <= 16; ++repeat) {
    for (uint32_t variant = 0; variant < 24; ++variant) {
      std::string b = varn_test::all_values(repeat, repeat * 100 + variant);
      // a few bytes overwritten with random values: near the spread limit for small repeats
      const uint32_t changes = variant % 8;
      for (uint32_t i = 0; i < changes; ++i) b[rng() % b.size()] = static_cast<char>(rng() % 256);
      // some variants also lose or gain a byte
      if (variant % 3 == 1) b.pop_back();
      if (variant % 3 == 2) b.push_back(static_cast<char>(rng() % 256));
      expect_same_answer(b, "all values x" + std::to_string(repeat), positives);
    }
  }
  EXPECT_GT(positives, 50);  // the sweep reaches both answers
}

TEST(stats_test, short_cut_agrees_near_the_mean_limits) {
  int positives = 0, negatives = 0;
  for (uint32_t moves = 1480; moves <= 1520; ++moves) {
    for (int extra = -2; extra <= 2; ++extra) {
      counts c = shift_mean(100, moves, true);
      // fine steps of 1/25600 around the limit
      if (extra > 0) { c[2] -= extra; c[2 + extra] += extra; }
      if (extra < 0) { c[3] += extra; c[3 + extra] -= extra; }
      const std::string b = from_counts(c, moves * 7 + static_cast<uint32_t>(extra + 2));
      const int before = positives;
      expect_same_answer(b, "mean near 120, moves " + std::to_string(moves), positives);
      negatives += positives == before;
    }
  }
  for (uint32_t moves = 480; moves <= 520; ++moves) {
    for (int extra = -2; extra <= 2; ++extra) {
      counts c = shift_mean(100, moves, false);
      if (extra > 0) { c[250] -= extra; c[250 + extra] += extra; }
      if (extra < 0) { c[251] += extra; c[251 + extra] -= extra; }
      const std::string b = from_counts(c, moves * 11 + static_cast<uint32_t>(extra + 2));
      const int before = positives;
      expect_same_answer(b, "mean near 130, moves " + std::to_string(moves), positives);
      negatives += positives == before;
    }
  }
  EXPECT_GT(positives, 0);
  EXPECT_GT(negatives, 0);
}

TEST(stats_test, short_cut_agrees_near_the_spread_limit) {
  int positives = 0, negatives = 0;
  for (uint32_t top : {5u, 10u, 20u, 25u, 50u, 100u}) {
    for (uint32_t low = top / 2; low <= top; ++low) {
      for (uint32_t how_many : {1u, 7u, 128u}) {
        counts c = flat(top);
        for (uint32_t i = 0; i < how_many; ++i) c[(i * 37 + 5) % 256] = low;
        const std::string b = from_counts(c, top * 1000 + low * 10 + how_many);
        const int before = positives;
        expect_same_answer(b, "spread, top " + std::to_string(top) + " low " + std::to_string(low),
                           positives);
        negatives += positives == before;
      }
    }
  }
  EXPECT_GT(positives, 0);
  EXPECT_GT(negatives, 0);
}

TEST(stats_test, short_cut_agrees_near_the_stddev_and_entropy_limits) {
  int positives = 0;
  // Heavier middle values lower the deviation toward 65 and below.
  for (uint32_t outer = 1; outer <= 30; ++outer)
    for (uint32_t width = 0; width <= 128; width += 8) {
      counts c;
      for (int v = 0; v < 256; ++v) c[v] = std::abs(v * 2 - 255) < static_cast<int>(width * 2) ? 30 : outer;
      expect_same_answer(from_counts(c, outer * 200 + width), "stddev sweep", positives);
    }
  // One dominant value lowers the entropy toward 0.987 and below.
  for (uint32_t extra = 0; extra <= 1200; extra += 40) {
    for (uint32_t value : {0u, 127u, 128u, 255u}) {
      counts c = flat(20);
      c[value] += extra;
      expect_same_answer(from_counts(c, extra + value), "entropy sweep", positives);
    }
  }
  EXPECT_GT(positives, 0);
}

}  // namespace
