// Time values: the date and time option texts, the calendar to time value conversion with its
// (year - 1900) leap rule, capture timestamps and the metadata date and time texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "zq/zq_time.hpp"

namespace {

// Ticks of a few instants, counted by hand from 1601-01-01 (one day is 864000000000 ticks).
constexpr zq::time_value k_day = 864000000000ULL;
constexpr zq::time_value k_1970_01_01 = 116444736000000000ULL;
constexpr zq::time_value k_1900_01_01 = 94354848000000000ULL;
constexpr zq::time_value k_2000_02_29 = 125962560000000000ULL;
constexpr zq::time_value k_2021_01_01 = 132539328000000000ULL;
constexpr zq::time_value k_2021_01_02 = 132540192000000000ULL;
constexpr zq::time_value k_2300_03_01 = 220633632000000000ULL;

std::optional<zq::calendar_time> parse(std::string_view date, const char* time_text = nullptr) {
  zq::calendar_time ct;
  bool ok;
  if (time_text == nullptr) {
    ok = zq::parse_date_time_text(date, nullptr, ct);
  } else {
    const std::string_view t(time_text);
    ok = zq::parse_date_time_text(date, &t, ct);
  }
  if (!ok) return std::nullopt;
  return ct;
}

zq::calendar_time ymd(uint16_t y, uint16_t m, uint16_t d, uint16_t hh = 0, uint16_t mm = 0,
                      uint16_t ss = 0, uint16_t ms = 0) {
  zq::calendar_time ct;
  ct.year = y;
  ct.month = m;
  ct.day = d;
  ct.hour = hh;
  ct.minute = mm;
  ct.second = ss;
  ct.millisecond = ms;
  return ct;
}

TEST(time_test, constants_agree_with_the_day_count) {
  // 1601 to 1970: 369 years with 89 leap days.
  EXPECT_EQ(k_1970_01_01, (369ULL * 365 + 89) * k_day);
  EXPECT_EQ(k_2021_01_02 - k_2021_01_01, k_day);
  EXPECT_EQ(zq::k_unix_epoch_offset, k_1970_01_01);
}

struct date_case {
  const char* text;
  int year, month, day;  // year 0: the text does not read
};

TEST(time_test, date_forms) {
  const date_case cases[] = {
      {"01/02/03", 2003, 1, 2},
      {"1-2-2003", 2003, 1, 2},
      {"15-Jan-2021", 2021, 1, 15},
      {"15-JAN-2021", 2021, 1, 15},
      {"15/jan/21", 2021, 1, 15},
      {"3-dec-99", 1999, 12, 3},
      {"7-Sep-2010", 2010, 9, 7},
      {"12/31/2021", 2021, 12, 31},
      {"2/30/21", 2021, 2, 30},  // the day is not checked against the month
      {"2/31/21", 2021, 2, 31},
      {"1/1/21 junk", 2021, 1, 1},  // the year ends at a blank
      // two-digit years pivot at 30
      {"1/1/00", 2000, 1, 1},
      {"1/1/30", 2030, 1, 1},
      {"1/1/31", 1931, 1, 1},
      {"1/1/99", 1999, 1, 1},
      // other year lengths are taken as written
      {"1/1/5", 5, 1, 1},
      {"1/1/031", 31, 1, 1},
      {"1/1/999", 999, 1, 1},
      {"1/1/0030", 30, 1, 1},
  };
  for (const auto& c : cases) {
    const auto ct = parse(c.text);
    ASSERT_TRUE(ct.has_value()) << c.text;
    EXPECT_EQ(ct->year, c.year) << c.text;
    EXPECT_EQ(ct->month, c.month) << c.text;
    EXPECT_EQ(ct->day, c.day) << c.text;
    EXPECT_EQ(ct->hour, 0) << c.text;
    EXPECT_EQ(ct->minute, 0) << c.text;
    EXPECT_EQ(ct->second, 0) << c.text;
    EXPECT_EQ(ct->millisecond, 0) << c.text;
  }
}

TEST(time_test, date_failures) {
  const char* cases[] = {
      "",
      "2021",
      "1.2.2021",         // neither "-" nor "/"
      "1/2",              // one separator
      "1/2/",             // nothing after the second separator
      "1/2-3/21",         // "-" present, so "-" is the separator, and there is only one
      "123/1/21",         // first field longer than 2
      "1/1234/21",        // second field longer than 3
      "15-January-2021",  // month name longer than 3 characters
      "Jan-15-2021",      // a month name cannot stand first
      "1/1/x21",          // year must begin with a digit
      "1/1/12345",        // year longer than 4
      "1/1/ 21",          // year text empty up to the blank
      "0/1/21",
      "13/1/21",
      "1/0/21",
      "1/32/21",
      "15-Foo-2021",
      "15-ja-2021",
      "1//21",
  };
  for (const char* text : cases) EXPECT_FALSE(parse(text).has_value()) << '"' << text << '"';
}

struct time_case {
  const char* text;
  int hour, minute, second, millisecond;  // hour -1: the text does not read
};

TEST(time_test, time_forms_am_pm_and_fractions) {
  const std::string minute_31 = std::string(29, '0') + "07";
  const std::string minute_32 = std::string(30, '0') + "07";
  const std::string long_ok = "4:" + minute_31;
  const std::string long_bad = "4:" + minute_32;
  const time_case cases[] = {
      {"", 0, 0, 0, 0},
      {"04:05:06", 4, 5, 6, 0},
      {"4:05", 4, 5, 0, 0},
      {"23:59:59.999", 23, 59, 59, 999},
      {"4:05 pm", 16, 5, 0, 0},
      {"4:05pm", 16, 5, 0, 0},
      {"4:05:06 PM", 16, 5, 6, 0},
      {"4:05:06pm", 16, 5, 6, 0},
      {"4:05 am", 4, 5, 0, 0},
      {"4:05 AM", 4, 5, 0, 0},
      {"12:00 am", 12, 0, 0, 0},  // am never subtracts
      {"12:00 pm", 24, 0, 0, 0},  // pm always adds 12
      {" \t4:05\r\n ", 4, 5, 0, 0},
      {"4.9:05", 4, 5, 0, 0},  // the hour is truncated
      {"4:05:06.5", 4, 5, 6, 500},
      {"4:05:06.25 pm", 16, 5, 6, 250},
      {"4:05:06.1234", 4, 5, 6, 123},
      {"4:05:06.1236", 4, 5, 6, 124},
      {"4:05:06.0004", 4, 5, 6, 0},
      {"4:05:06.9996", 4, 5, 6, 1000},  // rounding may reach 1000
      {long_ok.c_str(), 4, 7, 0, 0},
      // failures
      {"0405", -1, 0, 0, 0},
      {"   ", -1, 0, 0, 0},
      {"4:", -1, 0, 0, 0},
      {"4::06", -1, 0, 0, 0},
      {"4: pm", -1, 0, 0, 0},
      {long_bad.c_str(), -1, 0, 0, 0},
  };
  for (const auto& c : cases) {
    const auto ct = parse("1/1/21", c.text);
    if (c.hour < 0) {
      EXPECT_FALSE(ct.has_value()) << '"' << c.text << '"';
      continue;
    }
    ASSERT_TRUE(ct.has_value()) << '"' << c.text << '"';
    EXPECT_EQ(ct->year, 2021) << c.text;
    EXPECT_EQ(ct->hour, c.hour) << c.text;
    EXPECT_EQ(ct->minute, c.minute) << c.text;
    EXPECT_EQ(ct->second, c.second) << c.text;
    EXPECT_EQ(ct->millisecond, c.millisecond) << c.text;
  }
}

TEST(time_test, bad_time_fails_a_good_date_and_bad_date_fails_a_good_time) {
  EXPECT_FALSE(parse("1/1/21", "0405").has_value());
  EXPECT_FALSE(parse("13/1/21", "04:05").has_value());
}

struct value_case {
  zq::calendar_time ct;
  zq::time_value expected;
  const char* what;
};

TEST(time_test, calendar_to_time_value_with_the_leap_quirk) {
  const value_case cases[] = {
      {ymd(1970, 1, 1), k_1970_01_01, "unix epoch"},
      {ymd(2021, 1, 1), k_2021_01_01, "2021-01-01"},
      {ymd(2003, 1, 2, 4, 5, 6), 126859539060000000ULL, "2003-01-02 04:05:06"},
      {ymd(2021, 1, 1, 4, 5, 6, 500), 132539475065000000ULL, "millisecond 500"},
      {ymd(2021, 1, 1, 24, 0, 0), k_2021_01_02, "hour 24 rolls into the next day"},
      {ymd(2021, 1, 1, 4, 5, 6, 1000), 132539475070000000ULL, "millisecond 1000 is one second"},
      {ymd(2021, 2, 30), 132591168000000000ULL, "2/30 lands on 2021-03-02"},
      {ymd(2030, 1, 1), 135379296000000000ULL, "2030-01-01"},
      {ymd(1931, 1, 1), 104137056000000000ULL, "1931-01-01"},
      // 2000: (2000 - 1900) = 100 is not a leap year here, so March to December fall a day early
      {ymd(2000, 2, 28), k_2000_02_29 - k_day, "2000-02-28 is right"},
      {ymd(2000, 2, 29), k_2000_02_29, "2000-02-29 is right"},
      {ymd(2000, 3, 1), k_2000_02_29, "2000-03-01 gives 2000-02-29"},
      {ymd(2000, 12, 31), 126226080000000000ULL, "2000-12-31 gives 2000-12-30"},
      {ymd(2001, 1, 1), 126227808000000000ULL, "2001-01-01 is right"},
      {ymd(2001, 3, 1), 126278784000000000ULL, "2001-03-01 is right"},
      {ymd(2004, 3, 1), 127225728000000000ULL, "2004-03-01 is right"},
      {ymd(1900, 3, 1), 94405824000000000ULL, "1900 is common either way"},
      {ymd(1904, 3, 1), 95668128000000000ULL, "1904-03-01 is right"},
      {ymd(2100, 3, 1), 157520160000000000ULL, "2100 (200) is common either way"},
      {ymd(2300, 2, 28), k_2300_03_01 - k_day, "2300-02-28 is right"},
      // 2300: (2300 - 1900) = 400 counts as leap, so March falls a day late
      {ymd(2300, 3, 1), k_2300_03_01 + k_day, "2300-03-01 gives 2300-03-02"},
  };
  for (const auto& c : cases) EXPECT_EQ(zq::calendar_to_time_value(c.ct), c.expected) << c.what;
}

TEST(time_test, option_texts_to_time_values) {
  const struct {
    const char* date;
    const char* time;
    zq::time_value expected;
  } cases[] = {
      {"01/02/03", "04:05:06", 126859539060000000ULL},
      {"1/1/21", "12:00 pm", k_2021_01_02},
      {"1/1/21", "4:05 pm", 132539907000000000ULL},
      {"1/1/21", "04:05:06.5", 132539475065000000ULL},
      {"3/1/00", nullptr, k_2000_02_29},
      {"15-Jan-2021", nullptr, k_2021_01_01 + 14 * k_day},
  };
  for (const auto& c : cases) {
    const auto ct = parse(c.date, c.time);
    ASSERT_TRUE(ct.has_value()) << c.date;
    EXPECT_EQ(zq::calendar_to_time_value(*ct), c.expected) << c.date << ' ' << (c.time ? c.time : "");
  }
}

struct stamp_case {
  uint32_t seconds, microseconds;
  const char* date;  // empty: invalid
  const char* time_of_day;
  int day_of_week;
};

TEST(time_test, capture_timestamps_to_date_and_time_texts) {
  const stamp_case cases[] = {
      {0, 0, "", "", 0},
      {0, 500, "", "", 0},
      {0x80000000u, 0, "", "", 0},  // 2038-01-19 03:14:08 onward: negative as signed 32-bit
      {0xffffffffu, 999999, "", "", 0},
      {0x7fffffffu, 0, "2038-01-19", "03:14:07.000", 2},
      {1, 999999, "1970-01-01", "00:00:01.999", 4},
      {1609459200, 123456, "2021-01-01", "00:00:00.123", 5},
      {1609545600, 0, "2021-01-02", "00:00:00.000", 6},
      {1609632000, 0, "2021-01-03", "00:00:00.000", 0},
      {951782400, 1, "2000-02-29", "00:00:00.000", 2},
      {1709251199, 999000, "2024-02-29", "23:59:59.999", 4},
  };
  for (const auto& c : cases) {
    const zq::time t = zq::time_from_capture_timestamp(c.seconds, c.microseconds);
    std::string date = "old", tod = "old";
    zq::format_date_time(t, date, tod);
    EXPECT_EQ(date, c.date) << c.seconds;
    EXPECT_EQ(tod, c.time_of_day) << c.seconds;
    EXPECT_EQ(t.valid(), *c.date != '\0') << c.seconds;
    if (!t.valid()) continue;
    EXPECT_EQ(t.value(), uint64_t{c.seconds} * 10000000ULL + k_1970_01_01 + uint64_t{c.microseconds} * 10)
        << c.seconds;
    EXPECT_EQ(t.calendar().day_of_week, c.day_of_week) << c.seconds;
    EXPECT_EQ(t.calendar().microsecond, c.microseconds) << c.seconds;
    EXPECT_EQ(t.calendar().millisecond, c.microseconds / 1000) << c.seconds;
  }
}

TEST(time_test, fixed_width_texts_match_and_invalid_writes_nothing) {
  char date[10], tod[12];
  const zq::time t = zq::time_from_capture_timestamp(1, 999999);
  ASSERT_TRUE(zq::format_date_time(t, date, tod));
  EXPECT_EQ(std::string(date, 10), "1970-01-01");
  EXPECT_EQ(std::string(tod, 12), "00:00:01.999");

  std::fill(std::begin(date), std::end(date), '#');
  std::fill(std::begin(tod), std::end(tod), '#');
  EXPECT_FALSE(zq::format_date_time(zq::time_from_capture_timestamp(0, 0), date, tod));
  EXPECT_EQ(std::string(date, 10), std::string(10, '#'));
  EXPECT_EQ(std::string(tod, 12), std::string(12, '#'));
}

TEST(time_test, filter_time_of_a_record) {
  EXPECT_EQ(zq::capture_time_value(0, 123), 0u);
  EXPECT_EQ(zq::capture_time_value(1, 999999), 10000000ULL + k_1970_01_01 + 9999990ULL);
  EXPECT_EQ(zq::capture_time_value(0xffffffffu, 0), 0xffffffffULL * 10000000ULL + k_1970_01_01);
}

TEST(time_test, valid_only_from_1900_on) {
  EXPECT_FALSE(zq::time(0).valid());
  EXPECT_FALSE(zq::time(1).valid());
  EXPECT_FALSE(zq::time(k_1900_01_01 - 1).valid());
  const zq::time t(k_1900_01_01);
  ASSERT_TRUE(t.valid());
  EXPECT_EQ(t.calendar().year, 1900);
  EXPECT_EQ(t.calendar().month, 1);
  EXPECT_EQ(t.calendar().day, 1);
  EXPECT_EQ(t.calendar().day_of_week, 1);  // a Monday
}

struct calendar_case {
  zq::time_value value;
  int year, month, day, hour, minute, second, millisecond, day_of_week;
};

TEST(time_test, time_value_to_exact_gregorian_calendar) {
  const calendar_case cases[] = {
      {0, 1601, 1, 1, 0, 0, 0, 0, 1},  // 1601-01-01 was a Monday
      {k_day - 1, 1601, 1, 1, 23, 59, 59, 999, 1},
      {k_2000_02_29, 2000, 2, 29, 0, 0, 0, 0, 2},
      {k_2000_02_29 + k_day, 2000, 3, 1, 0, 0, 0, 0, 3},
      {k_2300_03_01 - k_day, 2300, 2, 28, 0, 0, 0, 0, 3},
      {k_2300_03_01, 2300, 3, 1, 0, 0, 0, 0, 4},
      {157520160000000000ULL - 1, 2100, 2, 28, 23, 59, 59, 999, 0},
      {126226944000000000ULL + 45296789ULL * 10000, 2000, 12, 31, 12, 34, 56, 789, 0},
  };
  for (const auto& c : cases) {
    const zq::calendar_time ct = zq::time_value_to_calendar(c.value);
    EXPECT_EQ(ct.year, c.year) << c.value;
    EXPECT_EQ(ct.month, c.month) << c.value;
    EXPECT_EQ(ct.day, c.day) << c.value;
    EXPECT_EQ(ct.hour, c.hour) << c.value;
    EXPECT_EQ(ct.minute, c.minute) << c.value;
    EXPECT_EQ(ct.second, c.second) << c.value;
    EXPECT_EQ(ct.millisecond, c.millisecond) << c.value;
    EXPECT_EQ(ct.day_of_week, c.day_of_week) << c.value;
  }
}

TEST(time_test, sub_second_parts_truncate) {
  // 1234567 ticks past a second: 123.4567 ms, 123456.7 us.
  const zq::calendar_time ct = zq::time_value_to_calendar(k_2021_01_01 + 1234567);
  EXPECT_EQ(ct.millisecond, 123);
  EXPECT_EQ(ct.microsecond, 123456u);
}

TEST(time_test, five_digit_year_prints_in_full) {
  // 10000-01-01: 8399 years after 1601 with 2036 leap days.
  const zq::time t((8399ULL * 365 + 2036) * k_day);
  ASSERT_TRUE(t.valid());
  std::string date, tod;
  zq::format_date_time(t, date, tod);
  EXPECT_EQ(date, "10000-01-01");
  EXPECT_EQ(tod, "00:00:00.000");
}

}  // namespace
