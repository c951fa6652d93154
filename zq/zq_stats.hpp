// Byte statistics of a buffer and the randomness test built on them.
#pragma once

#include <cstdint>
#include <vector>

namespace zq {

class stats {
 public:
  // Resets every figure, then computes them over DATA when it is not null and LENGTH is not 0.
  stats(const uint8_t* data, int length);
  virtual ~stats() = default;

  // Back to the state of an empty buffer: nothing computed, extremes at their start values.
  void reset();
  // Adds one byte to the histogram, the sums and the extremes.
  void feed(uint8_t b);

  // True when mean, standard deviation, normalised entropy and the spread of the bin counts all
  // fall in the ranges of a random-looking buffer. False when nothing was computed.
  bool entropy_high() const noexcept;

  bool computed() const noexcept { return m_computed; }
  uint32_t num_values() const noexcept { return m_num_values; }
  double min_value() const noexcept { return m_min_value; }
  double max_value() const noexcept { return m_max_value; }
  double mean() const noexcept { return m_mean; }
  double stddev() const noexcept { return m_stddev; }
  double variance() const noexcept { return m_variance; }
  double entropy() const noexcept { return m_entropy; }
  uint32_t count_nonzero() const noexcept { return m_count_nonzero; }
  double min_nonzero_value() const noexcept { return m_min_nonzero_value; }
  double mean_nonzero() const noexcept { return m_mean_nonzero; }
  uint32_t min_hist() const noexcept { return m_min_hist; }
  uint32_t max_hist() const noexcept { return m_max_hist; }
  uint32_t min_histnz() const noexcept { return m_min_histnz; }
  uint32_t max_histnz() const noexcept { return m_max_histnz; }
  const std::vector<uint32_t>& histogram() const noexcept { return m_histogram; }

 private:
  void compute(const uint8_t* data, uint32_t length);

  std::vector<uint8_t> m_data_copy;
  bool m_copying = false;
  uint32_t m_num_values = 0;
  bool m_computed = false;
  double m_min_value = 255.0;
  double m_max_value = 0.0;
  double m_mean = 0.0;
  double m_stddev = 0.0;
  double m_variance = 0.0;
  double m_sum_squares = 0.0;
  double m_sum_squares_nonzero = 0.0;
  uint32_t m_count_nonzero = 0;
  double m_min_nonzero_value = 255.0;
  double m_max_value_nz = 0.0;
  double m_mean_nonzero = 0.0;
  double m_stddev_nonzero = 0.0;
  double m_variance_nonzero = 0.0;
  double m_entropy = 0.0;
  std::vector<uint32_t> m_histogram;
  uint32_t m_min_histnz = 65535;
  uint32_t m_max_histnz = 0;
  uint32_t m_min_hist = 65535;
  uint32_t m_max_hist = 0;
};

// The randomness test of stats::entropy_high over DATA, answered without building a stats
// object and without the work whose outcome is already decided: buffers below 256 bytes, with a
// mean out of range or with an unused byte value are refused early. Same answer as
// stats(data, length).entropy_high() for every buffer.
bool payload_entropy_high(const uint8_t* data, uint32_t length) noexcept;

// The same test from the byte-value counts of a LENGTH-byte buffer (HISTOGRAM sums to LENGTH).
bool entropy_high_from_histogram(const uint32_t histogram[256], uint32_t length) noexcept;

}  // namespace zq
