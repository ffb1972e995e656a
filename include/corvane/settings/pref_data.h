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
  // Typed reads: the stored value's dictionaries::integerValue / stringValue / doubleValue /
  // boolValue; absent gives 0, nothing, 0.0, false, and so does an array or dictionary (which
  // has no string either).
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
