// Time values: the date and time texts of -start_time and -stop_time and their time values with
// the (year - 1900) leap rule, capture timestamps and their calendar. Tick counts are worked out
// by hand from 1601-01-01 (one day is 864000000000 ticks).
#include <gtest/gtest.h>

#include <cstring>

#include "zq/zq_time.hpp"

namespace {

constexpr zq::time_value k_day = 864000000000ULL, k_2000_02_29 = 125962560000000000ULL, k_2021_01_01 = 132539328000000000ULL,
                         k_2300_03_01 = 220633632000000000ULL;

std::string text_of(const zq::calendar_time& c) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d %d", c.year, c.month, c.day, c.hour, c.minute, c.second,
                c.millisecond, c.day_of_week);
  return buf;
}

TEST(time_test, date_and_time_texts) {
  const std::string minute_31 = "4:" + std::string(29, '0') + "07", minute_32 = "4:" + std::string(30, '0') + "07";
  const struct {
    const char *date, *time, *parsed;
    zq::time_value value;  // 0: not checked
  } cases[] = {
      {"01/02/03", "04:05:06", "2003-01-02 04:05:06.000", 126859539060000000ULL}, {"1-2-2003", nullptr, "2003-01-02 00:00:00.000", 0},
      {"15-Jan-2021", nullptr, "2021-01-15 00:00:00.000", k_2021_01_01 + 14 * k_day}, {"15-JAN-2021", "", "2021-01-15 00:00:00.000", 0},
      {"15/jan/21", nullptr, "2021-01-15", 0}, {"3-dec-99", nullptr, "1999-12-03", 0}, {"7-Sep-2010", nullptr, "2010-09-07", 0},
      {"2/30/21", nullptr, "2021-02-30", 132591168000000000ULL}, {"1/1/21 junk", nullptr, "2021-01-01", 0},
      {"1/1/00", nullptr, "2000-01-01", 0}, {"1/1/30", nullptr, "2030-01-01", 135379296000000000ULL},
      {"1/1/31", nullptr, "1931-01-01", 104137056000000000ULL}, {"1/1/5", nullptr, "0005-01-01", 0}, {"1/1/031", nullptr, "0031-01-01", 0},
      {"1/1/0030", nullptr, "0030-01-01", 0}, {"1/1/1970", nullptr, "1970-01-01", 116444736000000000ULL},
      // (2000 - 1900) counts as common: March to December 2000 fall a day early; 2300 a day late
      {"2/28/2000", nullptr, "2000-02-28", k_2000_02_29 - k_day}, {"2/29/2000", nullptr, "2000-02-29", k_2000_02_29},
      {"3/1/2000", nullptr, "2000-03-01", k_2000_02_29}, {"12/31/2000", nullptr, "2000-12-31", 126226080000000000ULL},
      {"3/1/2001", nullptr, "2001-03-01", 126278784000000000ULL}, {"3/1/2004", nullptr, "2004-03-01", 127225728000000000ULL},
      {"3/1/1900", nullptr, "1900-03-01", 94405824000000000ULL}, {"3/1/1904", nullptr, "1904-03-01", 95668128000000000ULL},
      {"3/1/2100", nullptr, "2100-03-01", 157520160000000000ULL}, {"2/28/2300", nullptr, "2300-02-28", k_2300_03_01 - k_day},
      {"3/1/2300", nullptr, "2300-03-01", k_2300_03_01 + k_day},
      {"1/1/21", "4:05", "2021-01-01 04:05:00.000", 0}, {"1/1/21", "23:59:59.999", "2021-01-01 23:59:59.999", 0},
      {"1/1/21", "4:05 pm", "2021-01-01 16:05:00.000", 132539907000000000ULL}, {"1/1/21", "4:05pm", "2021-01-01 16:05:00.000", 0},
      {"1/1/21", "4:05:06 PM", "2021-01-01 16:05:06.000", 0}, {"1/1/21", "4:05 AM", "2021-01-01 04:05:00.000", 0},
      {"1/1/21", "12:00 am", "2021-01-01 12:00:00.000", 0}, {"1/1/21", "12:00 pm", "2021-01-01 24:00:00.000", k_2021_01_01 + k_day},
      {"1/1/21", " \t4:05\r\n ", "2021-01-01 04:05:00.000", 0}, {"1/1/21", "4.9:05", "2021-01-01 04:05:00.000", 0},
      {"1/1/21", "4:05:06.5", "2021-01-01 04:05:06.500", 132539475065000000ULL}, {"1/1/21", "4:05:06.25 pm", "2021-01-01 16:05:06.250", 0},
      {"1/1/21", "4:05:06.1236", "2021-01-01 04:05:06.124", 0}, {"1/1/21", "4:05:06.0004", "2021-01-01 04:05:06.000", 0},
      {"1/1/21", "4:05:06.9996", "2021-01-01 04:05:06.1000", 132539475070000000ULL}, {"1/1/21", minute_31.c_str(), "2021-01-01 04:07", 0}};
  for (const auto& c : cases) {
    zq::calendar_time ct;
    const std::string_view t = c.time == nullptr ? "" : c.time;
    ASSERT_TRUE(zq::parse_date_time_text(c.date, c.time == nullptr ? nullptr : &t, ct)) << c.date << ' ' << t;
    EXPECT_EQ(text_of(ct).substr(0, std::strlen(c.parsed)), c.parsed) << c.date << ' ' << t;
    EXPECT_EQ(c.value == 0 ? 0 : zq::calendar_to_time_value(ct), c.value) << c.date << ' ' << t;
  }
  const std::pair<const char*, const char*> failures[] = {
      {"", nullptr}, {"2021", nullptr}, {"1.2.2021", nullptr}, {"1/2", nullptr}, {"1/2/", nullptr}, {"1/2-3/21", nullptr},
      {"123/1/21", nullptr}, {"1/1234/21", nullptr}, {"15-January-2021", nullptr}, {"Jan-15-2021", nullptr}, {"1/1/x21", nullptr},
      {"1/1/12345", nullptr}, {"1/1/ 21", nullptr}, {"0/1/21", nullptr}, {"13/1/21", nullptr}, {"1/0/21", nullptr}, {"1/32/21", nullptr},
      {"15-Foo-2021", nullptr}, {"15-ja-2021", nullptr}, {"1//21", nullptr}, {"13/1/21", "04:05"}, {"1/1/21", "0405"},
      {"1/1/21", "   "}, {"1/1/21", "4:"}, {"1/1/21", "4::06"}, {"1/1/21", "4: pm"}, {"1/1/21", minute_32.c_str()}};
  for (const auto& [date, time] : failures) {
    zq::calendar_time ct;
    const std::string_view t = time == nullptr ? "" : time;
    EXPECT_FALSE(zq::parse_date_time_text(date, time == nullptr ? nullptr : &t, ct)) << date << ' ' << t;
  }
}

TEST(time_test, capture_timestamps_and_the_exact_calendar) {
  const std::tuple<uint32_t, uint32_t, const char*> stamps[] = {  // seconds, microseconds, date time day of week
      {0, 500, ""}, {0x80000000u, 0, ""}, {0xffffffffu, 999999, ""}, {0x7fffffffu, 0, "2038-01-19 03:14:07.000 2"},
      {1, 999999, "1970-01-01 00:00:01.999 4"}, {1609459200, 123456, "2021-01-01 00:00:00.123 5"},
      {1609632000, 0, "2021-01-03 00:00:00.000 0"}, {951782400, 1, "2000-02-29 00:00:00.000 2"},
      {1709251199, 999000, "2024-02-29 23:59:59.999 4"}, {1700000000, 1000000, "2023-11-14 22:13:21.000 2"}};
  for (const auto& [seconds, microseconds, text] : stamps) {
    const zq::time t = zq::time_from_capture_timestamp(seconds, microseconds);
    std::string date = "old", tod = "old";
    zq::format_date_time(t, date, tod);
    EXPECT_EQ(date.empty() ? "" : date + " " + tod + " " + std::to_string(t.calendar().day_of_week), text) << seconds;
    EXPECT_EQ(t.value(), *text ? seconds * 10000000ULL + 116444736000000000ULL + microseconds * 10ULL : 0) << seconds;
  }
  EXPECT_EQ(zq::capture_time_value(0, 123), 0u);
  const std::pair<zq::time_value, const char*> values[] = {
      {0, "1601-01-01 00:00:00.000 1"}, {k_day - 1, "1601-01-01 23:59:59.999 1"}, {k_2000_02_29 + k_day, "2000-03-01 00:00:00.000 3"},
      {k_2300_03_01 - k_day, "2300-02-28 00:00:00.000 3"}, {157520160000000000ULL - 1, "2100-02-28 23:59:59.999 0"},
      {k_2021_01_01 + 1234567, "2021-01-01 00:00:00.123 5"}};
  for (const auto& [value, text] : values) EXPECT_EQ(text_of(zq::time_value_to_calendar(value)), text) << value;
  EXPECT_EQ(zq::time_value_to_calendar(k_2021_01_01 + 1234567).microsecond, 123456u);
  EXPECT_FALSE(zq::time(94354848000000000ULL - 1).valid());  // 1900-01-01 is the first valid day
  EXPECT_TRUE(zq::time(94354848000000000ULL).valid());
}

TEST(time_test, remembered_second_gives_the_same_texts) {
  // Same second again, microseconds carrying into the next second, invalid ones between, and a
  // step back in time.
  const std::pair<uint32_t, uint32_t> stamps[] = {{1700000000, 5}, {1700000000, 999999}, {1700000000, 1000000},
                                                  {1700000001, 0}, {0, 7}, {1700000001, 2500000}, {0x80000000u, 0},
                                                  {1700000003, 1}, {951782399, 999999}, {951782400, 0}};
  zq::capture_time_texts texts;
  for (const auto& [seconds, microseconds] : stamps) {
    std::string date, tod;
    zq::format_date_time(zq::time_from_capture_timestamp(seconds, microseconds), date, tod);
    char d[10], t[12];
    const bool ok = texts.format(seconds, microseconds, d, t);
    std::string formatted, expected;
    if (ok) formatted.append(d, 10).append(1, ' ').append(t, 12);
    if (!date.empty()) expected.append(date).append(1, ' ').append(tod);
    EXPECT_EQ(formatted, expected) << seconds << " " << microseconds;
  }
}

}  // namespace
