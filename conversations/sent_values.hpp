// The distinct values a host pair sent in its echo traffic: data payloads (by the fingerprint of
// their bytes behind any clock or message fields) and sender patterns (ping -p, fill bytes), how
// often each went, and what its bytes look like. Distinct values, not payloads, are the evidence:
// a payload sent again, or a sender returning to an earlier one, adds nothing.
#pragma once

#include <cstddef>
#include <array>
#include <cstdint>

namespace varn::conversations {

enum value_flag : uint8_t {
  k_value_pattern = 1,  // a sender's pattern or fill byte, not a payload
  k_value_shared = 2,   // also sent to another receiver by another host pair: a scanner's or
                        // monitor's filler
  k_value_fill = 4,     // a fill byte (without a clock) that changed inside one conversation: a
                        // random fill
};

struct sent_value {
  uint64_t key = 0;    // data: fingerprint of the compared bytes; pattern: its hash (tagged)
  uint32_t bytes = 0;  // data: the compared bytes; pattern: its length
  uint16_t sends = 0;  // payloads that carried it (saturates)
  uint8_t kind = 0;    // content_kind of its bytes (patterns shorter than 8 bytes: binary)
  uint8_t flags = 0;   // value_flag bits
};

// A pattern is data only when at most this many payloads carried it: ping -p sends a chunk
// with -c 1 (one process per chunk), a line test sends each pattern several times.
constexpr uint16_t k_max_pattern_sends = 2;
// Patterns this long and longer are judged and counted like data payloads too.
constexpr uint32_t k_min_pattern_data = 8;

// What values amount to.
struct value_counts {
  uint32_t data = 0;      // distinct data values (data payloads and data patterns of 8 bytes on)
  uint32_t text = 0;      // of them, text
  uint32_t random = 0;    // of them, random-looking
  uint32_t patterns = 0;  // distinct data patterns
  uint64_t bytes = 0;     // their bytes, each value once

  // Counts V by the rules (shared values and random fills are no data, patterns only when few
  // payloads carried them); SIGN -1 takes back what +1 counted.
  void count(const sent_value& v, int sign = 1) noexcept;
};

class value_book {
 public:
  // Values remembered at most; beyond, the oldest is forgotten, counted as it stood.
  static constexpr size_t k_capacity = 16;

  // The value with KEY, or null.
  const sent_value* find(uint64_t key) const noexcept;
  // Adds V (whose key is not in the book) and returns it.
  const sent_value& add(const sent_value& v);
  // V (found in this book) was sent once more, now with FLAGS too.
  void sent_again(const sent_value& v, uint8_t flags) noexcept;
  // Adds FLAGS to V (found in this book).
  void mark(const sent_value& v, uint8_t flags) noexcept;
  // The counts of every value seen, the forgotten ones included.
  const value_counts& counts() const noexcept { return m_counts; }
  // Text and random payload values (not patterns) judged so far, less those found shared.
  uint32_t judged_text() const noexcept { return m_text; }
  uint32_t judged_random() const noexcept { return m_random; }

 private:
  sent_value& writable(const sent_value& v) noexcept { return m_values[static_cast<size_t>(&v - m_values.data())]; }

  std::array<sent_value, k_capacity> m_values;  // the first m_size in order of arrival from
                                                // m_oldest on, round
  uint64_t m_present = 0;                       // bit (key % 64) of every key in the book
  value_counts m_counts;
  uint32_t m_text = 0, m_random = 0;
  uint8_t m_size = 0, m_oldest = 0;
};

}  // namespace varn::conversations
