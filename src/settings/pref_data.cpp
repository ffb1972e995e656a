#include "corvane/settings/pref_data.h"

#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/util/dictionaries.h"

namespace corvane {
HWPrefData::HWPrefData() : HWPrefData(nullptr) {}

HWPrefData::HWPrefData(std::shared_ptr<platform::DefaultsSuite> suite) : suite_(std::move(suite)) {
  if (!suite_) suite_ = platform::current().service<platform::DefaultsSuite>().shared_from_this();
}

std::optional<nlohmann::json> HWPrefData::objectForKey(const std::string& key) const { return suite_->get(key); }

nlohmann::json HWPrefData::objectForKey(const std::string& key, const nlohmann::json& defaultValue) const {
  return suite_->get(key).value_or(defaultValue);
}

std::int64_t HWPrefData::integerForKey(const std::string& key) const {
  const auto value = suite_->get(key);
  return value ? dictionaries::integerValue(*value) : 0;
}

std::optional<std::string> HWPrefData::stringForKey(const std::string& key) const {
  const auto value = suite_->get(key);
  if (!value || !(value->is_string() || value->is_number() || value->is_boolean())) return std::nullopt;
  return dictionaries::stringValue(*value);
}

double HWPrefData::doubleForKey(const std::string& key) const {
  const auto value = suite_->get(key);
  return value ? dictionaries::doubleValue(*value) : 0.0;
}

bool HWPrefData::boolForKey(const std::string& key) const {
  const auto value = suite_->get(key);
  return value && dictionaries::boolValue(*value);
}

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
