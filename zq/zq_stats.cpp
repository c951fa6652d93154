#include "zq/zq_stats.hpp"

#include <cmath>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <cstring>

namespace zq {

namespace {

// Thresholds of the randomness test.
constexpr double k_mean_low = 120.0;
constexpr double k_mean_high = 130.0;
constexpr double k_stddev_min = 65.0;
constexpr double k_entropy_min = 0.987;
constexpr double k_spread_max = 40.0;

inline double log2_of(double x) { return std::log(x) / std::log(2.0); }

// Normalised Shannon entropy of a 256-bin histogram over N values, bins taken in order.
double normalised_entropy(const uint32_t* hist, uint32_t n) {
  // Bins with equal counts give equal terms: each distinct count's term is computed once (the
  // same operations on the same values, so the sum is the one bin-by-bin computation gives).
  struct memo {
    uint32_t count = 0;
    double term = 0.0;
  } memos[64];
  double entropy = 0.0;
  for (int i = 0; i < 256; ++i) {
    const uint32_t c = hist[i];
    if (c == 0) continue;
    memo& m = memos[c & 63];
    if (m.count != c) {
      const double p = static_cast<double>(c) / static_cast<double>(n);
      m.count = c;
      m.term = p * log2_of(p);
    }
    entropy -= m.term;
  }
  return entropy / log2_of(256.0);
}

bool passes_test(double mean, double stddev, double entropy, uint32_t min_hist, uint32_t max_hist) {
  if (mean < k_mean_low || mean > k_mean_high) return false;
  if (stddev < k_stddev_min) return false;
  if (entropy < k_entropy_min) return false;
  const int32_t diff = static_cast<int32_t>(max_hist - min_hist);
  const double spread = static_cast<double>(diff) / static_cast<double>(max_hist) * 100.0;
  return spread <= k_spread_max;
}

// The sum of N bytes: sixteen at a time with the SSE2 sum of absolute differences where the
// processor has it.
uint64_t byte_sum(const uint8_t* data, uint32_t n) noexcept {
  uint64_t sum = 0;
  uint32_t i = 0;
#if defined(__SSE2__)
  __m128i acc = _mm_setzero_si128();
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
    acc = _mm_add_epi64(acc, _mm_sad_epu8(v, zero));
  }
  sum = static_cast<uint64_t>(_mm_cvtsi128_si64(acc)) + static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(acc, acc)));
#endif
  for (; i < n; ++i) sum += data[i];
  return sum;
}

}  // namespace

stats::stats(const uint8_t* data, int length) {
  reset();
  if (data != nullptr && length > 0) compute(data, static_cast<uint32_t>(length));
}

void stats::reset() {
  m_data_copy.clear();
  m_copying = false;
  m_num_values = 0;
  m_computed = false;
  m_min_value = 255.0;
  m_max_value = 0.0;
  m_mean = m_stddev = m_variance = 0.0;
  m_sum_squares = m_sum_squares_nonzero = 0.0;
  m_count_nonzero = 0;
  m_min_nonzero_value = 255.0;
  m_max_value_nz = 0.0;
  m_mean_nonzero = m_stddev_nonzero = m_variance_nonzero = 0.0;
  m_entropy = 0.0;
  m_histogram.assign(256, 0);
  m_min_histnz = m_min_hist = 65535;
  m_max_histnz = m_max_hist = 0;
}

void stats::feed(uint8_t b) {
  const double v = b;
  if (v > m_max_value) m_max_value = m_max_value_nz = v;
  if (v < m_min_value) m_min_value = v;
  if (b != 0 && v < m_min_nonzero_value) m_min_nonzero_value = v;
  if (b < m_histogram.size()) {
    ++m_histogram[b];
    m_mean += v;
    m_sum_squares += v * v;
    if (b != 0) {
      ++m_count_nonzero;
      m_mean_nonzero += v;
      m_sum_squares_nonzero += v * v;
    }
  }
  if (m_copying) m_data_copy.push_back(b);
}

void stats::compute(const uint8_t* data, uint32_t length) {
  m_num_values = length;
  m_copying = true;
  for (uint32_t i = 0; i < length; ++i) feed(data[i]);
  const double n = length;
  m_mean = m_mean / n;
  m_variance = m_sum_squares / n - m_mean * m_mean;
  m_stddev = std::sqrt(m_variance);
  // An all-zero buffer divides by zero here; nothing reads the non-zero figures then.
  const double nz = m_count_nonzero;
  m_mean_nonzero = m_mean_nonzero / nz;
  m_variance_nonzero = m_sum_squares_nonzero / nz - m_mean_nonzero * m_mean_nonzero;
  m_stddev_nonzero = std::sqrt(m_variance_nonzero);
  for (size_t i = 0; i < m_histogram.size(); ++i) {
    const uint32_t c = m_histogram[i];
    if (c > m_max_hist) m_max_hist = c;
    if (c < m_min_hist) m_min_hist = c;
    if (i > 0) {
      if (c > m_max_histnz) m_max_histnz = c;
      if (c < m_min_histnz) m_min_histnz = c;
    }
  }
  m_entropy = normalised_entropy(m_histogram.data(), length);
  m_computed = true;
}

bool stats::entropy_high() const noexcept {
  if (!m_computed) return false;
  return passes_test(m_mean, m_stddev, m_entropy, m_min_hist, m_max_hist);
}

bool payload_entropy_high(const uint8_t* data, uint32_t length) noexcept {
  // Below 256 bytes some byte value is missing: min hist is 0, the spread 100.
  if (data == nullptr || length < 256) return false;
  const double mean = static_cast<double>(byte_sum(data, length)) / static_cast<double>(length);
  if (mean < k_mean_low || mean > k_mean_high) return false;

  // Four interleaved 16-bit tables keep the counting loop free of store-to-load stalls; each
  // sees at most a quarter of a frame's bytes, well below 65536.
  uint16_t part[4][256];
  std::memset(part, 0, sizeof part);
  uint32_t i = 0;
  for (; i + 4 <= length; i += 4) {
    ++part[0][data[i]];
    ++part[1][data[i + 1]];
    ++part[2][data[i + 2]];
    ++part[3][data[i + 3]];
  }
  for (; i < length; ++i) ++part[0][data[i]];
  uint32_t hist[256];
  uint32_t min_hist = 0xffffffffu;
  for (int v = 0; v < 256; ++v) {
    hist[v] = static_cast<uint32_t>(part[0][v]) + part[1][v] + part[2][v] + part[3][v];
    min_hist = hist[v] < min_hist ? hist[v] : min_hist;
  }
  if (min_hist == 0) return false;  // an unused value: spread 100
  return entropy_high_from_histogram(hist, length);
}

bool entropy_high_from_histogram(const uint32_t histogram[256], uint32_t length) noexcept {
  if (length < 256) return false;
  // The cheap conditions first: any unused value (spread 100), then the spread itself.
  uint32_t min_hist = 0xffffffffu, max_hist = 0;
  for (int v = 0; v < 256; ++v) {
    min_hist = histogram[v] < min_hist ? histogram[v] : min_hist;
    max_hist = histogram[v] > max_hist ? histogram[v] : max_hist;
  }
  if (min_hist == 0) return false;
  const int32_t diff = static_cast<int32_t>(max_hist - min_hist);
  if (static_cast<double>(diff) / static_cast<double>(max_hist) * 100.0 > k_spread_max) return false;
  uint64_t sum = 0, sum_squares = 0;
  for (uint32_t v = 0; v < 256; ++v) {
    sum += static_cast<uint64_t>(histogram[v]) * v;
    sum_squares += static_cast<uint64_t>(histogram[v]) * v * v;
  }
  // The sums are exact integers, so these are the figures the byte-by-byte walk gives.
  const double n = length;
  const double mean = static_cast<double>(sum) / n;
  if (mean < k_mean_low || mean > k_mean_high) return false;
  const double variance = static_cast<double>(sum_squares) / n - mean * mean;
  const double stddev = std::sqrt(variance);
  if (stddev < k_stddev_min) return false;
  return passes_test(mean, stddev, normalised_entropy(histogram, length), min_hist, max_hist);
}

}  // namespace zq
