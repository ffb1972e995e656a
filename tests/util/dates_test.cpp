#include "corvane/util/dates.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::dates {
namespace {

using std::chrono::milliseconds;

// Moments in the local time zone, where calendar boundaries are counted.
constexpr auto* local = &testing::localTime;

TEST(DatesTest, FixedFormats) {
  const Date date = local(2024, 3, 7, 21, 5, 4);
  EXPECT_EQ(timeOnlyFormat(date), "21:05:04");
  EXPECT_EQ(dateOnlyFormat(date), "2024-03-07");
  EXPECT_EQ(shortDateOnlyFormat(date), "3/07");
  EXPECT_EQ(shortTimeOnlyFormat(date), "21:05");
  EXPECT_EQ(shortDetailTimeOnlyFormat(date), "05:04");
}

TEST(DateFromStringTest, Parses) {
  for (const auto& [text, millis] : std::initializer_list<std::pair<const char*, std::optional<long long>>>{
           {"2023-04-05T06:07:08.123456+0000", 1680674828123LL},
           {"2023-04-05T06:07:08.000000+0200", 1680667628000LL},
           {"2023-04-05T06:07:08.123456+0000 trailing", std::nullopt},
           {"2023-13-05T06:07:08.123456+0000", std::nullopt}}) {
    const auto parsed = dateFromString(text);
    EXPECT_EQ(parsed ? std::optional(std::chrono::duration_cast<milliseconds>(parsed->time_since_epoch()).count())
                     : std::nullopt,
              millis)
        << text;
  }
}

TEST(DateDifferenceTest, CountsBoundaries) {
  struct Case {
    Date from, to;
    long days, hours;
  };
  for (const auto& c : {// Two minutes apart across midnight: one day boundary, one hour boundary.
                        Case{local(2024, 1, 10, 23, 59, 0), local(2024, 1, 11, 0, 1, 0), 1, 1},
                        Case{local(2024, 1, 11, 0, 1, 0), local(2024, 1, 10, 23, 59, 0), -1, -1},
                        // Almost a day apart on the same day: no day boundary, 23 hour boundaries.
                        Case{local(2024, 1, 10, 0, 1, 0), local(2024, 1, 10, 23, 59, 0), 0, 23},
                        // Across a month and a leap day.
                        Case{local(2024, 2, 28, 12, 0, 0), local(2024, 3, 1, 11, 0, 0), 2, 47},
                        Case{local(2024, 1, 10, 10, 59, 59), local(2024, 1, 10, 11, 0, 0), 0, 1}}) {
    EXPECT_EQ(dateDifferenceInDaysToDate(c.from, c.to), c.days);
    EXPECT_EQ(dateDifferenceInHoursToDate(c.from, c.to), c.hours);
  }
  EXPECT_EQ(dateDifference(local(2023, 12, 31, 23, 0, 0), local(2024, 1, 1, 1, 0, 0), CalendarUnit::Year), 1);
  EXPECT_EQ(dateDifference(local(2024, 1, 31, 0, 0, 0), local(2024, 3, 1, 0, 0, 0), CalendarUnit::Month), 2);
  EXPECT_EQ(dateDifference(local(2024, 1, 1, 10, 0, 59), local(2024, 1, 1, 10, 1, 0), CalendarUnit::Minute), 1);
}

}  // namespace
}  // namespace corvane::dates
