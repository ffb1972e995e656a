#include "corvane/settings/pref_data.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "platform/text.h"

namespace corvane {
namespace prefs {
namespace {

using text::equalsIgnoringCase;

constexpr auto kMaxInt = std::numeric_limits<std::int64_t>::max();
constexpr auto kMinInt = std::numeric_limits<std::int64_t>::min();

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\r\f\v";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::int64_t saturated(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 9223372036854775807.0) return kMaxInt;
  if (number <= -9223372036854775808.0) return kMinInt;
  return static_cast<std::int64_t>(number);
}

// The string without its surrounding blanks and a leading "+", which from_chars does not take.
std::string_view numberText(std::string_view text) {
  text = trimmed(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

std::optional<double> numericString(std::string_view text) {
  text = numberText(text);
  if (text.empty()) return std::nullopt;
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
  return number;
}

}  // namespace

std::int64_t integerValue(const std::optional<nlohmann::json>& value) {
  if (!value) return 0;
  switch (value->type()) {
    case nlohmann::json::value_t::number_integer:
      return value->get<std::int64_t>();
    case nlohmann::json::value_t::number_unsigned: {
      const auto number = value->get<std::uint64_t>();
      return number > static_cast<std::uint64_t>(kMaxInt) ? kMaxInt : static_cast<std::int64_t>(number);
    }
    case nlohmann::json::value_t::number_float:
      return saturated(value->get<double>());
    case nlohmann::json::value_t::boolean:
      return value->get<bool>() ? 1 : 0;
    case nlohmann::json::value_t::string: {
      // Whole numbers directly, so that large ones keep every digit.
      const std::string_view text = numberText(value->get_ref<const std::string&>());
      std::int64_t whole = 0;
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), whole);
      if (!text.empty() && end == text.data() + text.size()) {
        if (error == std::errc()) return whole;
        if (error == std::errc::result_out_of_range) return text[0] == '-' ? kMinInt : kMaxInt;
      }
      const auto number = numericString(text);
      return number ? saturated(*number) : 0;
    }
    default:
      return 0;
  }
}

double doubleValue(const std::optional<nlohmann::json>& value) {
  if (!value) return 0.0;
  if (value->is_number()) return value->get<double>();
  if (value->is_boolean()) return value->get<bool>() ? 1.0 : 0.0;
  if (value->is_string()) return numericString(value->get_ref<const std::string&>()).value_or(0.0);
  return 0.0;
}

bool boolValue(const std::optional<nlohmann::json>& value) {
  if (!value) return false;
  if (value->is_boolean()) return value->get<bool>();
  if (value->is_number_float()) {
    const double number = value->get<double>();
    return !std::isnan(number) && number != 0.0;
  }
  if (value->is_number()) return integerValue(value) != 0;
  if (value->is_string()) {
    const std::string_view text = trimmed(value->get_ref<const std::string&>());
    if (equalsIgnoringCase(text, "yes") || equalsIgnoringCase(text, "true")) return true;
    const auto number = numericString(text);
    return number && *number != 0.0;
  }
  return false;
}

std::optional<std::string> stringValue(const std::optional<nlohmann::json>& value) {
  if (!value) return std::nullopt;
  if (value->is_string()) return value->get<std::string>();
  if (value->is_boolean()) return std::string(value->get<bool>() ? "1" : "0");
  if (value->is_number_float()) {
    const double number = value->get<double>();
    if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 1e15) {
      return std::to_string(static_cast<std::int64_t>(number));
    }
    return value->dump();
  }
  if (value->is_number()) return value->dump();
  return std::nullopt;
}

}  // namespace prefs

HWPrefData::HWPrefData() : HWPrefData(nullptr) {}

HWPrefData::HWPrefData(std::shared_ptr<platform::DefaultsSuite> suite) : suite_(std::move(suite)) {
  if (!suite_) suite_ = platform::current().service<platform::DefaultsSuite>().shared_from_this();
}

std::optional<nlohmann::json> HWPrefData::objectForKey(const std::string& key) const { return suite_->get(key); }

nlohmann::json HWPrefData::objectForKey(const std::string& key, const nlohmann::json& defaultValue) const {
  return suite_->get(key).value_or(defaultValue);
}

std::int64_t HWPrefData::integerForKey(const std::string& key) const { return prefs::integerValue(suite_->get(key)); }

std::optional<std::string> HWPrefData::stringForKey(const std::string& key) const {
  return prefs::stringValue(suite_->get(key));
}

double HWPrefData::doubleForKey(const std::string& key) const { return prefs::doubleValue(suite_->get(key)); }

bool HWPrefData::boolForKey(const std::string& key) const { return prefs::boolValue(suite_->get(key)); }

void HWPrefData::setObject(const std::optional<nlohmann::json>& value, const std::string& key) {
  if (value && !value->is_null()) {
    suite_->set(key, *value);
  } else {
    suite_->remove(key);
  }
  suite_->synchronize();
}

void HWPrefData::setObject(const std::optional<nlohmann::json>& value, const std::string& key,
                           const std::optional<std::string>& broadcastName) {
  setObject(value, key);
  if (!broadcastName) return;
  if (value && !value->is_null()) {
    HWNotificationUtils::postGlobalNotification(*broadcastName, nlohmann::json{{key, *value}});
  } else {
    HWNotificationUtils::postGlobalNotification(*broadcastName);
  }
}

}  // namespace corvane
