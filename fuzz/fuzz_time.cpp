// The date and time parser and the time conversions.
//
// Input: the first 8 bytes are a capture timestamp (seconds, microseconds, little-endian); the
// rest is an option text such as "mm/dd/yy hh:mm:ss", split at its first blank into the date
// and the time text as "-start_time" does.
// Checks:
// - a parsed date has month 1-12 and day 1-31, and a two-character year lies in 1931-2030;
// - a time value read back into the calendar and converted again is unchanged wherever the
//   conversion's leap rule (by year - 1900) agrees with the calendar's (1901-2099 except 2000);
// - both forms of the date and time texts agree;
// - a capture timestamp prints as the UTC date and time that the C++ calendar gives for it, and
//   not at all when its seconds are 0 or at or above 2^31.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.hpp"
#include "zq/zq_time.hpp"

namespace {

void check_texts_agree(const zq::time& t) {
  std::string date, tod;
  zq::format_date_time(t, date, tod);
  char d[10], h[12];
  if (zq::format_date_time(t, d, h)) {
    VARN_FUZZ_CHECK(date == std::string(d, 10));
    VARN_FUZZ_CHECK(tod == std::string(h, 12));
  } else {
    VARN_FUZZ_CHECK(!t.valid() || t.calendar().year > 9999);
  }
  if (!t.valid()) VARN_FUZZ_CHECK(date.empty() && tod.empty());
}

// Values up to here (about the year 2235) keep their year within the calendar's 16 bits.
constexpr zq::time_value k_round_trip_limit = 200000000000000000ull;

bool leap_rules_agree(unsigned year) { return year >= 1901 && year <= 2099 && year != 2000; }

void check_round_trip(zq::time_value value) {
  if (value >= k_round_trip_limit) return;
  const zq::calendar_time ct = zq::time_value_to_calendar(value);
  VARN_FUZZ_CHECK(ct.month >= 1 && ct.month <= 12 && ct.day >= 1 && ct.day <= 31);
  VARN_FUZZ_CHECK(ct.hour < 24 && ct.minute < 60 && ct.second < 60 && ct.millisecond < 1000);
  if (!leap_rules_agree(ct.year)) return;
  const zq::time_value back = zq::calendar_to_time_value(ct);
  VARN_FUZZ_CHECK(back == value / 10000 * 10000);  // the calendar form keeps milliseconds
}

void check_capture_timestamp(uint32_t seconds, uint32_t microseconds) {
  const zq::time t = zq::time_from_capture_timestamp(seconds, microseconds);
  const bool expect_valid = seconds != 0 && seconds < 0x80000000u;
  VARN_FUZZ_CHECK(t.valid() == expect_valid);
  check_texts_agree(t);
  if (!expect_valid) return;
  // The instant in microseconds since 1970, as std::chrono's calendar sees it.
  using namespace std::chrono;
  const uint64_t total_us = uint64_t{seconds} * 1000000u + microseconds;
  const sys_days day{days{static_cast<int64_t>(total_us / 86400000000ull)}};
  const year_month_day ymd{day};
  const uint64_t in_day = total_us % 86400000000ull;
  char want_date[32], want_time[32];
  std::snprintf(want_date, sizeof want_date, "%04d-%02u-%02u", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
  std::snprintf(want_time, sizeof want_time, "%02u:%02u:%02u.%03u", static_cast<unsigned>(in_day / 3600000000ull),
                static_cast<unsigned>(in_day / 60000000ull % 60), static_cast<unsigned>(in_day / 1000000ull % 60),
                static_cast<unsigned>(in_day % 1000000ull / 1000));
  std::string date, tod;
  zq::format_date_time(t, date, tod);
  VARN_FUZZ_CHECK(date == want_date);
  VARN_FUZZ_CHECK(tod == want_time);
  check_round_trip(t.value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8 || size > 1024) return 0;
  check_capture_timestamp(varn_fuzz::le32(data), varn_fuzz::le32(data + 4));

  const std::string_view text(reinterpret_cast<const char*>(data + 8), size - 8);
  const size_t blank = text.find(' ');
  const std::string_view date = text.substr(0, blank);
  zq::calendar_time ct;
  bool ok;
  if (blank == std::string_view::npos) {
    ok = zq::parse_date_time_text(date, nullptr, ct);
  } else {
    const std::string_view time_text = text.substr(blank + 1);
    ok = zq::parse_date_time_text(date, &time_text, ct);
  }
  if (!ok) return 0;

  VARN_FUZZ_CHECK(ct.month >= 1 && ct.month <= 12);
  VARN_FUZZ_CHECK(ct.day >= 1 && ct.day <= 31);
  const char sep = date.find('-') != std::string_view::npos ? '-' : '/';
  const size_t second_sep = date.find(sep, date.find(sep) + 1);
  const std::string_view year_text = date.substr(second_sep + 1);
  VARN_FUZZ_CHECK(!year_text.empty() && year_text.size() <= 4 && year_text[0] >= '0' && year_text[0] <= '9');
  if (year_text.size() == 2) VARN_FUZZ_CHECK(ct.year >= 1931 && ct.year <= 2030);

  const zq::time_value value = zq::calendar_to_time_value(ct);
  const zq::time t(value);
  check_texts_agree(t);
  if (value != 0) check_round_trip(value);
  return 0;
}
