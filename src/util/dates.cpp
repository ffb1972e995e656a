#include "corvane/util/dates.h"

#include <cstdint>
#include <memory>
#include <vector>
#include <mutex>

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include "util/icu_text.h"

namespace corvane::dates {

namespace {

using icutext::toUnicode;
using icutext::toUtf8;

UDate toUDate(Date date) {
  return static_cast<UDate>(std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count());
}

Date fromUDate(UDate millis) {
  return Date(std::chrono::duration_cast<Date::duration>(std::chrono::milliseconds(static_cast<long long>(millis))));
}

// The locale with the Gregorian calendar forced, as the shared formatter is made.
icu::Locale gregorian(icu::Locale locale) {
  UErrorCode status = U_ZERO_ERROR;
  locale.setKeywordValue("calendar", "gregorian", status);
  return locale;
}

// The process's shared formatter: "en_US_POSIX" until dateTimeFormatForGraph moves it to the
// user's locale. Every call sets the pattern it needs, as the formats share one object.
class SharedFormatter {
 public:
  static SharedFormatter& shared() {
    static SharedFormatter instance;
    return instance;
  }

  std::string format(Date date, const char* pattern) {
    std::lock_guard guard(lock_);
    if (!formatter_) return {};
    formatter_->applyPattern(icu::UnicodeString(pattern, -1, US_INV));
    icu::UnicodeString out;
    formatter_->format(toUDate(date), out);
    return toUtf8(out);
  }

  // Switches to the short date style of the user's locale and formats `date` with it.
  std::string formatShortDateInUserLocale(Date date) {
    std::lock_guard guard(lock_);
    std::unique_ptr<icu::DateFormat> made(
        icu::DateFormat::createDateInstance(icu::DateFormat::kShort, gregorian(icu::Locale::getDefault())));
    if (auto* simple = dynamic_cast<icu::SimpleDateFormat*>(made.get())) {
      made.release();
      formatter_.reset(simple);
    }
    if (!formatter_) return {};
    icu::UnicodeString out;
    formatter_->format(toUDate(date), out);
    return toUtf8(out);
  }

 private:
  SharedFormatter() {
    UErrorCode status = U_ZERO_ERROR;
    formatter_ = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString("yyyy-MM-dd", -1, US_INV),
                                                         gregorian(icu::Locale("en_US_POSIX")), status);
    if (U_FAILURE(status)) formatter_.reset();
  }

  std::mutex lock_;
  std::unique_ptr<icu::SimpleDateFormat> formatter_;
};

constexpr const char* kTimeOnly = "HH:mm:ss";
constexpr const char* kDateOnly = "yyyy-MM-dd";

UCalendarDateFields fieldOf(CalendarUnit unit) {
  switch (unit) {
    case CalendarUnit::Year: return UCAL_YEAR;
    case CalendarUnit::Month: return UCAL_MONTH;
    case CalendarUnit::Day: return UCAL_DATE;
    case CalendarUnit::Hour: return UCAL_HOUR_OF_DAY;
    case CalendarUnit::Minute: return UCAL_MINUTE;
    case CalendarUnit::Second: return UCAL_SECOND;
  }
  return UCAL_DATE;
}

// Moves `calendar` to the start of the `unit` that holds its time.
void moveToStartOfUnit(icu::Calendar& calendar, CalendarUnit unit) {
  static constexpr UCalendarDateFields kFinerFields[] = {UCAL_MONTH, UCAL_DATE, UCAL_HOUR_OF_DAY,
                                                         UCAL_MINUTE, UCAL_SECOND, UCAL_MILLISECOND};
  static constexpr CalendarUnit kUnits[] = {CalendarUnit::Year, CalendarUnit::Month, CalendarUnit::Day,
                                            CalendarUnit::Hour, CalendarUnit::Minute, CalendarUnit::Second};
  std::size_t first = 0;
  while (kUnits[first] != unit) ++first;
  UErrorCode status = U_ZERO_ERROR;
  calendar.getTime(status);  // resolves every field before some are overwritten
  for (std::size_t i = first; i < std::size(kFinerFields); ++i) {
    calendar.set(kFinerFields[i], calendar.getActualMinimum(kFinerFields[i], status));
  }
}

}  // namespace

std::string timeOnlyFormat(Date date) { return SharedFormatter::shared().format(date, kTimeOnly); }
std::string dateOnlyFormat(Date date) { return SharedFormatter::shared().format(date, kDateOnly); }
std::string dateTimeFormat(Date date) { return dateOnlyFormat(date) + " " + timeOnlyFormat(date); }
std::string shortDateOnlyFormat(Date date) { return SharedFormatter::shared().format(date, "M/dd"); }
std::string shortTimeOnlyFormat(Date date) { return SharedFormatter::shared().format(date, "HH:mm"); }
std::string shortDetailTimeOnlyFormat(Date date) { return SharedFormatter::shared().format(date, "mm:ss"); }

std::string dateTimeFormatForGraph(Date date) {
  std::string day = SharedFormatter::shared().formatShortDateInUserLocale(date);
  return day + "\n" + timeOnlyFormat(date);
}

std::optional<Date> dateFromString(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat parser(icu::UnicodeString("yyyy-MM-dd'T'HH:mm:ss.SSSSSSZ", -1, US_INV),
                               gregorian(icu::Locale("en_US_POSIX")), status);
  if (U_FAILURE(status)) return std::nullopt;
  parser.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString("UTC", -1, US_INV)));
  parser.setLenient(false);
  const icu::UnicodeString input = toUnicode(text);
  icu::ParsePosition position(0);
  const UDate parsed = parser.parse(input, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) return std::nullopt;
  return fromUDate(parsed);
}

long dateDifference(Date from, Date to, CalendarUnit unit) {
  UErrorCode status = U_ZERO_ERROR;
  icu::GregorianCalendar start(status);
  icu::GregorianCalendar end(status);
  if (U_FAILURE(status)) return 0;
  start.setTime(toUDate(from), status);
  end.setTime(toUDate(to), status);
  moveToStartOfUnit(start, unit);
  moveToStartOfUnit(end, unit);
  const UDate target = end.getTime(status);
  const int32_t difference = start.fieldDifference(target, fieldOf(unit), status);
  return U_FAILURE(status) ? 0 : difference;
}

long dateDifferenceInDaysToDate(Date from, Date to) { return dateDifference(from, to, CalendarUnit::Day); }
long dateDifferenceInHoursToDate(Date from, Date to) { return dateDifference(from, to, CalendarUnit::Hour); }

std::string durationText(Date from, Date to, std::string_view localeCode) {
  if (to < from) return {};
  const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(to - from).count();
  const std::int64_t parts[] = {minutes / (24 * 60), minutes / 60 % 24, minutes % 60};
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale(std::string(localeCode).c_str());
  icu::MeasureFormat format(locale, UMEASFMT_WIDTH_WIDE, status);
  if (U_FAILURE(status)) return {};
  std::vector<icu::Measure> measures;
  for (int index = 0; index < 3; ++index) {
    // Zero units say nothing, except when nothing else is left to say.
    if (parts[index] == 0 && !(index == 2 && measures.empty())) continue;
    icu::MeasureUnit* unit = index == 0   ? icu::MeasureUnit::createDay(status)
                             : index == 1 ? icu::MeasureUnit::createHour(status)
                                          : icu::MeasureUnit::createMinute(status);
    if (U_FAILURE(status)) return {};
    measures.emplace_back(icu::Formattable(static_cast<int64_t>(parts[index])), unit, status);
    if (U_FAILURE(status)) return {};
  }
  icu::UnicodeString out;
  icu::FieldPosition position;
  format.formatMeasures(measures.data(), static_cast<int32_t>(measures.size()), out, position, status);
  if (U_FAILURE(status)) return {};
  return toUtf8(out);
}

}  // namespace corvane::dates
