// Event timestamps as network analysts' JSON logs write them: ISO 8601, UTC, with the offset
// written "+0000", e.g. "2024-01-02T03:04:05.123456+0000". Microseconds, or nanoseconds when the
// capture has them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace varn::json {

// Room for a timestamp: up to 20 year digits, the rest of the date and time, 9 fraction digits.
constexpr size_t timestamp_room = 64;

// The timestamps of one capture's frames, remembering the text of the last whole second.
class timestamp_texts {
 public:
  // Writes the time SECONDS (since 1970-01-01 00:00:00 UTC) plus FRACTION units of 10^-DIGITS s
  // at P, without quotes, and returns the end. A fraction of a second or more (a damaged
  // record) carries into the seconds, as the capture-time filters take it. DIGITS 9 writes nine
  // fraction digits, 7 and 8 also nine, 0 to 6 six; the fraction is scaled to them (DIGITS
  // above 9 are cut to nine). Years past 9999 get as many digits as they need.
  char* put(char* p, uint64_t seconds, uint64_t fraction, unsigned digits) noexcept;

 private:
  uint64_t m_second = UINT64_MAX;  // whole seconds of the cached text
  char m_text[48] = {};            // "yyyy-mm-ddThh:mm:ss."
  size_t m_length = 0;
};

}  // namespace varn::json
