// The shared settings suite with typed reads, and writes that are flushed at once and may be
// announced to every process of the product.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "corvane/platform/defaults_suite.h"

namespace corvane {

// Typed reads of a stored value, the way the platform's suite coerces a value of another type:
//
//   stored value           integer      double       bool                      string
//   absent                 0            0.0          NO                        nil
//   unsigned / signed      the number   the number   ≠ 0                       its digits ("12")
//   floating               truncated    the number   ≠ 0                       shortest form ("2.5", 2.0 → "2")
//   bool                   1 / 0        1.0 / 0.0    itself                    "1" / "0"
//   numeric string         the number   the number   ≠ 0                       itself
//     (white space around; optional sign; decimal digits, fraction, exponent: " -3.5 ", "1e3")
//   "YES"/"true"/"NO"/"false" (any case)  0  0.0     YES / NO                  itself
//   any other string       0            0.0          NO                        itself
//   array / dictionary     0            0.0          NO                        nil
//
// Integers saturate at the limits of int64; NaN reads as 0. None of them throws.
namespace prefs {
std::int64_t integerValue(const std::optional<nlohmann::json>& value);
double doubleValue(const std::optional<nlohmann::json>& value);
bool boolValue(const std::optional<nlohmann::json>& value);
std::optional<std::string> stringValue(const std::optional<nlohmann::json>& value);
}  // namespace prefs

// The settings suite shared by every process (the app group's defaults suite). Thread-safe.
class HWPrefData {
 public:
  // The suite of the installed platform; keeps it alive.
  HWPrefData();
  // Works on `suite` (tests give an in-memory or private suite). Null means the platform's.
  explicit HWPrefData(std::shared_ptr<platform::DefaultsSuite> suite);

  // The suite itself.
  platform::DefaultsSuite& userDefaults() const { return *suite_; }

  // The stored value, or nothing.
  std::optional<nlohmann::json> objectForKey(const std::string& key) const;
  // The stored value, or `defaultValue` when nothing is stored.
  nlohmann::json objectForKey(const std::string& key, const nlohmann::json& defaultValue) const;
  // Typed reads (see prefs:: above for values of another type).
  std::int64_t integerForKey(const std::string& key) const;
  std::optional<std::string> stringForKey(const std::string& key) const;
  double doubleForKey(const std::string& key) const;
  bool boolForKey(const std::string& key) const;

  // Stores `value` under `key` (nothing, or null, removes it) and synchronises at once.
  void setObject(const std::optional<nlohmann::json>& value, const std::string& key);
  // The same; then, when `broadcastName` is given, posts it as a global notification with user
  // info { key: value } (no user info when the value was removed).
  void setObject(const std::optional<nlohmann::json>& value, const std::string& key,
                 const std::optional<std::string>& broadcastName);

 private:
  std::shared_ptr<platform::DefaultsSuite> suite_;
};

}  // namespace corvane
