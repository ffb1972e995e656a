#include "corvane/settings/setting_text.h"
#include "corvane/platform/text.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace corvane::settings {
namespace {

using text::equalsIgnoringCase;

template <class Number>
std::optional<Number> wholeNumber(std::string_view text) {
  if (text.empty() || text[0] == '+') return std::nullopt;
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

bool holdsNull(const nlohmann::json& value) {
  if (value.is_null()) return true;
  if (value.is_structured()) {
    for (const auto& element : value) {
      if (holdsNull(element)) return true;
    }
  }
  return false;
}

std::optional<nlohmann::json> refuse(std::string* error, SettingType type) {
  if (error != nullptr) *error = "expected " + std::string(settingTypeName(type));
  return std::nullopt;
}

}  // namespace

std::string_view settingTypeName(SettingType type) {
  switch (type) {
    case SettingType::Bool: return "true/false, YES/NO or 1/0";
    case SettingType::UnsignedInteger: return "an unsigned integer";
    case SettingType::Integer: return "an integer";
    case SettingType::Double: return "a number";
    case SettingType::String: return "a string";
    case SettingType::StringArray: return "a JSON array of strings";
    case SettingType::ItemList: return "a JSON array of objects";
  }
  return "a value";
}

std::optional<nlohmann::json> parseSettingText(SettingType type, std::string_view text, std::string* error) {
  switch (type) {
    case SettingType::UnsignedInteger:
      if (auto number = wholeNumber<std::uint64_t>(text)) return nlohmann::json(*number);
      return refuse(error, type);
    case SettingType::Integer:
      if (auto number = wholeNumber<std::int64_t>(text)) return nlohmann::json(*number);
      return refuse(error, type);
    case SettingType::Double: {
      double number = 0;
      const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (text.empty() || failure != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) {
        return refuse(error, type);
      }
      return nlohmann::json(number);
    }
    case SettingType::Bool:
      if (equalsIgnoringCase(text, "true") || equalsIgnoringCase(text, "yes") || text == "1") return true;
      if (equalsIgnoringCase(text, "false") || equalsIgnoringCase(text, "no") || text == "0") return false;
      return refuse(error, type);
    case SettingType::String: {
      if (!text.empty() && text.front() == '"') {
        auto literal = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
        if (literal.is_string()) return literal;
      }
      return nlohmann::json(std::string(text));
    }
    case SettingType::StringArray:
    case SettingType::ItemList: {
      auto value = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
      if (!value.is_array()) return refuse(error, type);
      for (const auto& element : value) {
        const bool fits = type == SettingType::StringArray ? element.is_string() : element.is_object();
        if (!fits || holdsNull(element)) return refuse(error, type);
      }
      return value;
    }
  }
  return refuse(error, type);
}

}  // namespace corvane::settings
