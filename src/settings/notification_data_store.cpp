#include "corvane/settings/notification_data_store.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

#include "corvane/sensors/value_formatter.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/util/dictionaries.h"

namespace corvane {

namespace {

const std::string kListKey(settings::kNotificationsKey);
const std::string kDidChange(settings::kNotificationDataStoreNotificationsDidChangeNotification);

double secondsSince1970(dates::Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

dates::Date dateFromSeconds(double seconds) {
  return dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(seconds)));
}

// The field a rule cannot do without, or nothing when it has them all in the right types.
std::optional<std::string> missingField(const nlohmann::json& dictionary) {
  if (!dictionary.is_object()) return std::string("it is not a dictionary");
  const auto has = [&](const char* key, bool (nlohmann::json::*is)() const noexcept) {
    const auto found = dictionary.find(key);
    return found != dictionary.end() && ((*found).*is)();
  };
  if (!has("identifier", &nlohmann::json::is_string)) return std::string("no identifier");
  if (!has("name", &nlohmann::json::is_string)) return std::string("no name");
  // A flag is stored as a number by some writers; both read as a switch.
  if (!has("active", &nlohmann::json::is_boolean) && !has("active", &nlohmann::json::is_number)) {
    return std::string("no active switch");
  }
  if (!has("threshold", &nlohmann::json::is_number)) return std::string("no threshold");
  return std::nullopt;
}

}  // namespace

// ---- HWNotification ----

HWNotification::HWNotification(std::string identifier, std::string name, std::uint64_t sourceType,
                               std::uint64_t repeatMode, bool active, std::optional<dates::Date> lastTimeFired,
                               double threshold)
    : identifier(std::move(identifier)),
      name(std::move(name)),
      sourceType(sourceType),
      repeatMode(repeatMode),
      active(active),
      lastTimeFired(lastTimeFired),
      threshold(threshold) {}

std::int64_t HWNotification::repeatDelays() const {
  switch (repeatMode) {
    case 1: return 10;
    case 2: return 30;
    case 3: return 60;
    case 4: return 120;
    case 5: return 300;
    default: return 0;
  }
}

std::shared_ptr<HWSensorEntity> HWNotification::sensor(const std::shared_ptr<HWSensorDataStore>& store) const {
  if (identifier == kAnySensorNotificationIdentifier) return nullptr;
  const auto& from = store ? store : HWDataManager::shared()->sensorDataStore();
  return from ? from->getSensorByKey(identifier) : nullptr;
}

nlohmann::json HWNotification::toDictionary() const {
  return {{"identifier", identifier},
          {"name", name},
          {"sourceType", stringFromSourceType(sourceType)},
          {"repeatMode", repeatMode},
          {"active", active},
          {"lastTimeFired", lastTimeFired ? secondsSince1970(*lastTimeFired) : 0.0},
          {"threshold", threshold}};
}

std::shared_ptr<HWNotification> HWNotification::itemFromDictionary(const nlohmann::json& dictionary,
                                                                   std::string* problem) {
  if (auto missing = missingField(dictionary)) {
    if (problem != nullptr) *problem = *missing;
    return nullptr;
  }
  const auto field = [&](const char* key) {
    const auto found = dictionary.find(key);
    return found == dictionary.end() ? nlohmann::json() : *found;
  };
  // A rule that never fired reads back as fired in 1970: its repeat delay has always elapsed.
  return std::make_shared<HWNotification>(
      dictionary["identifier"].get<std::string>(), dictionary["name"].get<std::string>(),
      sourceTypeFromString(field("sourceType")), repeatModeFromString(field("repeatMode")),
      dictionaries::boolValue(dictionary["active"]), dateFromSeconds(dictionaries::doubleValue(field("lastTimeFired"))),
      dictionary["threshold"].get<double>());
}

nlohmann::json HWNotification::itemsToDictionaries(const std::vector<std::shared_ptr<HWNotification>>& items) {
  nlohmann::json array = nlohmann::json::array();
  for (const auto& item : items) {
    if (item) array.push_back(item->toDictionary());
  }
  return array;
}

std::vector<std::shared_ptr<HWNotification>> HWNotification::itemsFromDictionaries(const nlohmann::json& dictionaries) {
  std::vector<std::shared_ptr<HWNotification>> items;
  if (!dictionaries.is_array()) return items;
  for (const auto& dictionary : dictionaries) {
    if (auto item = itemFromDictionary(dictionary)) items.push_back(std::move(item));
  }
  return items;
}

std::uint64_t HWNotification::repeatModeFromString(const nlohmann::json& value) {
  const long long mode = dictionaries::integerValue(value);
  return mode >= 1 && mode <= 5 ? static_cast<std::uint64_t>(mode) : 0;
}

std::uint64_t HWNotification::sourceTypeFromString(const nlohmann::json& value) {
  return value.is_string() && value.get<std::string>() == "cpu" ? 1 : 0;
}

std::string HWNotification::stringFromSourceType(std::uint64_t sourceType) { return sourceType == 1 ? "cpu" : "sensor"; }

// ---- HWNotificationDataStore ----

std::shared_ptr<HWNotificationDataStore> HWNotificationDataStore::create(
    std::shared_ptr<HWPrefData> prefData, std::shared_ptr<HWSensorDataStore> sensorDataStore) {
  auto store = std::make_shared<HWNotificationDataStore>(Passkey{}, std::move(prefData), std::move(sensorDataStore));
  store->registerNotifications();
  return store;
}

HWNotificationDataStore::HWNotificationDataStore(Passkey, std::shared_ptr<HWPrefData> prefData,
                                                 std::shared_ptr<HWSensorDataStore> sensorDataStore)
    : prefData_(prefData ? std::move(prefData) : std::make_shared<HWPrefData>()),
      sensorDataStore_(std::move(sensorDataStore)) {}

HWNotificationDataStore::~HWNotificationDataStore() = default;

void HWNotificationDataStore::registerNotifications() {
  std::weak_ptr<HWNotificationDataStore> weak = weak_from_this();
  observation_ = HWNotificationUtils::addObserver(kDidChange, [weak](const std::string&, const nlohmann::json& info) {
    if (auto live = weak.lock()) live->notificationsDidChangeNotification(info);
  });
}

void HWNotificationDataStore::notificationsDidChangeNotification(const nlohmann::json& userInfo) {
  // This process's own saves left the cache right; another kind of process wrote behind it.
  const auto mode = userInfo.find(settings::kAppModeKey);
  if (mode == userInfo.end() || static_cast<std::uint64_t>(dictionaries::integerValue(*mode)) != HWDataManager::appMode()) {
    notifications_.reset();
  }
  const auto& list = notifications();
  forEachDelegate<HWNotificationDataStoreDelegate>(
      [&](HWNotificationDataStoreDelegate& delegate) { delegate.notificationDataStoreNotificationsDidChange(list); });
}

void HWNotificationDataStore::report(const std::string& line) {
  // The list is read again after every change another process makes; one line per fault is
  // enough for whoever reads the log.
  if (!reported_.insert(line).second) return;
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
}

HWNotificationList HWNotificationDataStore::decodeStored(const nlohmann::json& stored) {
  HWNotificationList list;
  if (!stored.is_array()) {
    report("corvane: the stored alert rules are not a list; none of them is used");
    return list;
  }
  // Whether a key is unknown can only be told once the machine's sensors are in the store; before
  // that, every rule would look like one on a vanished sensor.
  std::optional<bool> storeHasSensors;
  for (std::size_t index = 0; index < stored.size(); ++index) {
    std::string problem;
    auto item = HWNotification::itemFromDictionary(stored[index], &problem);
    if (item && item->sourceType == 0 && item->identifier != kAnySensorNotificationIdentifier && sensorDataStore_ &&
        !item->sensor(sensorDataStore_)) {
      if (!storeHasSensors) storeHasSensors = !sensorDataStore_->allSensors().empty();
      if (*storeHasSensors) {
        problem = "its sensor " + item->identifier + " is unknown";
        item.reset();
      }
    }
    if (!item) {
      report("corvane: skipped stored alert rule " + std::to_string(index + 1) + ": " + problem);
      continue;
    }
    list.push_back(std::move(item));
  }
  return list;
}

HWNotificationList HWNotificationDataStore::defaultNotifications() {
  HWNotificationList list;
  const auto main = sensorDataStore_ ? sensorDataStore_->mainSensor() : nullptr;
  if (!main) return list;
  list.push_back(std::make_shared<HWNotification>(main->key(), main->name(), 0, 0, true, std::nullopt,
                                                  HWValueConverter::convertedTemp(kDefaultThresholdCelsius)));
  return list;
}

const HWNotificationList& HWNotificationDataStore::notifications() {
  if (!notifications_) {
    const auto stored = prefData_->objectForKey(kListKey);
    notifications_ = stored ? decodeStored(*stored) : defaultNotifications();
  }
  return *notifications_;
}

void HWNotificationDataStore::setNotifications(HWNotificationList notifications) {
  notifications_ = std::move(notifications);
  save();
}

void HWNotificationDataStore::save() {
  prefData_->setObject(HWNotification::itemsToDictionaries(*notifications_), kListKey, kDidChange);
}

double HWNotificationDataStore::newRuleThreshold(const HWSensorEntity& sensor) {
  return std::min(1.5 * sensor.convertedValue(), sensor.convertedMaxValue());
}

std::shared_ptr<HWNotification> HWNotificationDataStore::createNewSensorNotification() {
  if (!sensorDataStore_) return nullptr;
  auto list = notifications();
  for (const auto& sensor : sensorDataStore_->tempSensors()) {
    if (getNotificationBySensorKey(sensor->key())) continue;
    auto made = std::make_shared<HWNotification>(sensor->key(), sensor->name(), 0, 0, true, std::nullopt,
                                                 newRuleThreshold(*sensor));
    list.push_back(made);
    setNotifications(std::move(list));
    return made;
  }
  return nullptr;
}

std::shared_ptr<HWNotification> HWNotificationDataStore::getNotificationBySensorKey(const std::string& key) {
  for (const auto& item : notifications()) {
    if (item->identifier == key) return item;
  }
  return nullptr;
}

bool HWNotificationDataStore::updateSensor(const std::shared_ptr<HWSensorEntity>& sensor, bool isAnySensor,
                                           const std::shared_ptr<HWNotification>& notification, HWError* error) {
  if (!notification || !getNotificationBySensorKey(notification->identifier)) return false;
  if (!isAnySensor && !sensor) return false;
  const std::string wanted = isAnySensor ? std::string(kAnySensorNotificationIdentifier) : sensor->key();
  if (getNotificationBySensorKey(wanted)) {
    if (error != nullptr) *error = HWError{"", -1, kDuplicateSensorMessage};
    return false;
  }
  // The caller may hold a copy equal by identifier rather than the listed object; the listed one
  // is what gets saved.
  const auto listed = getNotificationBySensorKey(notification->identifier);
  for (const auto& target : {listed, notification}) {
    target->identifier = wanted;
    if (!isAnySensor) target->name = sensor->name();
    target->lastTimeFired.reset();
  }
  save();
  return true;
}

void HWNotificationDataStore::updateNotification(const std::shared_ptr<HWNotification>& notification) {
  if (!notification) return;
  auto list = notifications();
  std::replace_if(
      list.begin(), list.end(), [&](const auto& item) { return *item == *notification; }, notification);
  setNotifications(std::move(list));
}

void HWNotificationDataStore::removeNotification(const std::shared_ptr<HWNotification>& notification) {
  if (!notification) return;
  auto list = notifications();
  std::erase_if(list, [&](const auto& item) { return *item == *notification; });
  setNotifications(std::move(list));
}

void HWNotificationDataStore::clearData() {
  notifications_.reset();
  prefData_->setObject(std::nullopt, kListKey, kDidChange);
}

}  // namespace corvane
