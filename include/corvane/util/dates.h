// Date formatting and calendar arithmetic over ICU, with the product's fixed formats.
//
// A date is a `std::chrono::system_clock::time_point` (an instant; UTC-based, no zone).
// Formatting uses one formatter shared by the process, made with locale "en_US_POSIX", the
// Gregorian calendar and the process's time zone (ICU's default, from TZ on Linux).
// `dateTimeFormatForGraph` switches that shared formatter to the user's locale for good, so
// every later formatting call formats in the user's locale. The formatter is guarded internally,
// so calls from several threads are safe, but the locale switch affects them all.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::dates {

using Date = std::chrono::system_clock::time_point;

// Calendar units for dateDifference.
enum class CalendarUnit { Year, Month, Day, Hour, Minute, Second };

// "HH:mm:ss".
std::string timeOnlyFormat(Date date);
// "yyyy-MM-dd".
std::string dateOnlyFormat(Date date);
// dateOnlyFormat and timeOnlyFormat joined by one space.
std::string dateTimeFormat(Date date);
// "M/dd".
std::string shortDateOnlyFormat(Date date);
// "HH:mm".
std::string shortTimeOnlyFormat(Date date);
// "mm:ss".
std::string shortDetailTimeOnlyFormat(Date date);
// The date in the user's locale's short date style, a newline, then timeOnlyFormat. Leaves the
// shared formatter in the user's locale (ICU's default locale) for every later call.
std::string dateTimeFormatForGraph(Date date);

// Parses "yyyy-MM-dd'T'HH:mm:ss.SSSSSSZ" (e.g. "2023-04-05T06:07:08.123456+0000"), locale
// "en_US_POSIX", zone UTC, the whole text; nullopt when it does not match. ICU keeps
// milliseconds, so the last three fraction digits are dropped.
std::optional<Date> dateFromString(std::string_view text);

// Calendar-day boundaries crossed from `from` to `to` (negative when `to` is earlier), in the
// process's time zone.
long dateDifferenceInDaysToDate(Date from, Date to);
// The same for hours.
long dateDifferenceInHoursToDate(Date from, Date to);
// Both dates moved to the start of their `unit` (Gregorian calendar, the process's time zone),
// then the number of whole `unit`s between them.
long dateDifference(Date from, Date to, CalendarUnit unit);

// The span from `from` to `to` in words, in `localeCode`'s language (e.g. "de_DE"; an empty or
// unknown code falls back as ICU does): days, hours and minutes, full unit names, units that
// are zero left out, seconds dropped ("2 days, 3 hours, 5 minutes"; "0 minutes" under a
// minute). Empty when `to` is before `from` or ICU cannot format.
std::string durationText(Date from, Date to, std::string_view localeCode);

}  // namespace corvane::dates
