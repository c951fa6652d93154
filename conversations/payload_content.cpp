#include "conversations/payload_content.hpp"

#include <array>
#include <cmath>
#include <cstring>

namespace varn::conversations {

namespace {

// Expected plug-in entropy of N independent uniform bytes: 256 bins, each count binomial
// (N, 1/256); E = -256 * sum over c of P(count = c) * (c / N) * log2(c / N).
double expected_random_entropy(uint32_t n) noexcept {
  const double q = 1.0 / 256.0;
  double sum = 0.0;
  // P(count = c), built up from P(0) = (1 - q)^N.
  double prob = std::pow(1.0 - q, n);
  for (uint32_t c = 1; c <= n; ++c) {
    prob *= (static_cast<double>(n - c + 1) / c) * (q / (1.0 - q));
    const double share = static_cast<double>(c) / n;
    sum += prob * share * std::log2(share);
    if (c > 8 && prob < 1e-12) break;
  }
  return -256.0 * sum;
}

struct threshold_table {
  std::array<float, k_content_window + 1> value{};
  threshold_table() {
    for (uint32_t n = 1; n <= k_content_window; ++n)
      value[n] = static_cast<float>(expected_random_entropy(n) - 0.4);
  }
};

double entropy_of(const uint32_t* counts, uint32_t n) noexcept {
  double h = 0.0;
  for (int i = 0; i < 256; ++i) {
    if (counts[i] == 0) continue;
    const double share = static_cast<double>(counts[i]) / n;
    h -= share * std::log2(share);
  }
  return h;
}

bool printable(uint8_t b) noexcept { return (b >= 0x20 && b < 0x7f) || b == '\t' || b == '\n' || b == '\r'; }

}  // namespace

uint64_t payload_fingerprint(const uint8_t* p, uint32_t n) noexcept {
  uint64_t h = 0x9e3779b97f4a7c15ull ^ n;
  uint32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, 8);
    h = (h ^ w) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  }
  for (; i < n; ++i) h = (h ^ p[i]) * 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 29;
  return h * 0x94d049bb133111ebull;
}

double byte_entropy(const uint8_t* p, uint32_t n) noexcept {
  if (n == 0) return 0.0;
  uint32_t counts[256] = {};
  for (uint32_t i = 0; i < n; ++i) ++counts[p[i]];
  return entropy_of(counts, n);
}

double random_entropy_threshold(uint32_t n) noexcept {
  static const threshold_table table;
  if (n > k_content_window) n = k_content_window;
  return n == 0 ? 0.0 : table.value[n];
}

content_kind judge_content(const uint8_t* p, uint32_t n) noexcept {
  if (n < k_min_judged_content) return content_kind::binary;
  if (n > k_content_window) n = k_content_window;
  uint32_t counts[256] = {};
  uint32_t deltas[256] = {};
  uint32_t text = 0, utf16 = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t b = p[i];
    ++counts[b];
    if (i > 0) ++deltas[static_cast<uint8_t>(b - p[i - 1])];
    text += printable(b);
    if ((i & 1) == 1) utf16 += printable(p[i - 1]) && b == 0;
  }
  // 95 % printable (a line of text or an encoding of data), or UTF-16LE text.
  if (text * 20 >= n * 19 || utf16 * 2 * 10 >= n * 9) return content_kind::text;
  const double threshold = random_entropy_threshold(n);
  if (entropy_of(counts, n) >= threshold && entropy_of(deltas, n - 1) >= random_entropy_threshold(n - 1))
    return content_kind::random;
  return content_kind::binary;
}

}  // namespace varn::conversations
