// Typed reads from JSON values and dictionaries that never fail: a wrong kind gives the
// documented default. The one set of value conversions of the library: the settings' typed
// reads use them too.
//
// How JSON answers the platform's "integerValue"/"doubleValue"/"boolValue"/"stringValue":
//  - numbers and booleans answer all four (true is 1, false is 0; a number's string is its
//    shortest decimal form, "42" or "2.5"; integerValue of a fraction truncates toward zero and
//    saturates at the limits of long long, NaN giving 0; boolValue is true for any number
//    other than 0, NaN included);
//  - strings answer as the platform reads text: leading blanks skipped, then the number the text
//    starts with ("12abc" is 12, "abc" is 0, " -3.5e1x" is -35.0 as a double and -3 as an
//    integer); boolValue is true when the text starts (after blanks, signs and zeros) with 'Y',
//    'y', 'T', 't' or a digit 1-9 ("YES", "true", "7");
//  - null, objects and arrays answer nothing (0, 0.0, false, "").
// A number is any JSON number or boolean (booleans are numbers on the platform).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace corvane::dictionaries {

// A string value as it is, else the value's stringValue, else "" (also when `dict` is no object).
std::string safeStringForKey(const nlohmann::json& dict, std::string_view key);
// A number (or boolean) as a double, else nullopt.
std::optional<double> safeNumberForKey(const nlohmann::json& dict, std::string_view key);
// An object value, else nullopt.
std::optional<nlohmann::json> safeDictForKey(const nlohmann::json& dict, std::string_view key);
// An array value, else nullopt.
std::optional<nlohmann::json> safeArrayForKey(const nlohmann::json& dict, std::string_view key);
// The value's integerValue, else 0.
long long safeIntegerForKey(const nlohmann::json& dict, std::string_view key);
// The value's boolValue, else false.
bool safeBoolForKey(const nlohmann::json& dict, std::string_view key);

// The value at `path` (keys joined by "."): each step must be an object and no value on the way
// may be null; nullopt otherwise or when `path` is empty.
std::optional<nlohmann::json> safeValueForPath(const nlohmann::json& dict, std::string_view path);
// The rules of the ...ForKey reads applied to safeValueForPath.
std::string safeStringForPath(const nlohmann::json& dict, std::string_view path);
std::optional<double> safeNumberForPath(const nlohmann::json& dict, std::string_view path);
long long safeIntegerForPath(const nlohmann::json& dict, std::string_view path);
bool safeBoolForPath(const nlohmann::json& dict, std::string_view path);
std::optional<nlohmann::json> safeDictForPath(const nlohmann::json& dict, std::string_view path);
std::optional<nlohmann::json> safeArrayForPath(const nlohmann::json& dict, std::string_view path);

// How a single value answers stringValue / integerValue / doubleValue / boolValue (see above).
std::string stringValue(const nlohmann::json& value);
long long integerValue(const nlohmann::json& value);
double doubleValue(const nlohmann::json& value);
bool boolValue(const nlohmann::json& value);

}  // namespace corvane::dictionaries
