// Settings written as text (on the command line) and read back as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "corvane/settings/settings_keys.h"

namespace corvane::settings {

// The value `text` stands for as a setting of `type`, or nothing (with `error` saying why):
//   UnsignedInteger  decimal digits that fit 64 bits ("7"; not "-1", "1.5", "0x10")
//   Integer          the same with an optional "-"
//   Double           a finite decimal number ("2", "-0.5", "1e3")
//   Bool             true/false, YES/NO, 1/0 (any case)
//   String           the text itself, or the string a JSON string literal holds ("\"a b\"")
//   StringArray      a JSON array of strings
//   ItemList         a JSON array of objects
std::optional<nlohmann::json> parseSettingText(SettingType type, std::string_view text, std::string* error);

// A short name of `type` for messages ("unsigned integer", "array of strings", ...).
std::string_view settingTypeName(SettingType type);

}  // namespace corvane::settings
