// The process-wide owner of the data stores: builds the store stack and the stores, fills the
// store with the machine's sensors, the five categories and the first fan set, and repairs data
// written by older versions. It owns the settings store too, so it sits in the settings layer.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/sensor_reader.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/cpu_data_store.h"
#include "corvane/settings/menu_data_store.h"
#include "corvane/settings/notification_data_store.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/store/sensor_data_store.h"

namespace corvane {

// Told on the main queue when a data set has been built.
class HWDataManagerDelegate : public virtual HWDataStoreDelegate {
 public:
  virtual void dataManagerDataSetReady() {}
};

class HWDataManager : public std::enable_shared_from_this<HWDataManager> {
 public:
  // Which cooperating process this is; 1 reads the hardware and writes the store. Set it before
  // the first shared() (or create()). Thread-safe.
  static std::uint64_t appMode();
  static void setAppMode(std::uint64_t mode);
  static void setupWithAppMode(std::uint64_t mode) { setAppMode(mode); }

  // The single manager on "Database.sqlite" in the app-group container, made on first use.
  static std::shared_ptr<HWDataManager> shared();
  // A manager on another store file (a user's second store, tests). Opens nothing yet.
  static std::shared_ptr<HWDataManager> create(const std::filesystem::path& storeFile);
  ~HWDataManager();

  const std::shared_ptr<HWPrefData>& prefData() const { return prefData_; }
  const std::shared_ptr<HWSensorDataStore>& sensorDataStore() const { return sensorDataStore_; }
  const std::shared_ptr<HWSettingsDataStore>& settingsDataStore() const { return settingsDataStore_; }
  const std::shared_ptr<HWCPUDataStore>& cpuDataStore() const { return cpuDataStore_; }
  const std::shared_ptr<HWSensorMenuDataStore>& sensorMenuDataStore() const { return sensorMenuDataStore_; }
  const std::shared_ptr<HWCPUMenuDataStore>& cpuMenuDataStore() const { return cpuMenuDataStore_; }
  const std::shared_ptr<HWNotificationDataStore>& notificationDataStore() const { return notificationDataStore_; }
  const std::shared_ptr<HWSensorReader>& sensorReader() const { return sensorReader_; }
  bool dataSetReady() const { return dataSetReady_; }

  // Null and duplicates are ignored; held weakly.
  void addDelegate(const std::shared_ptr<HWDataManagerDelegate>& delegate);

  // backwardCompability, then buildDataSet. Called once at start.
  void buildDatabase();
  // Removes the old storage engine's "db.realm" (and its companions) from the app-group container;
  // where the system has moved the app-group container, carries the store over from the old one.
  void backwardCompability();
  // Copies the three store files from `oldContainer` into `newContainer` (replacing those there)
  // and, when anything was copied, removes the old container; every step is logged. Nothing
  // happens when the old container is not a folder.
  static void migrateLegacyAppGroupDataIfNeeded(const std::filesystem::path& oldContainer,
                                                const std::filesystem::path& newContainer);
  // On the internal queue: categories and sensors, the first fan set, repairs, one save; one
  // second later on the main queue the data set is ready, the sensor strip's drop-down sections
  // are rebuilt from the new sensors, and the delegates are told.
  void buildDataSet();
  // The same work at once on the calling thread, which must be the main queue's (no delegate
  // call, no delay); false when the save failed.
  bool buildDataSetNow();
  // On the internal queue: categories and sensors only, one save; a main sensor if there is
  // none; the delegates are told at once on the main queue.
  void buildSensors();
  // Clears every store's own state, then removes the store files from the store's folder.
  void clearData();

  void buildSensorCategoriesInContext(const std::shared_ptr<HWManagedObjectContext>& context);
  void buildFanSetsInContext(const std::shared_ptr<HWManagedObjectContext>& context);
  void updateForOldDataInContext(const std::shared_ptr<HWManagedObjectContext>& context);

 private:
  explicit HWDataManager(const std::filesystem::path& storeFile);
  void tellDelegates();
  void removeRealmDatabase();
  // A new background context holding the categories, sensors and fan sets, with older data repaired.
  std::shared_ptr<HWManagedObjectContext> dataSetInNewContext();
  std::shared_ptr<dispatch::Queue> internalQueue();

  std::filesystem::path storeFile_;
  std::shared_ptr<HWPrefData> prefData_;
  std::shared_ptr<HWCoreDataStack> stack_;
  std::shared_ptr<HWSensorDataStore> sensorDataStore_;
  std::shared_ptr<HWSettingsDataStore> settingsDataStore_;
  std::shared_ptr<HWSensorMenuDataStore> sensorMenuDataStore_;
  std::shared_ptr<HWCPUDataStore> cpuDataStore_;
  std::shared_ptr<HWCPUMenuDataStore> cpuMenuDataStore_;
  std::shared_ptr<HWNotificationDataStore> notificationDataStore_;
  std::shared_ptr<HWSensorReader> sensorReader_;
  std::shared_ptr<dispatch::Queue> internalQueue_;
  bool dataSetReady_ = false;
  struct Delegates;
  std::unique_ptr<Delegates> delegates_;
};

}  // namespace corvane
