#include "corvane/settings/cpu_data_store.h"

#include <string>

#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"

namespace corvane {

std::shared_ptr<HWCPUDataStore> HWCPUDataStore::create(std::shared_ptr<HWPrefData> prefData) {
  auto store = std::make_shared<HWCPUDataStore>(Passkey{}, std::move(prefData));
  store->registerNotifications();
  return store;
}

HWCPUDataStore::HWCPUDataStore(Passkey, std::shared_ptr<HWPrefData> prefData)
    : prefData_(prefData ? std::move(prefData) : std::make_shared<HWPrefData>()) {}

HWCPUDataStore::~HWCPUDataStore() = default;

void HWCPUDataStore::registerNotifications() {
  std::weak_ptr<HWCPUDataStore> weak = weak_from_this();
  observation_ = HWNotificationUtils::addObserver(std::string(settings::kNumOfTopProcessesDidChangeNotification),
                                                 [weak](const std::string&, const nlohmann::json&) {
                                                   if (auto live = weak.lock()) {
                                                     live->numOfTopProcessesDidChangeNotification();
                                                   }
                                                 });
}

void HWCPUDataStore::numOfTopProcessesDidChangeNotification() {
  // Several changes in a row may arrive together; each listener reads the count as it is now,
  // so a burst ends on the last value whatever order the posts took.
  const std::int64_t number = numOfTopProcesses();
  forEachDelegate<HWCPUDataStoreDelegate>(
      [&](HWCPUDataStoreDelegate& delegate) { delegate.cpuDataStoreNumOfTopProcessesDidChange(number); });
}

std::int64_t HWCPUDataStore::numOfTopProcesses() const {
  const auto value = prefData_->objectForKey(std::string(settings::kNumOfTopProcessesKey));
  // Another process, or a hand edit, may have stored anything; a negative or fractional count
  // would list nothing or make no sense, so it reads as the default.
  if (!value || !value->is_number_integer() || value->get<std::int64_t>() < 0) return kDefaultNumOfTopProcesses;
  return value->get<std::int64_t>();
}

void HWCPUDataStore::setNumOfTopProcesses(std::optional<std::int64_t> number) {
  std::optional<nlohmann::json> value;
  if (number) value = *number;
  prefData_->setObject(value, std::string(settings::kNumOfTopProcessesKey),
                       std::string(settings::kNumOfTopProcessesDidChangeNotification));
}

void HWCPUDataStore::clearData() { setNumOfTopProcesses(std::nullopt); }

}  // namespace corvane
