#include "corvane/util/dates.h"

#include <ctime>

#include <gtest/gtest.h>
#include <unicode/locid.h>

namespace corvane::dates {
namespace {

using std::chrono::milliseconds;

// A moment given in the process's local time, the zone both libc and ICU take from TZ.
Date local(int year, int month, int day, int hour, int minute, int second) {
  std::tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  parts.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

TEST(DatesTest, FixedFormats) {
  const Date date = local(2024, 3, 7, 9, 5, 4);
  EXPECT_EQ(timeOnlyFormat(date), "09:05:04");
  EXPECT_EQ(dateOnlyFormat(date), "2024-03-07");
  EXPECT_EQ(dateTimeFormat(date), "2024-03-07 09:05:04");
  EXPECT_EQ(shortDateOnlyFormat(date), "3/07");
  EXPECT_EQ(shortTimeOnlyFormat(date), "09:05");
  EXPECT_EQ(shortDetailTimeOnlyFormat(date), "05:04");
}

TEST(DatesTest, GraphFormatSwitchesTheSharedFormatterToTheUserLocale) {
  const icu::Locale saved = icu::Locale::getDefault();
  UErrorCode status = U_ZERO_ERROR;
  const Date date = local(2024, 3, 7, 9, 5, 4);

  icu::Locale::setDefault(icu::Locale("de_DE"), status);
  EXPECT_EQ(dateTimeFormatForGraph(date), "07.03.24\n09:05:04");

  // Arabic (Egypt) writes its own digits: every later format follows the switched locale.
  icu::Locale::setDefault(icu::Locale("ar_EG"), status);
  dateTimeFormatForGraph(date);
  EXPECT_EQ(timeOnlyFormat(date), "\xD9\xA0\xD9\xA9:\xD9\xA0\xD9\xA5:\xD9\xA0\xD9\xA4");  // ٠٩:٠٥:٠٤

  // Put the process back as it was for the tests after this one.
  icu::Locale::setDefault(saved, status);
  dateTimeFormatForGraph(date);
  EXPECT_EQ(timeOnlyFormat(date), "09:05:04");
  ASSERT_TRUE(U_SUCCESS(status));
}

struct ParseCase {
  const char* text;
  std::optional<long long> millis;
};

class DateFromStringTest : public ::testing::TestWithParam<ParseCase> {};
TEST_P(DateFromStringTest, Parses) {
  auto parsed = dateFromString(GetParam().text);
  if (!GetParam().millis) {
    EXPECT_FALSE(parsed.has_value()) << GetParam().text;
    return;
  }
  ASSERT_TRUE(parsed.has_value()) << GetParam().text;
  EXPECT_EQ(std::chrono::duration_cast<milliseconds>(parsed->time_since_epoch()).count(), *GetParam().millis);
}
INSTANTIATE_TEST_SUITE_P(Cases, DateFromStringTest,
                         ::testing::Values(ParseCase{"2023-04-05T06:07:08.123456+0000", 1680674828123LL},
                                           ParseCase{"2023-04-05T06:07:08.000000+0200", 1680667628000LL},
                                           ParseCase{"2023-04-05 06:07:08", std::nullopt},
                                           ParseCase{"2023-04-05T06:07:08.123456+0000 trailing", std::nullopt},
                                           ParseCase{"2023-13-05T06:07:08.123456+0000", std::nullopt},
                                           ParseCase{"", std::nullopt}));

struct DifferenceCase {
  Date from;
  Date to;
  long days;
  long hours;
};

class DateDifferenceTest : public ::testing::TestWithParam<DifferenceCase> {};
TEST_P(DateDifferenceTest, CountsBoundaries) {
  EXPECT_EQ(dateDifferenceInDaysToDate(GetParam().from, GetParam().to), GetParam().days);
  EXPECT_EQ(dateDifferenceInHoursToDate(GetParam().from, GetParam().to), GetParam().hours);
}
INSTANTIATE_TEST_SUITE_P(
    Cases, DateDifferenceTest,
    ::testing::Values(
        // Two minutes apart across midnight: one day boundary, one hour boundary.
        DifferenceCase{local(2024, 1, 10, 23, 59, 0), local(2024, 1, 11, 0, 1, 0), 1, 1},
        // Almost a day apart on the same day: no day boundary, 23 hour boundaries.
        DifferenceCase{local(2024, 1, 10, 0, 1, 0), local(2024, 1, 10, 23, 59, 0), 0, 23},
        DifferenceCase{local(2024, 1, 11, 0, 1, 0), local(2024, 1, 10, 23, 59, 0), -1, -1},
        // Across a month and a leap day.
        DifferenceCase{local(2024, 2, 28, 12, 0, 0), local(2024, 3, 1, 11, 0, 0), 2, 47},
        DifferenceCase{local(2024, 1, 10, 10, 59, 59), local(2024, 1, 10, 11, 0, 0), 0, 1}));

TEST(DatesTest, DifferenceInOtherUnits) {
  EXPECT_EQ(dateDifference(local(2023, 12, 31, 23, 0, 0), local(2024, 1, 1, 1, 0, 0), CalendarUnit::Year), 1);
  EXPECT_EQ(dateDifference(local(2024, 1, 31, 0, 0, 0), local(2024, 3, 1, 0, 0, 0), CalendarUnit::Month), 2);
  EXPECT_EQ(dateDifference(local(2024, 1, 1, 10, 0, 59), local(2024, 1, 1, 10, 1, 0), CalendarUnit::Minute), 1);
  EXPECT_EQ(dateDifference(local(2024, 1, 1, 10, 0, 0) + milliseconds(999), local(2024, 1, 1, 10, 0, 1),
                           CalendarUnit::Second),
            1);
}

}  // namespace
}  // namespace corvane::dates
