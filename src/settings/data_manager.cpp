#include "corvane/settings/data_manager.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "corvane/settings/notification_utils.h"
#include "corvane/util/install_paths.h"
#include "platform/log.h"
#include "util/weak_list.h"

namespace corvane {

namespace {

std::atomic<std::uint64_t> processAppMode{0};

constexpr const char* kCategoryNames[] = {"Temperature", "Fan", "Voltage", "Current", "Power"};

// The sensor data store's settings and announcements through the shared preferences.
class PrefEnvironment final : public HWSensorDataStoreEnvironment {
 public:
  explicit PrefEnvironment(std::shared_ptr<HWPrefData> prefData) : prefData_(std::move(prefData)) {}
  std::optional<nlohmann::json> objectForKey(const std::string& key) const override {
    return prefData_->objectForKey(key);
  }
  void setObject(const std::optional<nlohmann::json>& value, const std::string& key,
                 const std::optional<std::string>& broadcastName) override {
    prefData_->setObject(value, key, broadcastName);
  }
  void postGlobalNotification(const std::string& name) override { HWNotificationUtils::postGlobalNotification(name); }
  std::uint64_t appMode() const override { return HWDataManager::appMode(); }
  std::unique_ptr<platform::GlobalNotifications::Token> addObserver(
      const std::string& name, platform::GlobalNotifications::Observer observer) override {
    return HWNotificationUtils::addObserver(name, std::move(observer));
  }

 private:
  std::shared_ptr<HWPrefData> prefData_;
};

// The settings store asks for the visible sensors' keys; the sensor data store knows them.
class VisibleKeys final : public LoggedSensorKeysSource {
 public:
  explicit VisibleKeys(std::weak_ptr<HWSensorDataStore> store) : store_(std::move(store)) {}
  std::vector<std::string> visibleSensorKeys() override {
    std::vector<std::string> keys;
    auto store = store_.lock();
    if (!store) return keys;
    for (const auto& category : store->allCategories()) {
      for (const auto& sensor : category->filterSensors()) keys.push_back(sensor->key());
    }
    return keys;
  }

 private:
  std::weak_ptr<HWSensorDataStore> store_;
};

// Whether copying `record` into `sensor` would change anything (fan limits only ever widen).
bool differs(const HWSensorEntity& sensor, const HWSensor& record, bool isFan) {
  const double min = isFan && sensor.minValue() > 0 && sensor.minValue() <= record.minLimitValue()
                         ? sensor.minValue()
                         : record.minLimitValue();
  const double max = isFan && sensor.maxValue() > 0 && sensor.maxValue() >= record.maxLimitValue()
                         ? sensor.maxValue()
                         : record.maxLimitValue();
  return sensor.name() != record.name() || sensor.fullName() != record.fullName() ||
         sensor.value() != record.value() || sensor.group() != static_cast<std::int16_t>(toNumber(record.group())) ||
         sensor.platform() != static_cast<std::int16_t>(record.platform()) ||
         sensor.sourceType() != static_cast<std::int16_t>(toNumber(record.sourceType())) ||
         sensor.average() != record.average() || sensor.minValue() != min || sensor.maxValue() != max;
}

}  // namespace

struct HWDataManager::Delegates {
  WeakList<HWDataManagerDelegate> list;
};

std::uint64_t HWDataManager::appMode() { return processAppMode.load(); }
void HWDataManager::setAppMode(std::uint64_t mode) { processAppMode.store(mode); }

std::shared_ptr<HWDataManager> HWDataManager::shared() {
  static std::shared_ptr<HWDataManager> instance = create(files::appGroupURL() / "Database.sqlite");
  return instance;
}

std::shared_ptr<HWDataManager> HWDataManager::create(const std::filesystem::path& storeFile) {
  return std::shared_ptr<HWDataManager>(new HWDataManager(storeFile));
}

HWDataManager::HWDataManager(const std::filesystem::path& storeFile)
    : storeFile_(storeFile), delegates_(std::make_unique<Delegates>()) {
  HWNotificationUtils::setAppModeProvider([] { return HWDataManager::appMode(); });
  prefData_ = std::make_shared<HWPrefData>();
  stack_ = HWCoreDataStack::create(storeFile, appMode() == 1);
  sensorDataStore_ = HWSensorDataStore::create(stack_, std::make_shared<PrefEnvironment>(prefData_));
  sensorMenuDataStore_ = HWSensorMenuDataStore::create(prefData_, sensorDataStore_);
  cpuDataStore_ = HWCPUDataStore::create(prefData_);
  cpuMenuDataStore_ = HWCPUMenuDataStore::create(prefData_);
  notificationDataStore_ = HWNotificationDataStore::create(prefData_, sensorDataStore_);
  settingsDataStore_ = HWSettingsDataStore::create(prefData_, std::make_shared<VisibleKeys>(sensorDataStore_));
  stack_->setStalenessInterval(static_cast<double>(settingsDataStore_->updateInterval()));
  sensorReader_ = HWSensorReader::create();
}

HWDataManager::~HWDataManager() = default;

void HWDataManager::addDelegate(const std::shared_ptr<HWDataManagerDelegate>& delegate) { delegates_->list.add(delegate); }

std::shared_ptr<dispatch::Queue> HWDataManager::internalQueue() {
  if (!internalQueue_) internalQueue_ = dispatch::serialQueue("com.HWDataManager.internalQueue");
  return internalQueue_;
}

void HWDataManager::buildDatabase() {
  backwardCompability();
  buildDataSet();
}

void HWDataManager::removeRealmDatabase() {
  // The store engine before SQLite left "db.realm" and companions; they are of no use now.
  const auto realm = storeFile_.parent_path() / "db.realm";
  std::error_code ec;
  if (!std::filesystem::exists(realm, ec)) return;
  std::filesystem::remove(realm, ec);
  for (const char* extension : {".lock", ".note", ".management"}) {
    std::error_code ignored;
    std::filesystem::remove_all(realm.string() + extension, ignored);
  }
}

void HWDataManager::backwardCompability() {
  removeRealmDatabase();
  // Only the product's own store moves with the container; a store named by the user stays put.
  const auto legacy = files::legacyAppGroupURL();
  if (legacy && storeFile_.parent_path() == files::appGroupURL()) {
    migrateLegacyAppGroupDataIfNeeded(*legacy, storeFile_.parent_path());
  }
}

void HWDataManager::migrateLegacyAppGroupDataIfNeeded(const std::filesystem::path& oldContainer,
                                                      const std::filesystem::path& newContainer) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (!fs::is_directory(oldContainer, ec)) return;
  if (!fs::exists(newContainer, ec)) {
    fs::create_directories(newContainer, ec);
    if (ec) {
      platform::log("❌ Failed to create new App Group directory: " + ec.message());
      return;
    }
  }
  bool copied = false;
  for (const char* name : {"Database.sqlite", "Database.sqlite-wal", "Database.sqlite-shm"}) {
    const fs::path from = oldContainer / name;
    const fs::path to = newContainer / name;
    if (!fs::exists(from, ec)) continue;
    if (fs::exists(to, ec)) {
      fs::remove(to, ec);
      if (ec) {
        platform::log("⚠️ Failed to remove old file at " + to.string() + ": " + ec.message());
        continue;
      }
    }
    fs::copy_file(from, to, ec);
    if (ec) {
      platform::log(std::string("❌ Error copying ") + name + ": " + ec.message());
      continue;
    }
    platform::log(std::string("✅ Copied ") + name + " to new App Group path");
    copied = true;
  }
  if (!copied) return;
  fs::remove_all(oldContainer, ec);
  platform::log(ec ? "⚠️ Failed to remove old App Group folder: " + ec.message() : "🗑️ Removed old App Group folder");
}

void HWDataManager::buildSensorCategoriesInContext(const std::shared_ptr<HWManagedObjectContext>& context) {
  const auto& records = sensorReader_->getAllSensors();
  for (std::int16_t type = 0; type < 5; ++type) {
    auto category = sensorDataStore_->createOrUpdateCategoryWithName(kCategoryNames[type], context);
    if (category->type() != type) category->setType(type);
    std::vector<std::shared_ptr<HWSensorEntity>> members;
    for (const auto& record : records) {
      if (static_cast<std::int16_t>(toNumber(record->type())) != type) continue;
      auto sensor = sensorDataStore_->createSensorWithKey(record->key(), context);
      // Unchanged values leave the object untouched, so a second build writes nothing it need not.
      const bool isFan = type == 1;
      if (differs(*sensor, *record, isFan)) sensor->updateFromSensor(*record, isFan);
      if (std::find(members.begin(), members.end(), sensor) == members.end()) members.push_back(sensor);
    }
    // Sensors no longer discovered leave the category and keep their history.
    category->setSensors(members);
  }
}

void HWDataManager::buildFanSetsInContext(const std::shared_ptr<HWManagedObjectContext>& context) {
  if (!sensorDataStore_->allFanSets(context).empty()) return;
  const auto fans = sensorDataStore_->fanSensors(context);
  if (fans.empty()) return;
  nlohmann::json speeds = nlohmann::json::object();
  for (const auto& fan : fans) speeds[fan->key()] = fan->minValue();
  sensorDataStore_->createFanSetWithName("Manual", speeds, context);
}

void HWDataManager::updateForOldDataInContext(const std::shared_ptr<HWManagedObjectContext>& context) {
  const auto sets = sensorDataStore_->allFanSets(context);
  for (const auto& set : sets) {
    if (set->identifier().empty()) set->setIdentifier(set->name());
  }
  for (const auto& condition : sensorDataStore_->allFanConditions(context)) {
    if (!condition->fanSet() && !sets.empty()) condition->setFanSet(sets.back());
  }
}

std::shared_ptr<HWManagedObjectContext> HWDataManager::dataSetInNewContext() {
  auto context = sensorDataStore_->newContext();
  buildSensorCategoriesInContext(context);
  buildFanSetsInContext(context);
  updateForOldDataInContext(context);
  return context;
}

bool HWDataManager::buildDataSetNow() { return sensorDataStore_->saveContext(dataSetInNewContext()); }

void HWDataManager::buildDataSet() {
  std::weak_ptr<HWDataManager> weak = weak_from_this();
  internalQueue()->async([weak] {
    auto self = weak.lock();
    if (!self) return;
    auto context = self->dataSetInNewContext();
    // The view context belongs to the main queue: the save goes up there, and this queue waits.
    dispatch::mainQueue()->sync([&] { self->sensorDataStore_->saveContext(context); });
    dispatch::mainQueue()->asyncAfter(std::chrono::seconds(1), [weak] {
      auto manager = weak.lock();
      if (!manager) return;
      manager->dataSetReady_ = true;
      manager->sensorMenuDataStore_->setDropdownItems(std::nullopt);
      manager->tellDelegates();
    });
  });
}

void HWDataManager::buildSensors() {
  std::weak_ptr<HWDataManager> weak = weak_from_this();
  internalQueue()->async([weak] {
    auto self = weak.lock();
    if (!self) return;
    auto context = self->sensorDataStore_->newContext();
    self->buildSensorCategoriesInContext(context);
    dispatch::mainQueue()->sync([&] { self->sensorDataStore_->saveContext(context); });
    dispatch::mainQueue()->async([weak] {
      auto manager = weak.lock();
      if (!manager) return;
      if (!manager->sensorDataStore_->mainSensor()) {
        const auto temps = manager->sensorDataStore_->tempSensors();
        if (!temps.empty()) manager->sensorDataStore_->setMainSensor(temps.front());
      }
      manager->tellDelegates();
    });
  });
}

void HWDataManager::tellDelegates() {
  for (const auto& delegate : delegates_->list.live()) delegate->dataManagerDataSetReady();
}

void HWDataManager::clearData() {
  sensorDataStore_->clearData();
  sensorMenuDataStore_->clearData();
  cpuDataStore_->clearData();
  cpuMenuDataStore_->clearData();
  notificationDataStore_->clearData();
  settingsDataStore_->clearData();
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(storeFile_.parent_path(), ec)) {
    const auto extension = entry.path().extension();
    if (extension == ".sqlite" || extension == ".sqlite-shm" || extension == ".sqlite-wal") {
      std::error_code ignored;
      std::filesystem::remove(entry.path(), ignored);
    }
  }
}

}  // namespace corvane
