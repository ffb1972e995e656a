#include "corvane/util/dictionaries.h"

#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>

namespace corvane::dictionaries {

namespace {

const nlohmann::json* valueForKey(const nlohmann::json& dict, std::string_view key) {
  if (!dict.is_object()) return nullptr;
  auto it = dict.find(key);
  return it == dict.end() ? nullptr : &*it;
}

bool isNumber(const nlohmann::json& value) { return value.is_number() || value.is_boolean(); }

bool isBlankChar(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

long long textIntegerValue(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isBlankChar(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  // Accumulate as a negative number so that LLONG_MIN fits; clamp on overflow.
  long long value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    const int digit = text[i] - '0';
    if (value < (LLONG_MIN + digit) / 10) return negative ? LLONG_MIN : LLONG_MAX;
    value = value * 10 - digit;
  }
  if (negative) return value;
  return value == LLONG_MIN ? LLONG_MAX : -value;
}

bool textBoolValue(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isBlankChar(text[i])) ++i;
  while (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

// The decimal number a text starts with (after blanks): sign, digits, fraction, exponent; 0 when
// it starts with none; infinity of its sign when too large, 0 when too small.
double textDoubleValue(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isBlankChar(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  const std::size_t start = i;
  const auto digits = [&] {
    const std::size_t from = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    return i - from;
  };
  std::size_t mantissa = digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return 0.0;
  bool tiny = false;  // a negative exponent: out of range means too small, not too large
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    const std::size_t mark = i++;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) tiny = text[i++] == '-';
    if (digits() == 0) {
      i = mark;  // "2e" or "2e+" ends before the 'e'
      tiny = false;
    }
  }
  double number = 0.0;
  const auto result = std::from_chars(text.data() + start, text.data() + i, number);
  if (result.ec == std::errc::result_out_of_range) number = tiny ? 0.0 : HUGE_VAL;
  return negative ? -number : number;
}

long long doubleIntegerValue(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9.2233720368547758e18) return LLONG_MAX;
  if (value <= -9.2233720368547758e18) return LLONG_MIN;
  return static_cast<long long>(value);
}

}  // namespace

std::string stringValue(const nlohmann::json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number_integer() || value.is_number_unsigned()) return value.dump();
  if (value.is_number_float()) {
    const double number = value.get<double>();
    if (std::isnan(number)) return "nan";
    if (std::isinf(number)) return number > 0 ? "inf" : "-inf";
    // Whole numbers read as integers, as the platform's number does ("3", not "3.0").
    if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 1e15) {
      return std::to_string(static_cast<long long>(number));
    }
    return value.dump();
  }
  return "";
}

long long integerValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_number_unsigned()) {
    const auto number = value.get<unsigned long long>();
    return number > static_cast<unsigned long long>(LLONG_MAX) ? LLONG_MAX : static_cast<long long>(number);
  }
  if (value.is_number_integer()) return value.get<long long>();
  if (value.is_number_float()) return doubleIntegerValue(value.get<double>());
  if (value.is_string()) return textIntegerValue(value.get_ref<const std::string&>());
  return 0;
}

double doubleValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) return textDoubleValue(value.get_ref<const std::string&>());
  return 0.0;
}

bool boolValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_float()) return value.get<double>() != 0.0;
  if (value.is_number()) return integerValue(value) != 0;
  if (value.is_string()) return textBoolValue(value.get_ref<const std::string&>());
  return false;
}

namespace {

std::string stringOf(const nlohmann::json* value) { return value ? stringValue(*value) : std::string(); }
std::optional<double> numberOf(const nlohmann::json* value) {
  if (!value || !isNumber(*value)) return std::nullopt;
  return value->is_boolean() ? (value->get<bool>() ? 1.0 : 0.0) : value->get<double>();
}
std::optional<nlohmann::json> dictOf(const nlohmann::json* value) {
  if (!value || !value->is_object()) return std::nullopt;
  return *value;
}
std::optional<nlohmann::json> arrayOf(const nlohmann::json* value) {
  if (!value || !value->is_array()) return std::nullopt;
  return *value;
}

const nlohmann::json* valueForPath(const nlohmann::json& dict, std::string_view path) {
  if (path.empty()) return nullptr;
  const nlohmann::json* current = &dict;
  std::size_t start = 0;
  while (true) {
    const std::size_t dot = path.find('.', start);
    const std::string_view key = path.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
    current = valueForKey(*current, key);
    if (current == nullptr || current->is_null()) return nullptr;
    if (dot == std::string_view::npos) return current;
    start = dot + 1;
  }
}

}  // namespace

std::string safeStringForKey(const nlohmann::json& dict, std::string_view key) { return stringOf(valueForKey(dict, key)); }
std::optional<double> safeNumberForKey(const nlohmann::json& dict, std::string_view key) {
  return numberOf(valueForKey(dict, key));
}
std::optional<nlohmann::json> safeDictForKey(const nlohmann::json& dict, std::string_view key) {
  return dictOf(valueForKey(dict, key));
}
std::optional<nlohmann::json> safeArrayForKey(const nlohmann::json& dict, std::string_view key) {
  return arrayOf(valueForKey(dict, key));
}
long long safeIntegerForKey(const nlohmann::json& dict, std::string_view key) {
  const auto* value = valueForKey(dict, key);
  return value ? integerValue(*value) : 0;
}
bool safeBoolForKey(const nlohmann::json& dict, std::string_view key) {
  const auto* value = valueForKey(dict, key);
  return value ? boolValue(*value) : false;
}

std::optional<nlohmann::json> safeValueForPath(const nlohmann::json& dict, std::string_view path) {
  const auto* value = valueForPath(dict, path);
  if (!value) return std::nullopt;
  return *value;
}
std::string safeStringForPath(const nlohmann::json& dict, std::string_view path) {
  return stringOf(valueForPath(dict, path));
}
std::optional<double> safeNumberForPath(const nlohmann::json& dict, std::string_view path) {
  return numberOf(valueForPath(dict, path));
}
long long safeIntegerForPath(const nlohmann::json& dict, std::string_view path) {
  const auto* value = valueForPath(dict, path);
  return value ? integerValue(*value) : 0;
}
bool safeBoolForPath(const nlohmann::json& dict, std::string_view path) {
  const auto* value = valueForPath(dict, path);
  return value ? boolValue(*value) : false;
}
std::optional<nlohmann::json> safeDictForPath(const nlohmann::json& dict, std::string_view path) {
  return dictOf(valueForPath(dict, path));
}
std::optional<nlohmann::json> safeArrayForPath(const nlohmann::json& dict, std::string_view path) {
  return arrayOf(valueForPath(dict, path));
}

}  // namespace corvane::dictionaries
