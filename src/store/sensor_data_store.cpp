#include "corvane/store/sensor_data_store.h"

#include <fmt/format.h>

#include <optional>

#include "corvane/dispatch/dispatch.h"
#include "corvane/util/dictionaries.h"
#include "platform/log.h"
#include "store/store_access.h"

namespace corvane {

using store_detail::Access;

namespace {

// Settings (the same keys as the settings layer's table).
constexpr const char* kMainSensorKey = "HWMainSensor";
constexpr const char* kTempUnitCelsiusKey = "HWTempUnitCelsius";
constexpr const char* kShowUnknownSensorsKey = "HWShowUnknownSensorsKey";
constexpr const char* kShowHIDSensorsKey = "HWShowHIDSensorsKey";
constexpr const char* kShowComputedSensorsKey = "HWShowComputedSensorsKey";
constexpr const char* kFanValueTypeKey = "HWFanValueTypeKey";
constexpr const char* kFanControlModeKey = "HWFanControllerModeKey";
constexpr const char* kManualFanSetIdKey = "HWFanControllerManualFanSetIdKey";
constexpr const char* kOldFanSetNameKey = "HWFanControllerFanSetNameKey";
constexpr const char* kManualLinkEnabledKey = "HWFanControllerManualLinkEnabledKey";
constexpr const char* kAutoBoostNotificationKey = "HWFanControllerAutoBoostNotificationEnabledKey";
constexpr const char* kDidAutoBoostKey = "HWFanControllerDidAutoBoostKey";
// Announcements.
constexpr const char* kDataDidWrite = "HWSensorDataStoreDataDidWriteNotification";
constexpr const char* kMainSensorDidChange = "HWSensorDataMainSensorDidChangeNotification";
constexpr const char* kSensorSettingsDidChange = "HWSensorSettingsDidChangeNotification";
constexpr const char* kFanSettingsDidChange = "HWFanSettingsDidChangeNotification";
constexpr const char* kFanControlSettingsDidChange = "HWFanControlSettingsDidChangeNotification";

void bindText(SQLite::Statement& s, const std::string& text) { s.bind(1, text); }

bool fromOtherAppMode(const nlohmann::json& userInfo, std::uint64_t mine) {
  const auto found = userInfo.find("appMode");
  return found == userInfo.end() || static_cast<std::uint64_t>(dictionaries::integerValue(*found)) != mine;
}

}  // namespace

HWSensorDataStore::HWSensorDataStore(std::shared_ptr<HWCoreDataStack> stack,
                                     std::shared_ptr<HWSensorDataStoreEnvironment> environment)
    : stack_(std::move(stack)), environment_(std::move(environment)) {}

HWSensorDataStore::~HWSensorDataStore() {
  stack_->setViewContextDidSave(nullptr);
  setEntitySettingsProvider(nullptr);
}

std::shared_ptr<HWSensorDataStore> HWSensorDataStore::create(std::shared_ptr<HWCoreDataStack> stack,
                                                             std::shared_ptr<HWSensorDataStoreEnvironment> environment) {
  std::shared_ptr<HWSensorDataStore> store(new HWSensorDataStore(std::move(stack), std::move(environment)));
  store->observe();
  return store;
}

void HWSensorDataStore::observe() {
  std::weak_ptr<HWSensorDataStore> weak = weak_from_this();
  setEntitySettingsProvider([weak] {
    HWEntitySettings settings;
    if (auto self = weak.lock()) {
      settings.showUnknownSensors = self->showUnknownSensors();
      settings.showHIDSensors = self->showHIDSensors();
      settings.showComputedSensors = self->showComputedSensors();
      settings.manualFanSetId = self->manualFanSetId();
    }
    return settings;
  });
  // The writing process tells the others about every save that reached the file; a reader
  // never announces.
  stack_->setViewContextDidSave([weak] {
    auto self = weak.lock();
    if (self && self->stack_->writeOnly()) self->environment_->postGlobalNotification(kDataDidWrite);
  });
  tokens_.push_back(environment_->addObserver(kDataDidWrite, [weak](const std::string&, const nlohmann::json& info) {
    auto self = weak.lock();
    if (!self) return;
    if (fromOtherAppMode(info, self->environment_->appMode())) self->stack_->viewContext()->refreshAllObjects();
    // Fetched only for a listener: the writing process hears every save of its own, and with
    // nobody listening the fetch of every sensor would double the cost of a monitoring tick.
    std::optional<decltype(self->allSensors())> sensors;
    self->forEachDelegate<HWSensorDataStoreDelegate>([&](auto& d) {
      if (!sensors) sensors = self->allSensors();
      d.sensorDataStoreSensorsDidChanged(*sensors);
    });
  }));
  tokens_.push_back(
      environment_->addObserver(kMainSensorDidChange, [weak](const std::string&, const nlohmann::json& info) {
        auto self = weak.lock();
        if (!self) return;
        if (fromOtherAppMode(info, self->environment_->appMode())) self->mainSensor_.reset();
        const auto sensor = self->mainSensor();
        self->forEachDelegate<HWSensorDataStoreDelegate>([&](auto& d) { d.sensorDataStoreMainSensorDidChange(sensor); });
      }));
  const std::pair<const char*, void (HWSensorDataStoreDelegate::*)()> relayed[] = {
      {kSensorSettingsDidChange, &HWSensorDataStoreDelegate::sensorDataStoreSensorSettingsDidChange},
      {kFanSettingsDidChange, &HWSensorDataStoreDelegate::sensorDataStoreFanSettingsDidChange},
      {kFanControlSettingsDidChange, &HWSensorDataStoreDelegate::sensorDataStoreFanControlSettingsDidChange},
  };
  for (const auto& [name, method] : relayed) {
    tokens_.push_back(environment_->addObserver(name, [weak, method = method](const std::string&, const nlohmann::json&) {
      if (auto self = weak.lock()) self->forEachDelegate<HWSensorDataStoreDelegate>([&](auto& d) { (d.*method)(); });
    }));
  }
}

std::shared_ptr<HWManagedObjectContext> HWSensorDataStore::contextOr(
    const std::shared_ptr<HWManagedObjectContext>& context) const {
  return context ? context : stack_->viewContext();
}

void HWSensorDataStore::clearData() { setMainSensor(nullptr); }

// ---- settings ----

bool HWSensorDataStore::boolSetting(const char* key, bool defaultValue) const {
  const auto value = environment_->objectForKey(key);
  return value ? dictionaries::boolValue(*value) : defaultValue;
}

std::uint64_t HWSensorDataStore::unsignedSetting(const char* key) const {
  const auto value = environment_->objectForKey(key);
  return value ? static_cast<std::uint64_t>(dictionaries::integerValue(*value)) : 0;
}

std::shared_ptr<HWSensorEntity> HWSensorDataStore::mainSensor() {
  if (mainSensor_) return mainSensor_;
  std::shared_ptr<HWSensorEntity> found;
  if (const auto key = environment_->objectForKey(kMainSensorKey); key && key->is_string()) {
    found = getSensorByKey(key->get<std::string>());
  }
  if (!found) found = getSensorByKey("AverageCPU");
  if (!found) found = getSensorByKey("TC0P");
  if (!found) {
    const auto temps = tempSensors();
    if (!temps.empty()) found = temps.front();
  }
  mainSensor_ = found;
  return mainSensor_;
}

void HWSensorDataStore::setMainSensor(const std::shared_ptr<HWSensorEntity>& sensor) {
  mainSensor_ = sensor;
  environment_->setObject(sensor ? std::optional<nlohmann::json>(sensor->key()) : std::nullopt, kMainSensorKey,
                          std::string(kMainSensorDidChange));
}

bool HWSensorDataStore::tempUnitCelsius() const { return boolSetting(kTempUnitCelsiusKey, true); }
void HWSensorDataStore::setTempUnitCelsius(bool v) {
  environment_->setObject(v, kTempUnitCelsiusKey, std::string(kSensorSettingsDidChange));
}
bool HWSensorDataStore::showUnknownSensors() const { return boolSetting(kShowUnknownSensorsKey, false); }
void HWSensorDataStore::setShowUnknownSensors(bool v) {
  environment_->setObject(v, kShowUnknownSensorsKey, std::string(kSensorSettingsDidChange));
}
bool HWSensorDataStore::showHIDSensors() const { return boolSetting(kShowHIDSensorsKey, false); }
void HWSensorDataStore::setShowHIDSensors(bool v) {
  environment_->setObject(v, kShowHIDSensorsKey, std::string(kSensorSettingsDidChange));
}
bool HWSensorDataStore::showComputedSensors() const { return boolSetting(kShowComputedSensorsKey, true); }
void HWSensorDataStore::setShowComputedSensors(bool v) {
  environment_->setObject(v, kShowComputedSensorsKey, std::string(kSensorSettingsDidChange));
}
std::uint64_t HWSensorDataStore::fanValueType() const { return unsignedSetting(kFanValueTypeKey); }
void HWSensorDataStore::setFanValueType(std::uint64_t v) {
  environment_->setObject(v, kFanValueTypeKey, std::string(kFanSettingsDidChange));
}
std::uint64_t HWSensorDataStore::fanControlMode() const { return unsignedSetting(kFanControlModeKey); }
void HWSensorDataStore::setFanControlMode(std::uint64_t v) {
  environment_->setObject(v, kFanControlModeKey, std::string(kFanControlSettingsDidChange));
}

std::optional<std::string> HWSensorDataStore::manualFanSetId() {
  if (auto id = environment_->objectForKey(kManualFanSetIdKey); id && id->is_string()) return id->get<std::string>();
  // A fan set chosen by name in an older version stays chosen: its name is now its identifier.
  if (auto old = environment_->objectForKey(kOldFanSetNameKey); old && old->is_string()) {
    environment_->setObject(*old, kManualFanSetIdKey, std::nullopt);
    return old->get<std::string>();
  }
  return std::nullopt;
}
void HWSensorDataStore::setManualFanSetId(const std::optional<std::string>& v) {
  environment_->setObject(v ? std::optional<nlohmann::json>(*v) : std::nullopt, kManualFanSetIdKey,
                          std::string(kFanControlSettingsDidChange));
}
std::shared_ptr<HWFanSetEntity> HWSensorDataStore::manualFanSet() {
  const auto id = manualFanSetId();
  return id ? getFanSetById(*id) : nullptr;
}
bool HWSensorDataStore::manualLinkEnabled() const { return boolSetting(kManualLinkEnabledKey, true); }
void HWSensorDataStore::setManualLinkEnabled(bool v) {
  environment_->setObject(v, kManualLinkEnabledKey, std::string(kFanControlSettingsDidChange));
}
bool HWSensorDataStore::autoBoostNotificationEnabled() const { return boolSetting(kAutoBoostNotificationKey, false); }
void HWSensorDataStore::setAutoBoostNotificationEnabled(bool v) {
  environment_->setObject(v, kAutoBoostNotificationKey, std::nullopt);
}
bool HWSensorDataStore::didAutoBoost() const { return boolSetting(kDidAutoBoostKey, false); }
void HWSensorDataStore::setDidAutoBoost(bool v) { environment_->setObject(v, kDidAutoBoostKey, std::nullopt); }

// ---- sensors ----

std::shared_ptr<HWSensorEntity> HWSensorDataStore::getSensorByKey(const std::string& key,
                                                                  const std::shared_ptr<HWManagedObjectContext>& context) {
  auto found = Access::fetch<HWSensorEntity>(
      *contextOr(context), HWEntity::kSensor, "\"key\" = ?", [&](SQLite::Statement& s) { bindText(s, key); },
      "\"id\"", [&](const HWSensorEntity& s) { return s.key() == key; });
  return found.empty() ? nullptr : found.front();
}

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorDataStore::allSensors(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  return Access::fetch<HWSensorEntity>(*contextOr(context), HWEntity::kSensor, "", nullptr, "\"id\"",
                                       [](const HWSensorEntity&) { return true; });
}

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorDataStore::fanSensors(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  return Access::fetch<HWSensorEntity>(
      *contextOr(context), HWEntity::kSensor,
      R"("category" IN (SELECT "id" FROM "Category" WHERE "type" = 1) AND "sourceType" != 2)", nullptr,
      R"("categoryOrder", "id")",
      [](const HWSensorEntity& s) { return s.categoryTypeNumber() == 1 && s.sourceType() != 2; });
}

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorDataStore::tempSensors(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  auto category = getCategoryWithType(0, context);
  return category ? category->filterSensors() : std::vector<std::shared_ptr<HWSensorEntity>>{};
}

std::shared_ptr<HWSensorEntity> HWSensorDataStore::createSensorWithKey(
    const std::string& key, const std::shared_ptr<HWManagedObjectContext>& context) {
  if (auto existing = getSensorByKey(key, context)) return existing;
  auto sensor = std::static_pointer_cast<HWSensorEntity>(stack_->insertNewObjectOf(HWEntity::kSensor, contextOr(context)));
  sensor->setKey(key);
  return sensor;
}

std::shared_ptr<HWSensorEntity> HWSensorDataStore::createSensorWithCustomInfo(const nlohmann::json& info) {
  if (!info.is_object()) return nullptr;
  const auto key = info.find("key");
  const auto name = info.find("name");
  if (key == info.end() || !key->is_string() || name == info.end() || !name->is_string()) return nullptr;
  const auto type = info.find("category_type");
  if (type != info.end() && dictionaries::integerValue(*type) == 1) return nullptr;  // fans are never added by hand
  if (auto existing = getSensorByKey(key->get<std::string>())) return existing;
  auto sensor = std::static_pointer_cast<HWSensorEntity>(stack_->insertNewObjectOf(HWEntity::kSensor));
  sensor->setKey(key->get<std::string>());
  sensor->setName(name->get<std::string>());
  sensor->setFullName(name->get<std::string>());
  sensor->setIsCustom(true);
  return sensor;
}

// ---- categories ----

std::shared_ptr<HWSensorCategoryEntity> HWSensorDataStore::getCategoryWithName(
    const std::string& name, const std::shared_ptr<HWManagedObjectContext>& context) {
  auto found = Access::fetch<HWSensorCategoryEntity>(
      *contextOr(context), HWEntity::kCategory, "\"name\" = ?", [&](SQLite::Statement& s) { bindText(s, name); },
      "\"id\"", [&](const HWSensorCategoryEntity& c) { return c.name() == name; });
  return found.empty() ? nullptr : found.front();
}

std::shared_ptr<HWSensorCategoryEntity> HWSensorDataStore::getCategoryWithType(
    std::int64_t type, const std::shared_ptr<HWManagedObjectContext>& context) {
  auto found = Access::fetch<HWSensorCategoryEntity>(
      *contextOr(context), HWEntity::kCategory, "\"type\" = ?",
      [&](SQLite::Statement& s) { s.bind(1, static_cast<int64_t>(type)); }, "\"id\"",
      [&](const HWSensorCategoryEntity& c) { return c.type() == type; });
  return found.empty() ? nullptr : found.front();
}

std::vector<std::shared_ptr<HWSensorCategoryEntity>> HWSensorDataStore::allCategories(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  auto list = Access::fetch<HWSensorCategoryEntity>(*contextOr(context), HWEntity::kCategory, "", nullptr,
                                                    "\"type\", \"id\"", [](const HWSensorCategoryEntity&) { return true; });
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a->type() < b->type(); });
  return list;
}

std::shared_ptr<HWSensorCategoryEntity> HWSensorDataStore::createOrUpdateCategoryWithName(
    const std::string& name, const std::shared_ptr<HWManagedObjectContext>& context) {
  if (auto existing = getCategoryWithName(name, context)) return existing;
  auto category = std::static_pointer_cast<HWSensorCategoryEntity>(
      stack_->insertNewObjectOf(HWEntity::kCategory, contextOr(context)));
  category->setName(name);
  return category;
}

// ---- fan sets, conditions, points ----

std::shared_ptr<HWFanSetEntity> HWSensorDataStore::getFanSetById(const std::string& identifier) {
  auto found = Access::fetch<HWFanSetEntity>(
      *stack_->viewContext(), HWEntity::kFanSet, "\"identifier\" = ?",
      [&](SQLite::Statement& s) { bindText(s, identifier); }, "\"id\"",
      [&](const HWFanSetEntity& f) { return f.identifier() == identifier; });
  return found.empty() ? nullptr : found.front();
}

std::vector<std::shared_ptr<HWFanSetEntity>> HWSensorDataStore::allFanSets(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  auto list = Access::fetch<HWFanSetEntity>(*contextOr(context), HWEntity::kFanSet, "", nullptr, "\"created\", \"id\"",
                                            [](const HWFanSetEntity&) { return true; });
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a->created() < b->created(); });
  return list;
}

std::shared_ptr<HWFanSetEntity> HWSensorDataStore::createFanSetWithName(
    const std::string& name, const nlohmann::json& value, const std::shared_ptr<HWManagedObjectContext>& context) {
  auto set = std::static_pointer_cast<HWFanSetEntity>(stack_->insertNewObjectOf(HWEntity::kFanSet, contextOr(context)));
  const double now = dispatch::now();
  set->setIdentifier(fmt::format("{:.0f}", now));
  set->setName(name);
  set->setValueDict(value);
  set->setCreated(now);
  return set;
}

std::vector<std::shared_ptr<HWFanConditionEntity>> HWSensorDataStore::allFanConditions(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  auto list = Access::fetch<HWFanConditionEntity>(*contextOr(context), HWEntity::kFanCondition, "", nullptr,
                                                  "\"created\", \"id\"", [](const HWFanConditionEntity&) { return true; });
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a->created() < b->created(); });
  return list;
}

std::shared_ptr<HWFanConditionEntity> HWSensorDataStore::createFanConditionWithFanSet(
    const std::shared_ptr<HWFanSetEntity>& fanSet, const std::shared_ptr<HWSensorEntity>& sensor, double threshold,
    std::uint64_t batteryState, bool externalDisplayConnected) {
  if (!fanSet || !sensor) return nullptr;
  auto condition = std::static_pointer_cast<HWFanConditionEntity>(stack_->insertNewObjectOf(HWEntity::kFanCondition));
  condition->setFanSet(fanSet);
  condition->setSensorKey(sensor->key());
  condition->setThreshold(threshold);
  condition->setBatteryState(static_cast<std::int16_t>(batteryState));
  condition->setExternalDisplayConnected(externalDisplayConnected);
  condition->setCreated(dispatch::now());
  return condition;
}

namespace {
constexpr int kPagesGivenBackPerPrune = 64;
}  // namespace

std::int64_t HWSensorDataStore::deleteGraphPoints(const std::vector<std::shared_ptr<HWSensorEntity>>& sensors,
                                                  HWTimeRange range, double before) {
  store_detail::StoreFile* file = Access::file(*stack_->viewContext());
  if (!file || file->readOnly()) return -1;
  std::lock_guard guard(file->mutex());
  // Removing a graph point can break no reference (nothing refers to a point), yet with the
  // checks on SQLite looks up the point's sensor for every row it removes: twice the work.
  struct ChecksOff {
    SQLite::Database& db;
    explicit ChecksOff(SQLite::Database& d) : db(d) { db.exec("PRAGMA foreign_keys = OFF"); }
    ~ChecksOff() {
      try {
        db.exec("PRAGMA foreign_keys = ON");
      } catch (const std::exception& e) {
        // Without the checks a deleted sensor would leave its points behind: say so.
        platform::log(std::string("Store: reference checks stay off: ") + e.what());
      }
    }
  };
  try {
    ChecksOff checksOff(file->db());
    std::int64_t removed = 0;
    SQLite::Transaction transaction(file->db(), SQLite::TransactionBehavior::IMMEDIATE);
    namespace ids = store_detail::point_ids;
    const int slot = ids::slotOf(static_cast<int>(range));
    for (const auto& sensor : sensors) {
      if (!sensor || sensor->objectID() == 0) continue;
      const std::int64_t id = sensor->objectID();
      if (slot != ids::kOtherSlot) {
        // The range's run is in time order: what is out of date is its head, up to the first point
        // still inside. A run wholly out of date (a store left alone for longer than the range)
        // goes without looking at its rows.
        const std::int64_t first = ids::first(id, slot), last = ids::last(id, slot);
        auto& lastPoint = file->statement(
            R"(SELECT "pointX" FROM "GraphPoint" WHERE "id" BETWEEN ? AND ? ORDER BY "id" DESC LIMIT 1)");
        lastPoint.bind(1, static_cast<int64_t>(first));
        lastPoint.bind(2, static_cast<int64_t>(last));
        const bool any = lastPoint.executeStep();
        const bool allGo = any && lastPoint.getColumn(0).getDouble() < before;
        lastPoint.reset();
        std::int64_t end = last + 1;
        if (any && !allGo) {
          auto& firstKept = file->statement(
              R"(SELECT "id" FROM "GraphPoint" WHERE "id" BETWEEN ? AND ? AND "pointX" >= ? ORDER BY "id" LIMIT 1)");
          firstKept.bind(1, static_cast<int64_t>(first));
          firstKept.bind(2, static_cast<int64_t>(last));
          firstKept.bind(3, before);
          if (firstKept.executeStep()) end = firstKept.getColumn(0).getInt64();
          firstKept.reset();
        }
        if (any && end > first) {
          auto& head = file->statement(R"(DELETE FROM "GraphPoint" WHERE "id" >= ? AND "id" < ?)");
          head.bind(1, static_cast<int64_t>(first));
          head.bind(2, static_cast<int64_t>(end));
          removed += head.exec();
        }
      }
      // The sensor's points kept out of time order, row by row (there are seldom any).
      auto& others = file->statement(
          R"(DELETE FROM "GraphPoint" WHERE "id" BETWEEN ? AND ? AND "timeRange" = ? AND "pointX" < ?)");
      others.bind(1, static_cast<int64_t>(ids::first(id, ids::kOtherSlot)));
      others.bind(2, static_cast<int64_t>(ids::last(id, ids::kOtherSlot)));
      others.bind(3, static_cast<int>(range));
      others.bind(4, before);
      removed += others.exec();
    }
    // Emptied pages go back to the file system in the same save, a bounded number per call: a
    // pass after a long absence frees thousands, and moving them all at once would cost as much
    // as the deletes. The passes that follow give back the rest; until then new points reuse them.
    if (removed > 0) file->db().exec("PRAGMA incremental_vacuum(" + std::to_string(kPagesGivenBackPerPrune) + ")");
    transaction.commit();
    return removed;
  } catch (const std::exception&) {
    return -1;
  }
}

std::shared_ptr<HWGraphPointEntity> HWSensorDataStore::createGraphPoint(
    const std::shared_ptr<HWManagedObjectContext>& context) {
  return std::static_pointer_cast<HWGraphPointEntity>(stack_->insertNewObjectOf(HWEntity::kGraphPoint, contextOr(context)));
}

}  // namespace corvane
