// Time values: 100-nanosecond intervals since 1601-01-01 00:00:00 UTC, their calendar form, the
// capture-timestamp conversion, the option-text parser and the metadata date and time texts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zq {

using time_value = uint64_t;  // 0 means no time

// Capture seconds (since 1970) to time value: 11644473600 s between 1601 and 1970.
constexpr time_value k_unix_epoch_offset = 116444736000000000ULL;
constexpr time_value k_ticks_per_second = 10000000ULL;

struct calendar_time {
  uint16_t year = 0;
  uint16_t month = 0;        // 1-12
  uint16_t day_of_week = 0;  // 0 = Sunday
  uint16_t day = 0;          // 1-31
  uint16_t hour = 0;
  uint16_t minute = 0;
  uint16_t second = 0;
  uint16_t millisecond = 0;
  uint32_t microsecond = 0;
};

// A time value with its calendar form; valid when the value is non-zero and its year >= 1900.
class time {
 public:
  time() = default;
  explicit time(time_value value);

  bool valid() const noexcept { return m_valid; }
  time_value value() const noexcept { return m_value; }
  const calendar_time& calendar() const noexcept { return m_calendar; }

 private:
  time_value m_value = 0;
  calendar_time m_calendar{};
  bool m_valid = false;
};

// The record timestamp as a time: invalid when SECONDS is 0 or has its top bit set (seconds
// are taken as signed 32-bit); otherwise SECONDS * 10^7 + epoch offset + MICROSECONDS * 10.
time time_from_capture_timestamp(uint32_t seconds, uint32_t microseconds);

// The record timestamp as the filters compare it: 0 when SECONDS is 0, otherwise the formula above.
inline time_value capture_time_value(uint32_t seconds, uint32_t microseconds) noexcept {
  if (seconds == 0) return 0;
  return static_cast<time_value>(seconds) * k_ticks_per_second + k_unix_epoch_offset +
         static_cast<time_value>(microseconds) * 10;
}

// Exact Gregorian calendar form of VALUE (leap years by the full year).
calendar_time time_value_to_calendar(time_value value) noexcept;

// Reads a date text (mm/dd/yy, mm-dd-yyyy, dd-Mon-yyyy, ...) and an optional time text
// (hh:mm[:ss[.fff]] [am|pm]) into RESULT. Null TIME_TEXT means no time text. False when either
// does not read; RESULT is then unspecified.
bool parse_date_time_text(std::string_view date_text, const std::string_view* time_text,
                          calendar_time& result);

// Days and time of day to a time value. The leap day counts only when (year - 1900) is a
// leap year, so 2000 counts as a common year here.
time_value calendar_to_time_value(const calendar_time& ct) noexcept;

// "yyyy-mm-dd" and "hh:mm:ss.mmm" of T; both empty when T is invalid.
void format_date_time(const time& t, std::string& date_text, std::string& time_text);

// Fixed-width forms for hot paths: DATE gets 10 characters, TIME 12. False (nothing written)
// when T is invalid.
bool format_date_time(const time& t, char date[10], char time_of_day[12]) noexcept;

// The date and time texts of record timestamps, remembering the last whole second: frames of
// one capture mostly share their second, so only the milliseconds change from frame to frame.
// Same texts as format_date_time(time_from_capture_timestamp(seconds, microseconds), ...).
class capture_time_texts {
 public:
  // False (nothing written) when the timestamp gives no valid time.
  bool format(uint32_t seconds, uint32_t microseconds, char date[10], char time_of_day[12]) noexcept;

 private:
  uint64_t m_second = 0;  // whole seconds of the cached texts; 0 = none
  char m_date[10] = {};
  char m_hms[8] = {};     // "hh:mm:ss"
};

}  // namespace zq
