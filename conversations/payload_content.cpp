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

// c * log2(c) for the counts a window can hold: the entropy of counts c_i over N bytes is
// log2(N) - sum(c_i * log2(c_i)) / N.
struct count_log_table {
  std::array<float, k_content_window + 1> value{};
  count_log_table() {
    for (uint32_t c = 2; c <= k_content_window; ++c) value[c] = static_cast<float>(c * std::log2(static_cast<double>(c)));
  }
};

double entropy_of(const uint32_t* counts, uint32_t n) noexcept {
  static const count_log_table table;
  float sum = 0.0f;
  for (int i = 0; i < 256; ++i) sum += table.value[counts[i]];
  return std::log2(static_cast<double>(n)) - static_cast<double>(sum) / n;
}

bool printable(uint8_t b) noexcept { return (b >= 0x20 && b < 0x7f) || b == '\t' || b == '\n' || b == '\r'; }

}  // namespace

uint64_t payload_fingerprint(const uint8_t* p, uint32_t n) noexcept {
  // Four independent lanes of 8 bytes, folded at the end.
  constexpr uint64_t k1 = 0xff51afd7ed558ccdull, k2 = 0xc4ceb9fe1a85ec53ull;
  uint64_t h[4] = {0x9e3779b97f4a7c15ull ^ n, 0x632be59bd9b4e019ull, 0x8cb92ba72f3d8dd7ull, 0x243f6a8885a308d3ull};
  uint32_t i = 0;
  for (; i + 32 <= n; i += 32) {
    uint64_t w[4];
    std::memcpy(w, p + i, 32);
    for (int k = 0; k < 4; ++k) {
      h[k] = (h[k] ^ w[k]) * k1;
      h[k] ^= h[k] >> 29;
    }
  }
  uint64_t x = h[0] ^ (h[1] * k2) ^ (h[2] * k1) ^ (h[3] * 0x94d049bb133111ebull);
  for (; i + 8 <= n; i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, 8);
    x = (x ^ w) * k1;
    x ^= x >> 32;
  }
  for (; i < n; ++i) x = (x ^ p[i]) * k2;
  x ^= x >> 29;
  return x * 0x94d049bb133111ebull;
}

payload_prints fingerprint_payload(const uint8_t* p, uint32_t n) noexcept {
  payload_prints out;
  if (n <= 16) {
    out.whole = out.from_16 = payload_fingerprint(p, n);
    return out;
  }
  out.from_16 = payload_fingerprint(p + 16, n - 16);
  uint64_t head[2];
  std::memcpy(head, p, 16);
  uint64_t x = (out.from_16 ^ head[0]) * 0xff51afd7ed558ccdull;
  x ^= x >> 32;
  x = (x ^ head[1]) * 0xc4ceb9fe1a85ec53ull;
  x ^= x >> 29;
  out.whole = x * 0x94d049bb133111ebull;
  return out;
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
  uint32_t text = 0, utf16 = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t b = p[i];
    ++counts[b];
    text += printable(b);
  }
  // 95 % printable (a line of text or an encoding of data), or UTF-16LE text.
  if (text * 20 >= n * 19) return content_kind::text;
  for (uint32_t i = 1; i < n; i += 2) utf16 += printable(p[i - 1]) && p[i] == 0;
  if (utf16 * 2 * 10 >= n * 9) return content_kind::text;
  if (entropy_of(counts, n) < random_entropy_threshold(n)) return content_kind::binary;
  // Counters and other sequences spread their values evenly too: their successive differences
  // do not.
  uint32_t deltas[256] = {};
  for (uint32_t i = 1; i < n; ++i) ++deltas[static_cast<uint8_t>(p[i] - p[i - 1])];
  return entropy_of(deltas, n - 1) >= random_entropy_threshold(n - 1) ? content_kind::random : content_kind::binary;
}

}  // namespace varn::conversations
