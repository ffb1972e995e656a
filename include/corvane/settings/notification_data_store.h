// The user's alert rules (a sensor passing a threshold), kept in the shared settings suite so
// that every process of the product sees and announces the same list.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/global_notifications.h"
#include "corvane/settings/pref_data.h"
#include "corvane/store/data_store.h"
#include "corvane/store/sensor_data_store.h"
#include "corvane/util/dates.h"
#include "corvane/util/error.h"

namespace corvane {

// The identifier of the one rule that watches every sensor rather than one.
inline constexpr const char* kAnySensorNotificationIdentifier = "any-sensor";

// One alert rule. Rules are shared objects: the store hands out the same objects it keeps, so a
// change made through the store shows in every holder at once.
class HWNotification {
 public:
  HWNotification(std::string identifier, std::string name, std::uint64_t sourceType, std::uint64_t repeatMode,
                 bool active, std::optional<dates::Date> lastTimeFired, double threshold);

  // The watched sensor's key, or "any-sensor".
  std::string identifier;
  // The sensor's display name when it was chosen.
  std::string name;
  // 0 sensor, 1 cpu.
  std::uint64_t sourceType = 0;
  // 0 ... 5; see repeatDelays().
  std::uint64_t repeatMode = 0;
  // Whether the rule is armed.
  bool active = true;
  // When the rule last fired; nothing after its sensor changed.
  std::optional<dates::Date> lastTimeFired;
  // The limit, in the unit the sensor's converted value is shown in.
  double threshold = 0;

  // Seconds between two firings: modes 1 ... 5 give 10, 30, 60, 120, 300; anything else 0,
  // which means the rule does not repeat.
  std::int64_t repeatDelays() const;
  // The stored sensor named by `identifier` in `store` (null: the shared data manager's); null
  // for "any-sensor" and for a key the store does not know.
  std::shared_ptr<HWSensorEntity> sensor(const std::shared_ptr<HWSensorDataStore>& store = nullptr) const;
  // Same class and an equal identifier.
  bool operator==(const HWNotification& other) const { return identifier == other.identifier; }

  // The stored dictionary form; a rule that never fired stores 0 as its last firing.
  nlohmann::json toDictionary() const;
  // Reads a dictionary with the lenient rules of the stored form (an unknown source is a sensor,
  // a repeat mode outside 1 ... 5 is 0, a missing last firing is 1970). Null when it is not an
  // object, or "identifier", "name", "active" or "threshold" is missing or of another type;
  // `problem` then says what (when given).
  static std::shared_ptr<HWNotification> itemFromDictionary(const nlohmann::json& dictionary,
                                                            std::string* problem = nullptr);
  static nlohmann::json itemsToDictionaries(const std::vector<std::shared_ptr<HWNotification>>& items);
  // Every element that reads; the others are left out.
  static std::vector<std::shared_ptr<HWNotification>> itemsFromDictionaries(const nlohmann::json& dictionaries);
  static std::uint64_t repeatModeFromString(const nlohmann::json& value);
  static std::uint64_t sourceTypeFromString(const nlohmann::json& value);
  static std::string stringFromSourceType(std::uint64_t sourceType);
};

using HWNotificationList = std::vector<std::shared_ptr<HWNotification>>;

// Told on the main queue that some process changed the list.
class HWNotificationDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  virtual void notificationDataStoreNotificationsDidChange(const HWNotificationList& notifications) {
    (void)notifications;
  }
};

// The alert rules over the shared suite. Made once per process by the data manager and held by
// std::shared_ptr; used on the main queue.
class HWNotificationDataStore : public HWDataStore, public std::enable_shared_from_this<HWNotificationDataStore> {
  struct Passkey {};

 public:
  // The text of the one failure a change of sensor reports.
  static constexpr const char* kDuplicateSensorMessage = "This sensor is already in the notifications list";
  // The threshold of the default rule, in Celsius.
  static constexpr double kDefaultThresholdCelsius = 70;

  // A store over `prefData` (null: a wrapper of its own) and `sensorDataStore`, listening for
  // other processes' changes of the list.
  static std::shared_ptr<HWNotificationDataStore> create(std::shared_ptr<HWPrefData> prefData,
                                                         std::shared_ptr<HWSensorDataStore> sensorDataStore);
  HWNotificationDataStore(Passkey, std::shared_ptr<HWPrefData> prefData,
                          std::shared_ptr<HWSensorDataStore> sensorDataStore);
  ~HWNotificationDataStore() override;

  const std::shared_ptr<HWPrefData>& prefData() const { return prefData_; }
  const std::shared_ptr<HWSensorDataStore>& sensorDataStore() const { return sensorDataStore_; }

  // The cached list; read from the suite when there is none. Stored rules that cannot be read
  // are left out, each said once per process on stderr, and nothing is written back. With
  // nothing stored: one rule on the main sensor at 70 °C in the user's unit (not written).
  const HWNotificationList& notifications();
  // Caches `notifications`, stores them and announces the change to every process.
  void setNotifications(HWNotificationList notifications);

  // The threshold a new rule on `sensor` starts with: half again its present value, but never
  // beyond its upper limit (both in the user's unit).
  static double newRuleThreshold(const HWSensorEntity& sensor);
  // A rule on the first temperature sensor that has none yet, appended and saved; null (nothing
  // changed) when every one has a rule or there are none.
  std::shared_ptr<HWNotification> createNewSensorNotification();
  // The first rule whose identifier is `key`, or null.
  std::shared_ptr<HWNotification> getNotificationBySensorKey(const std::string& key);
  // Points `notification` (a rule of the list) at `sensor`, or at every sensor when
  // `isAnySensor`; clears its last firing and saves. False when the rule is not in the list, the
  // sensor is null, or another rule has that identifier already (then `error`, when given, says
  // so and nothing changes).
  bool updateSensor(const std::shared_ptr<HWSensorEntity>& sensor, bool isAnySensor,
                    const std::shared_ptr<HWNotification>& notification, HWError* error);
  // Replaces the rule with the same identifier and saves.
  void updateNotification(const std::shared_ptr<HWNotification>& notification);
  // Removes every rule with the same identifier and saves.
  void removeNotification(const std::shared_ptr<HWNotification>& notification);
  // Removes the stored list (announced).
  void clearData() override;

 private:
  void registerNotifications();
  void notificationsDidChangeNotification(const nlohmann::json& userInfo);
  HWNotificationList decodeStored(const nlohmann::json& stored);
  HWNotificationList defaultNotifications();
  void save();
  void report(const std::string& line);

  std::shared_ptr<HWPrefData> prefData_;
  std::shared_ptr<HWSensorDataStore> sensorDataStore_;
  std::optional<HWNotificationList> notifications_;
  std::set<std::string> reported_;
  std::unique_ptr<platform::GlobalNotifications::Token> observation_;
};

}  // namespace corvane
