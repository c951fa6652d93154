#include "zq/zq_time.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zq/zq_text.hpp"

namespace zq {

namespace {

constexpr uint64_t k_ticks_per_day = 864000000000ULL;

// Days since 1601-01-01 to year, month, day (proleptic Gregorian, 400-year cycles of 146097 days).
void civil_from_days(uint64_t days, uint32_t& year, uint32_t& month, uint32_t& day) noexcept {
  uint64_t cycles = days / 146097;
  uint64_t rest = days % 146097;
  // Within a 400-year cycle starting on 1 January of a year divisible by 400 (plus 1):
  // centuries of 36524 days, the last one 36525.
  uint64_t centuries = rest / 36524;
  if (centuries == 4) centuries = 3;
  rest -= centuries * 36524;
  const uint64_t quads = rest / 1461;
  rest -= quads * 1461;
  uint64_t years = rest / 365;
  if (years == 4) years = 3;
  rest -= years * 365;
  year = static_cast<uint32_t>(1601 + cycles * 400 + centuries * 100 + quads * 4 + years);
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  static constexpr uint16_t starts[2][13] = {
      {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
      {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};
  const uint16_t* s = starts[leap ? 1 : 0];
  uint32_t m = 0;
  while (m < 11 && rest >= s[m + 1]) ++m;
  month = m + 1;
  day = static_cast<uint32_t>(rest - s[m] + 1);
}

// atoi-like reading: leading blanks, an optional sign, decimal digits; 0 when none.
long read_decimal(std::string_view text) {
  std::string s(text);
  return std::strtol(s.c_str(), nullptr, 10);
}

double read_real(std::string_view text) {
  std::string s(text);
  return std::strtod(s.c_str(), nullptr);
}

// Truncates toward zero, holding out-of-range values (and NaN) to what a 32-bit field can carry.
long truncate_real(double x) {
  if (!(x == x)) return 0;
  if (x >= 2147483647.0) return 2147483647L;
  if (x <= -2147483648.0) return -2147483647L - 1;
  return static_cast<long>(x);
}

int month_from_name(std::string_view field) {
  static constexpr const char* names[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                          "jul", "aug", "sep", "oct", "nov", "dec"};
  if (field.size() < 3) return 0;
  const std::string lower = to_lower(field.substr(0, 3));
  for (int i = 0; i < 12; ++i)
    if (lower == names[i]) return i + 1;
  return 0;
}

inline bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

// A field starting with a digit reads as a number; any other field as a month name (0 if none).
inline bool is_name_field(std::string_view field) noexcept {
  return field.empty() || !is_digit(field[0]);
}

bool parse_date_text(std::string_view text, calendar_time& ct) {
  char sep;
  if (text.find('-') != std::string_view::npos)
    sep = '-';
  else if (text.find('/') != std::string_view::npos)
    sep = '/';
  else
    return false;
  const size_t first = text.find(sep);
  const size_t second = text.find(sep, first + 1);
  if (second == std::string_view::npos) return false;
  const std::string_view f1 = text.substr(0, first);
  const std::string_view f2 = text.substr(first + 1, second - first - 1);
  if (f1.size() > 2 || f2.size() > 3 || second + 1 >= text.size()) return false;

  long month, day;
  if (is_name_field(f2)) {  // dd-Mon-yyyy
    month = month_from_name(f2);
    day = is_name_field(f1) ? 0 : read_decimal(f1);
  } else {  // mm/dd/yy
    month = is_name_field(f1) ? month_from_name(f1) : read_decimal(f1);
    day = read_decimal(f2);
  }

  std::string_view year_text = text.substr(second + 1);
  const size_t blank = year_text.find(' ');
  if (blank != std::string_view::npos) year_text = year_text.substr(0, blank);
  if (year_text.empty() || year_text.size() > 4 || !is_digit(year_text[0])) return false;
  long year = read_decimal(year_text);
  if (year_text.size() == 2) year += year <= 30 ? 2000 : 1900;

  if (month < 1 || month > 12 || day < 1 || day > 31) return false;
  ct.year = static_cast<uint16_t>(year);
  ct.month = static_cast<uint16_t>(month);
  ct.day = static_cast<uint16_t>(day);
  return true;
}

bool parse_time_text(std::string_view raw, calendar_time& ct) {
  ct.hour = ct.minute = ct.second = ct.millisecond = 0;
  ct.microsecond = 0;
  constexpr std::string_view blanks = " \t\r\n";
  if (raw.empty()) return true;
  const size_t begin = raw.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return false;  // blanks only: no ":"
  const size_t end = raw.find_last_not_of(blanks);
  const std::string text = to_lower(raw.substr(begin, end - begin + 1));

  const size_t colon1 = text.find(':');
  if (colon1 == std::string::npos) return false;
  long hour = truncate_real(read_real(std::string_view(text).substr(0, colon1)));

  // The am/pm marker: the first "m" after the first colon, with the letter before it.
  size_t marker = std::string::npos;
  const size_t m = text.find('m', colon1 + 1);
  if (m != std::string::npos) {
    if (text[m - 1] == 'p') hour += 12;
    if (m - 1 > colon1 && (text[m - 1] == 'a' || text[m - 1] == 'p')) marker = m - 1;
  }

  const size_t colon2 = text.find(':', colon1 + 1);
  size_t minute_end;
  if (colon2 != std::string::npos) {
    minute_end = colon2;
  } else if (marker != std::string::npos) {
    minute_end = marker;
    if (minute_end > colon1 + 1 && text[minute_end - 1] == ' ') --minute_end;
  } else {
    minute_end = text.size();
  }
  const size_t minute_len = minute_end > colon1 + 1 ? minute_end - colon1 - 1 : 0;
  if (minute_len < 1 || minute_len > 31) return false;
  const long minute = read_decimal(std::string_view(text).substr(colon1 + 1, minute_len));

  double seconds = 0.0;
  if (colon2 != std::string::npos) {
    size_t seconds_end = text.size();
    if (marker != std::string::npos && marker > colon2) seconds_end = marker;
    seconds = read_real(std::string_view(text).substr(colon2 + 1, seconds_end - colon2 - 1));
  }
  const long whole = truncate_real(seconds);
  const double fraction = seconds - std::trunc(seconds);
  ct.hour = static_cast<uint16_t>(hour);
  ct.minute = static_cast<uint16_t>(minute);
  ct.second = static_cast<uint16_t>(whole);
  ct.millisecond = static_cast<uint16_t>(truncate_real(fraction * 1000.0 + 0.5));
  return true;
}

}  // namespace

time::time(time_value value) : m_value(value) {
  if (value == 0) return;
  m_calendar = time_value_to_calendar(value);
  m_valid = m_calendar.year >= 1900;
}

time time_from_capture_timestamp(uint32_t seconds, uint32_t microseconds) {
  if (seconds == 0 || static_cast<int32_t>(seconds) < 0) return time();
  return time(capture_time_value(seconds, microseconds));
}

calendar_time time_value_to_calendar(time_value value) noexcept {
  calendar_time ct;
  const uint64_t days = value / k_ticks_per_day;
  const uint64_t in_day = value % k_ticks_per_day;
  uint32_t y, mo, d;
  civil_from_days(days, y, mo, d);
  ct.year = static_cast<uint16_t>(y);
  ct.month = static_cast<uint16_t>(mo);
  ct.day = static_cast<uint16_t>(d);
  ct.day_of_week = static_cast<uint16_t>((days + 1) % 7);  // 1601-01-01 was a Monday
  const uint64_t secs = in_day / k_ticks_per_second;
  ct.hour = static_cast<uint16_t>(secs / 3600);
  ct.minute = static_cast<uint16_t>(secs / 60 % 60);
  ct.second = static_cast<uint16_t>(secs % 60);
  const uint64_t sub = value % k_ticks_per_second;
  ct.millisecond = static_cast<uint16_t>(sub / 10000);
  ct.microsecond = static_cast<uint32_t>(sub / 10);
  return ct;
}

bool parse_date_time_text(std::string_view date_text, const std::string_view* time_text,
                          calendar_time& result) {
  result = calendar_time{};
  if (!parse_date_text(date_text, result)) return false;
  if (time_text == nullptr) return true;
  return parse_time_text(*time_text, result);
}

time_value calendar_to_time_value(const calendar_time& ct) noexcept {
  static constexpr int64_t days_before_month[12] = {0,   31,  59,  90,  120, 151,
                                                    181, 212, 243, 273, 304, 334};
  const int64_t year = ct.year;
  const int month_index = ct.month >= 1 && ct.month <= 12 ? ct.month - 1 : 0;
  int64_t days = (year - 1601) * 365 + (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400 - 388 +
                 days_before_month[month_index] + ct.day - 1;
  const int64_t y = year - 1900;
  const bool leap = y > 0 && y % 4 == 0 && (y % 100 != 0 || y % 400 == 0);
  if (leap && ct.month > 2) ++days;
  const int64_t seconds = ((days * 24 + ct.hour) * 60 + ct.minute) * 60 + ct.second;
  return static_cast<time_value>(seconds) * k_ticks_per_second +
         static_cast<time_value>(ct.millisecond) * 10000;
}

bool format_date_time(const time& t, char date[10], char time_of_day[12]) noexcept {
  if (!t.valid()) return false;
  const calendar_time& c = t.calendar();
  if (c.year > 9999) return false;
  // yyyy-mm-dd
  date[0] = static_cast<char>('0' + c.year / 1000 % 10);
  date[1] = static_cast<char>('0' + c.year / 100 % 10);
  date[2] = static_cast<char>('0' + c.year / 10 % 10);
  date[3] = static_cast<char>('0' + c.year % 10);
  date[4] = '-';
  date[5] = static_cast<char>('0' + c.month / 10);
  date[6] = static_cast<char>('0' + c.month % 10);
  date[7] = '-';
  date[8] = static_cast<char>('0' + c.day / 10);
  date[9] = static_cast<char>('0' + c.day % 10);
  // hh:mm:ss.mmm
  time_of_day[0] = static_cast<char>('0' + c.hour / 10 % 10);
  time_of_day[1] = static_cast<char>('0' + c.hour % 10);
  time_of_day[2] = ':';
  time_of_day[3] = static_cast<char>('0' + c.minute / 10);
  time_of_day[4] = static_cast<char>('0' + c.minute % 10);
  time_of_day[5] = ':';
  time_of_day[6] = static_cast<char>('0' + c.second / 10);
  time_of_day[7] = static_cast<char>('0' + c.second % 10);
  time_of_day[8] = '.';
  time_of_day[9] = static_cast<char>('0' + c.millisecond / 100);
  time_of_day[10] = static_cast<char>('0' + c.millisecond / 10 % 10);
  time_of_day[11] = static_cast<char>('0' + c.millisecond % 10);
  return true;
}

bool capture_time_texts::format(uint32_t seconds, uint32_t microseconds, char date[10],
                                char time_of_day[12]) noexcept {
  if (seconds == 0 || static_cast<int32_t>(seconds) < 0) return false;
  // The time value's whole seconds: microseconds of a million or more carry into them.
  const uint64_t second = static_cast<uint64_t>(seconds) + microseconds / 1000000u;
  if (second != m_second) {
    char tod[12];
    if (!format_date_time(time_from_capture_timestamp(seconds, microseconds), m_date, tod)) return false;
    std::memcpy(m_hms, tod, 8);
    m_second = second;
  }
  const uint32_t millisecond = microseconds % 1000000u / 1000u;
  std::memcpy(date, m_date, 10);
  std::memcpy(time_of_day, m_hms, 8);
  time_of_day[8] = '.';
  time_of_day[9] = static_cast<char>('0' + millisecond / 100);
  time_of_day[10] = static_cast<char>('0' + millisecond / 10 % 10);
  time_of_day[11] = static_cast<char>('0' + millisecond % 10);
  return true;
}

void format_date_time(const time& t, std::string& date_text, std::string& time_text) {
  char date[10], tod[12];
  date_text.clear();
  time_text.clear();
  if (!t.valid()) return;
  if (format_date_time(t, date, tod)) {
    date_text.assign(date, 10);
    time_text.assign(tod, 12);
    return;
  }
  const calendar_time& c = t.calendar();
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", c.year, c.month, c.day);
  date_text = buf;
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d.%03d", c.hour, c.minute, c.second, c.millisecond);
  time_text = buf;
}

}  // namespace zq
