// The one gateway to the stored sensors, categories, fan sets, fan conditions and graph points,
// and to the sensor and fan settings; it turns the other process's changes into delegate calls.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/global_notifications.h"
#include "corvane/store/core_data_stack.h"
#include "corvane/store/data_store.h"
#include "corvane/store/entities.h"

namespace corvane {

// What the sensor data store is told; every method is optional. Called on the queue the
// notification arrives on (the main queue).
class HWSensorDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  virtual void sensorDataStoreSensorsDidChanged(const std::vector<std::shared_ptr<HWSensorEntity>>& /*sensors*/) {}
  virtual void sensorDataStoreMainSensorDidChange(const std::shared_ptr<HWSensorEntity>& /*sensor*/) {}
  virtual void sensorDataStoreSensorSettingsDidChange() {}
  virtual void sensorDataStoreFanSettingsDidChange() {}
  virtual void sensorDataStoreFanControlSettingsDidChange() {}
};

// Where the store keeps its settings and sends its announcements. The settings layer sits above
// the store, so the data manager hands in the shared preferences and global notifications
// through this. Thread-safe.
class HWSensorDataStoreEnvironment {
 public:
  virtual ~HWSensorDataStoreEnvironment() = default;
  // The stored setting, or nothing.
  virtual std::optional<nlohmann::json> objectForKey(const std::string& key) const = 0;
  // Stores `value` (nothing removes it); when `broadcastName` is given, announces it to every
  // process with the sender's app mode.
  virtual void setObject(const std::optional<nlohmann::json>& value, const std::string& key,
                         const std::optional<std::string>& broadcastName) = 0;
  // Announces `name` to every process with this process's app mode under "appMode".
  virtual void postGlobalNotification(const std::string& name) = 0;
  // This process's app mode.
  virtual std::uint64_t appMode() const = 0;
  // Calls `observer` on the main queue for every global notification `name` until the token goes.
  virtual std::unique_ptr<platform::GlobalNotifications::Token> addObserver(
      const std::string& name, platform::GlobalNotifications::Observer observer) = 0;
};

class HWSensorDataStore : public HWDataStore, public std::enable_shared_from_this<HWSensorDataStore> {
 public:
  // A store on `stack`, with settings and announcements through `environment`; registers for the
  // five notifications and installs the entities' settings provider.
  static std::shared_ptr<HWSensorDataStore> create(std::shared_ptr<HWCoreDataStack> stack,
                                                   std::shared_ptr<HWSensorDataStoreEnvironment> environment);
  ~HWSensorDataStore() override;

  const std::shared_ptr<HWCoreDataStack>& coreDataStack() const { return stack_; }
  std::shared_ptr<HWManagedObjectContext> newContext() { return stack_->newContext(); }
  // Saves the view context (which then announces to other processes in the writing process).
  bool save() { return stack_->saveViewContext(); }
  bool saveContext(const std::shared_ptr<HWManagedObjectContext>& context) { return stack_->saveContext(context); }
  // Deletes from the view context; the caller saves.
  void deleteObject(const std::shared_ptr<HWManagedObject>& object) { stack_->viewContext()->deleteObject(object); }
  void refreshAllObjects() { stack_->refreshAllObjectsInViewContext(); }
  // Forgets the main sensor (and its setting).
  void clearData() override;

  // ---- settings (read and written on every access; only the main sensor is cached) ----
  // The chosen sensor, else "AverageCPU", else "TC0P", else the first visible temperature sensor.
  std::shared_ptr<HWSensorEntity> mainSensor();
  void setMainSensor(const std::shared_ptr<HWSensorEntity>& sensor);
  bool tempUnitCelsius() const;
  void setTempUnitCelsius(bool v);
  bool showUnknownSensors() const;
  void setShowUnknownSensors(bool v);
  bool showHIDSensors() const;
  void setShowHIDSensors(bool v);
  bool showComputedSensors() const;
  void setShowComputedSensors(bool v);
  // 0 rpm, 1 share of the fan's range.
  std::uint64_t fanValueType() const;
  void setFanValueType(std::uint64_t v);
  // 0 system, 1 manual fan set, 2 auto boost.
  std::uint64_t fanControlMode() const;
  void setFanControlMode(std::uint64_t v);
  // The manual fan set's identifier; takes over the older name setting when only that exists.
  std::optional<std::string> manualFanSetId();
  void setManualFanSetId(const std::optional<std::string>& v);
  std::shared_ptr<HWFanSetEntity> manualFanSet();
  bool manualLinkEnabled() const;
  void setManualLinkEnabled(bool v);
  bool autoBoostNotificationEnabled() const;
  void setAutoBoostNotificationEnabled(bool v);
  bool didAutoBoost() const;
  void setDidAutoBoost(bool v);

  // ---- sensors (null context: the view context, on the main queue) ----
  std::shared_ptr<HWSensorEntity> getSensorByKey(const std::string& key,
                                                 const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  std::vector<std::shared_ptr<HWSensorEntity>> allSensors(const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // Fans that are not computed (a computed fastest-fan sensor is never driven).
  std::vector<std::shared_ptr<HWSensorEntity>> fanSensors(const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // The temperature category's sensors in order, with the display switches applied.
  std::vector<std::shared_ptr<HWSensorEntity>> tempSensors(const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // Get or create by key (a new one has only its key).
  std::shared_ptr<HWSensorEntity> createSensorWithKey(const std::string& key,
                                                      const std::shared_ptr<HWManagedObjectContext>& context);
  // A sensor the user adds: "key", "name", "category_type"; null without key or name or for a fan.
  // An existing sensor with the key is returned untouched. Nothing is saved.
  std::shared_ptr<HWSensorEntity> createSensorWithCustomInfo(const nlohmann::json& info);

  // ---- categories ----
  std::shared_ptr<HWSensorCategoryEntity> getCategoryWithName(
      const std::string& name, const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  std::shared_ptr<HWSensorCategoryEntity> getCategoryWithType(
      std::int64_t type, const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // Sorted by type.
  std::vector<std::shared_ptr<HWSensorCategoryEntity>> allCategories(
      const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  std::shared_ptr<HWSensorCategoryEntity> createOrUpdateCategoryWithName(
      const std::string& name, const std::shared_ptr<HWManagedObjectContext>& context);

  // ---- fan sets and conditions (sorted by creation) ----
  std::shared_ptr<HWFanSetEntity> getFanSetById(const std::string& identifier);
  std::vector<std::shared_ptr<HWFanSetEntity>> allFanSets(const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // A fan set named `name` requesting `value` (fan key to rpm), identified by the current second.
  std::shared_ptr<HWFanSetEntity> createFanSetWithName(const std::string& name, const nlohmann::json& value,
                                                       const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  std::vector<std::shared_ptr<HWFanConditionEntity>> allFanConditions(
      const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // Null unless both the fan set and the sensor are given. Nothing is saved.
  std::shared_ptr<HWFanConditionEntity> createFanConditionWithFanSet(const std::shared_ptr<HWFanSetEntity>& fanSet,
                                                                     const std::shared_ptr<HWSensorEntity>& sensor,
                                                                     double threshold, std::uint64_t batteryState,
                                                                     bool externalDisplayConnected);
  // Deletes, in one transaction in the file, the points of `range` taken before `before` (seconds
  // since 1970) of each of `sensors`. A sensor's points of a range lie together in time order, so
  // the cost follows what goes, not the history's size. Returns how many went (-1 when the store cannot be
  // written). Point objects already loaded are not told, as with any batch delete.
  std::int64_t deleteGraphPoints(const std::vector<std::shared_ptr<HWSensorEntity>>& sensors, HWTimeRange range,
                                 double before);
  // An empty point for the sensor monitor to fill and attach.
  std::shared_ptr<HWGraphPointEntity> createGraphPoint(const std::shared_ptr<HWManagedObjectContext>& context = nullptr);

 private:
  HWSensorDataStore(std::shared_ptr<HWCoreDataStack> stack, std::shared_ptr<HWSensorDataStoreEnvironment> environment);
  void observe();
  std::shared_ptr<HWManagedObjectContext> contextOr(const std::shared_ptr<HWManagedObjectContext>& context) const;
  bool boolSetting(const char* key, bool defaultValue) const;
  std::uint64_t unsignedSetting(const char* key) const;

  std::shared_ptr<HWCoreDataStack> stack_;
  std::shared_ptr<HWSensorDataStoreEnvironment> environment_;
  std::shared_ptr<HWSensorEntity> mainSensor_;
  std::vector<std::unique_ptr<platform::GlobalNotifications::Token>> tokens_;
};

}  // namespace corvane
