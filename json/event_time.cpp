#include "json/event_time.hpp"

#include <cstring>

#include "zq/zq_text.hpp"

namespace varn::json {

namespace {

constexpr uint64_t k_powers[20] = {1ull,
                                   10ull,
                                   100ull,
                                   1000ull,
                                   10000ull,
                                   100000ull,
                                   1000000ull,
                                   10000000ull,
                                   100000000ull,
                                   1000000000ull,
                                   10000000000ull,
                                   100000000000ull,
                                   1000000000000ull,
                                   10000000000000ull,
                                   100000000000000ull,
                                   1000000000000000ull,
                                   10000000000000000ull,
                                   100000000000000000ull,
                                   1000000000000000000ull,
                                   10000000000000000000ull};

// V in exactly N decimal digits (leading zeros).
inline char* put_fixed(char* p, uint64_t v, unsigned n) noexcept {
  for (unsigned i = n; i > 0; --i) {
    p[i - 1] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
  return p + n;
}

// Year, month and day of the day DAYS after 1970-01-01 in the proleptic Gregorian calendar
// (the days-to-civil algorithm on 400-year eras of 146097 days).
void civil_from_days(uint64_t days, uint64_t& year, unsigned& month, unsigned& day) noexcept {
  const uint64_t z = days + 719468;  // days since 0000-03-01
  const uint64_t era = z / 146097;
  const uint64_t doe = z - era * 146097;
  const uint64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const uint64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const uint64_t mp = (5 * doy + 2) / 153;
  day = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
  year = yoe + era * 400 + (month <= 2 ? 1 : 0);
}

}  // namespace

char* timestamp_texts::put(char* p, uint64_t seconds, uint64_t fraction, unsigned digits) noexcept {
  if (digits > 9) {
    fraction /= k_powers[digits - 9];
    digits = 9;
  }
  const uint64_t unit = k_powers[digits];
  if (fraction >= unit) {
    const uint64_t carry = fraction / unit;
    fraction %= unit;
    seconds = seconds > UINT64_MAX - carry ? UINT64_MAX : seconds + carry;
  }
  const unsigned shown = digits > 6 ? 9 : 6;
  fraction *= k_powers[shown - digits];

  if (seconds != m_second) {
    m_second = seconds;
    uint64_t year;
    unsigned month, day;
    civil_from_days(seconds / 86400, year, month, day);
    const unsigned in_day = static_cast<unsigned>(seconds % 86400);
    char* q = m_text;
    q = year < 10000 ? put_fixed(q, year, 4) : zq::put_u64(q, year);
    *q++ = '-';
    q = put_fixed(q, month, 2);
    *q++ = '-';
    q = put_fixed(q, day, 2);
    *q++ = 'T';
    q = put_fixed(q, in_day / 3600, 2);
    *q++ = ':';
    q = put_fixed(q, in_day / 60 % 60, 2);
    *q++ = ':';
    q = put_fixed(q, in_day % 60, 2);
    *q++ = '.';
    m_length = static_cast<size_t>(q - m_text);
  }
  std::memcpy(p, m_text, m_length);
  p = put_fixed(p + m_length, fraction, shown);
  std::memcpy(p, "+0000", 5);
  return p + 5;
}

}  // namespace varn::json
