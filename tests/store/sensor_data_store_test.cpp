#include "corvane/store/sensor_data_store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <map>

#include "store/store_access.h"
#include "support/test_support.h"

namespace corvane {
namespace {

// Settings in a map; announcements recorded; observers called by the test as if a notification
// had arrived.
class FakeEnvironment : public HWSensorDataStoreEnvironment {
 public:
  std::optional<nlohmann::json> objectForKey(const std::string& key) const override {
    auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  void setObject(const std::optional<nlohmann::json>& value, const std::string& key,
                 const std::optional<std::string>& broadcastName) override {
    if (value) {
      values[key] = *value;
    } else {
      values.erase(key);
    }
    if (broadcastName) posted.push_back(*broadcastName);
  }
  void postGlobalNotification(const std::string& name) override { posted.push_back(name); }
  std::uint64_t appMode() const override { return 1; }
  std::unique_ptr<platform::GlobalNotifications::Token> addObserver(
      const std::string& name, platform::GlobalNotifications::Observer observer) override {
    observers[name] = std::move(observer);
    return nullptr;
  }
  void deliver(const std::string& name, std::uint64_t fromAppMode) {
    observers.at(name)(name, nlohmann::json{{"appMode", fromAppMode}});
  }

  std::map<std::string, nlohmann::json> values;
  std::vector<std::string> posted;
  std::map<std::string, platform::GlobalNotifications::Observer> observers;
};

class Recorder : public HWSensorDataStoreDelegate {
 public:
  void sensorDataStoreSensorsDidChanged(const std::vector<std::shared_ptr<HWSensorEntity>>& s) override {
    sensorCalls.push_back(s.size());
  }
  void sensorDataStoreMainSensorDidChange(const std::shared_ptr<HWSensorEntity>& s) override {
    mainSensors.push_back(s ? s->key() : "");
  }
  std::vector<std::size_t> sensorCalls;
  std::vector<std::string> mainSensors;
};

class SensorDataStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    environment = std::make_shared<FakeEnvironment>();
    store = HWSensorDataStore::create(HWCoreDataStack::create(dir.path() / "Database.sqlite", true), environment);
  }
  // A temperature category holding `keys` in this order, saved.
  void temperatures(const std::vector<std::string>& keys) {
    auto context = store->coreDataStack()->viewContext();
    auto category = store->createOrUpdateCategoryWithName("Temperature", context);
    std::vector<std::shared_ptr<HWSensorEntity>> sensors;
    for (const auto& key : keys) sensors.push_back(store->createSensorWithKey(key, context));
    category->setSensors(sensors);
    ASSERT_TRUE(store->save());
  }

  // A point of `sensor` whose value is its time, so either names it.
  std::shared_ptr<HWGraphPointEntity> point(const std::string& sensor, int range, double x) {
    auto p = store->createGraphPoint();
    p->setSensor(store->getSensorByKey(sensor));
    p->setTimeRange(static_cast<std::int16_t>(range));
    p->setPointX(x);
    p->setPointY(x);
    return p;
  }
  std::vector<double> times(const std::string& sensor, int range) {
    std::vector<double> out;
    for (const auto& p : store->getSensorByKey(sensor)->graphPoints(static_cast<HWTimeRange>(range))) {
      out.push_back(p->pointX());
    }
    EXPECT_EQ(store->getSensorByKey(sensor)->graphPointCount(static_cast<HWTimeRange>(range)),
              static_cast<std::int64_t>(out.size()));
    return out;
  }
  std::int64_t prune(int range, double before) {
    return store->deleteGraphPoints(store->allSensors(), static_cast<HWTimeRange>(range), before);
  }

  testing::TempDir dir;
  std::shared_ptr<FakeEnvironment> environment;
  std::shared_ptr<HWSensorDataStore> store;
};

using Times = std::vector<double>;

// Points stand in their sensor's order whatever came out of time order, moved or has an unknown
// range, and pruning takes exactly the points before the cutoff.
TEST_F(SensorDataStoreTest, PruningTakesExactlyThePointsBeforeTheCutoff) {
  temperatures({"TA0P", "TB0P"});
  for (double x : {10, 20}) point("TA0P", 0, x);
  point("TA0P", 1, 15);
  auto moving = point("TA0P", 0, 30);
  point("TA0P", 7, 1);
  ASSERT_TRUE(store->save());
  point("TA0P", 0, 12);  // behind the range's last point
  point("TA0P", 0, 40);
  point("TA0P", 1, 5);
  store->getSensorByKey("TA0P")->hourGraphPoints().at(1)->setTimeRange(1);  // 20, keeping its place
  moving->setSensor(store->getSensorByKey("TB0P"));
  ASSERT_TRUE(store->save());
  // Another process appending to the same sensor between this one's saves.
  auto other = HWSensorDataStore::create(HWCoreDataStack::create(dir.path() / "Database.sqlite", true), environment);
  auto foreign = other->createGraphPoint();
  foreign->setSensor(other->getSensorByKey("TA0P"));
  foreign->setPointX(45);
  ASSERT_TRUE(other->save());
  point("TA0P", 0, 50);
  ASSERT_TRUE(store->save());

  std::vector<double> all;
  for (const auto& p : store->getSensorByKey("TA0P")->graphPoints()) all.push_back(p->pointX());
  EXPECT_EQ(all, (Times{10, 20, 15, 1, 12, 40, 5, 45, 50}));
  EXPECT_EQ(store->getSensorByKey("TA0P")->finalRecordedMinValue(), 0);  // the other process's point
  struct Case {
    int range;
    double before;
    std::int64_t removed;
    Times hourA, dayA, hourB;
  };
  const Case cases[] = {
      {0, 0, 0, {10, 12, 40, 45, 50}, {20, 15, 5}, {30}},
      {0, 25, 2, {40, 45, 50}, {20, 15, 5}, {30}},
      {1, 16, 2, {40, 45, 50}, {20}, {30}},
      {7, 2, 1, {40, 45, 50}, {20}, {30}},
      {0, 100, 4, {}, {20}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "range " << c.range << " before " << c.before);
    EXPECT_EQ(prune(c.range, c.before), c.removed);
    EXPECT_EQ(times("TA0P", 0), c.hourA);
    EXPECT_EQ(times("TA0P", 1), c.dayA);
    EXPECT_EQ(times("TB0P", 0), c.hourB);
  }
  EXPECT_EQ(times("TA0P", 7), Times{});
  point("TA0P", 0, 60);
  ASSERT_TRUE(store->save());
  EXPECT_EQ(times("TA0P", 0), Times{60});
}

// Stores of every older version keep all their points, in order, and prune exactly afterwards.
TEST_F(SensorDataStoreTest, OlderStoresKeepTheirHistory) {
  for (int version = 1; version < HWCoreDataStack::kSchemaVersion; ++version) {
    SCOPED_TRACE(version);
    testing::TempDir scratch;
    const auto file = scratch.path() / "Database.sqlite";
    {
      SQLite::Database db(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
      for (int step = 0; step < version; ++step) {
        for (const auto& sql : store_detail::migrations()[static_cast<std::size_t>(step)]) db.exec(sql);
      }
      db.exec(R"(INSERT INTO "Category" ("id", "name", "type") VALUES (1, 'Temperature', 0))");
      db.exec(R"(INSERT INTO "Sensor" ("id", "key", "category", "categoryOrder") VALUES (1, 'TA0P', 1, 0), (2, 'TB0P', 1, 1))");
      // Rows in the order they were added: ranges interleaved, one hour point behind its range.
      db.exec(R"(INSERT INTO "GraphPoint" ("id", "pointX", "pointY", "timeRange", "sensor", "sensorOrder") VALUES
                 (1, 100, 41, 0, 1, 1), (2, 100, 50, 2, 1, 2), (3, 110, 42, 0, 2, 3), (4, 90, 39, 0, 1, 4),
                 (5, 120, 43, 0, 1, 5), (6, 130, 60, 1, 1, 6))");
      db.exec("PRAGMA user_version = " + std::to_string(version));
    }
    store = HWSensorDataStore::create(HWCoreDataStack::create(file, true), environment);
    ASSERT_TRUE(store->coreDataStack()->hasStore());
    SQLite::Database db(file.string());
    EXPECT_EQ(db.execAndGet("PRAGMA user_version").getInt(), HWCoreDataStack::kSchemaVersion);
    EXPECT_EQ(db.execAndGet("PRAGMA auto_vacuum").getInt(), 2);
    std::vector<double> all;
    for (const auto& p : store->getSensorByKey("TA0P")->graphPoints()) all.push_back(p->pointY());
    EXPECT_EQ(all, (Times{41, 50, 39, 43, 60}));
    EXPECT_EQ(times("TA0P", 0), (Times{100, 90, 120}));
    EXPECT_EQ(times("TB0P", 0), Times{110});
    EXPECT_EQ(times("TA0P", 2), Times{100});
    EXPECT_EQ(store->getSensorByKey("TA0P")->finalRecordedMaxValue(), 60);
    EXPECT_EQ(prune(0, 95), 1);
    EXPECT_EQ(times("TA0P", 0), (Times{100, 120}));
    point("TA0P", 0, 140);
    ASSERT_TRUE(store->save());
    EXPECT_EQ(prune(0, 105), 1);
    EXPECT_EQ(times("TA0P", 0), (Times{120, 140}));
  }
}

TEST_F(SensorDataStoreTest, MainSensorFallsBackInOrderAndIsCached) {
  struct Case {
    std::vector<std::string> keys;
    std::optional<std::string> setting;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {{"TA0P", "TC0P", "AverageCPU"}, std::nullopt, "AverageCPU"},
      {{"TA0P", "TC0P"}, std::nullopt, "TC0P"},
      {{"TB0T", "TA0P"}, std::nullopt, "TB0T"},
      {{"TA0P", "TC0P"}, "TA0P", "TA0P"},
      {{"TA0P"}, "gone", "TA0P"},
      {{}, std::nullopt, ""},
  };
  for (const auto& c : cases) {
    testing::TempDir scratch;
    auto env = std::make_shared<FakeEnvironment>();
    if (c.setting) env->values["HWMainSensor"] = *c.setting;
    store = HWSensorDataStore::create(HWCoreDataStack::create(scratch.path() / "Database.sqlite", true), env);
    temperatures(c.keys);
    auto main = store->mainSensor();
    EXPECT_EQ(main ? main->key() : "", c.expected);
    EXPECT_EQ(env->values.count("HWMainSensor"), c.setting ? 1u : 0u);  // the fallback is not written back
  }
  // Cached until another app mode announces a change or the data is cleared.
  store = HWSensorDataStore::create(HWCoreDataStack::create(dir.path() / "Database.sqlite", true), environment);
  temperatures({"TA0P", "TB0T"});
  auto recorder = std::make_shared<Recorder>();
  store->addDelegate(recorder);
  EXPECT_EQ(store->mainSensor()->key(), "TA0P");
  environment->values["HWMainSensor"] = "TB0T";
  environment->deliver("HWSensorDataMainSensorDidChangeNotification", 1);
  environment->deliver("HWSensorDataMainSensorDidChangeNotification", 2);
  EXPECT_EQ(recorder->mainSensors, (std::vector<std::string>{"TA0P", "TB0T"}));
  store->clearData();
  EXPECT_EQ(environment->values.count("HWMainSensor"), 0u);
  EXPECT_EQ(store->mainSensor()->key(), "TA0P");
}

TEST_F(SensorDataStoreTest, SettingsHaveTheirDefaultsAndAnnouncements) {
  struct Case {
    std::function<void()> set;
    std::function<nlohmann::json()> get;
    nlohmann::json before, after;
    const char* announcement;  // "" for a silent setter
  };
  auto& s = *store;
  const std::vector<Case> cases = {
      {[&] { s.setTempUnitCelsius(false); }, [&] { return s.tempUnitCelsius(); }, true, false,
       "HWSensorSettingsDidChangeNotification"},
      {[&] { s.setShowUnknownSensors(true); }, [&] { return s.showUnknownSensors(); }, false, true,
       "HWSensorSettingsDidChangeNotification"},
      {[&] { s.setShowHIDSensors(true); }, [&] { return s.showHIDSensors(); }, false, true,
       "HWSensorSettingsDidChangeNotification"},
      {[&] { s.setShowComputedSensors(false); }, [&] { return s.showComputedSensors(); }, true, false,
       "HWSensorSettingsDidChangeNotification"},
      {[&] { s.setFanValueType(1); }, [&] { return s.fanValueType(); }, 0, 1, "HWFanSettingsDidChangeNotification"},
      {[&] { s.setFanControlMode(2); }, [&] { return s.fanControlMode(); }, 0, 2,
       "HWFanControlSettingsDidChangeNotification"},
      {[&] { s.setManualLinkEnabled(false); }, [&] { return s.manualLinkEnabled(); }, true, false,
       "HWFanControlSettingsDidChangeNotification"},
      {[&] { s.setAutoBoostNotificationEnabled(true); }, [&] { return s.autoBoostNotificationEnabled(); }, false, true,
       ""},
      {[&] { s.setDidAutoBoost(true); }, [&] { return s.didAutoBoost(); }, false, true, ""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(cases[i].get(), cases[i].before);
    environment->posted.clear();
    cases[i].set();
    EXPECT_EQ(cases[i].get(), cases[i].after);
    EXPECT_EQ(environment->posted, *cases[i].announcement ? std::vector<std::string>{cases[i].announcement}
                                                          : std::vector<std::string>{});
  }
  // The older fan-set-name setting is taken over once, silently.
  environment->values["HWFanControllerFanSetNameKey"] = "Quiet";
  environment->posted.clear();
  EXPECT_EQ(store->manualFanSetId(), "Quiet");
  EXPECT_EQ(environment->values.at("HWFanControllerManualFanSetIdKey"), "Quiet");
  EXPECT_TRUE(environment->posted.empty());
}

TEST_F(SensorDataStoreTest, SavesAnnounceOnceAndOtherProcessesRefresh) {
  auto recorder = std::make_shared<Recorder>();
  store->addDelegate(recorder);
  temperatures({"TA0P"});
  EXPECT_EQ(environment->posted, std::vector<std::string>{"HWSensorDataStoreDataDidWriteNotification"});
  EXPECT_TRUE(store->save());  // nothing to save: no announcement
  EXPECT_EQ(environment->posted.size(), 1u);

  // A reading process on the same file: refreshed only by another app mode's announcement.
  auto readerEnv = std::make_shared<FakeEnvironment>();
  auto reader = HWSensorDataStore::create(HWCoreDataStack::create(dir.path() / "Database.sqlite", false), readerEnv);
  auto seen = reader->getSensorByKey("TA0P");
  store->getSensorByKey("TA0P")->setValue(61);
  ASSERT_TRUE(store->save());
  auto readerRecorder = std::make_shared<Recorder>();
  reader->addDelegate(readerRecorder);
  // Its own app mode's announcement still reaches the delegates; another's refreshes first.
  readerEnv->deliver("HWSensorDataStoreDataDidWriteNotification", 1);
  readerEnv->deliver("HWSensorDataStoreDataDidWriteNotification", 2);
  EXPECT_EQ(seen->value(), 61);
  EXPECT_EQ(readerRecorder->sensorCalls, (std::vector<std::size_t>{1, 1}));
  reader->getSensorByKey("TA0P")->setValue(1);
  EXPECT_TRUE(reader->save());
  EXPECT_TRUE(readerEnv->posted.empty());  // a reader never announces
}

TEST_F(SensorDataStoreTest, CreationRulesForCustomSensorsConditionsAndFanSets) {
  temperatures({"TA0P"});
  EXPECT_EQ(store->createSensorWithCustomInfo({{"key", "X1"}, {"name", "Fan", }, {"category_type", 1}}), nullptr);
  EXPECT_EQ(store->createSensorWithCustomInfo({{"name", "No key"}}), nullptr);
  EXPECT_EQ(store->createSensorWithCustomInfo({{"key", "TA0P"}, {"name", "Mine"}}), store->getSensorByKey("TA0P"));
  EXPECT_EQ(store->getSensorByKey("TA0P")->isCustom(), false);
  auto custom = store->createSensorWithCustomInfo({{"key", "Wall"}, {"name", "Wall power"}, {"category_type", 4}});
  ASSERT_NE(custom, nullptr);
  EXPECT_TRUE(custom->isCustom());
  EXPECT_EQ(custom->fullName(), "Wall power");

  auto set = store->createFanSetWithName("Manual", {{"0", 1200.0}});
  EXPECT_EQ(store->createFanConditionWithFanSet(set, nullptr, 70, 0, false), nullptr);
  auto condition = store->createFanConditionWithFanSet(set, custom, 70, 2, true);
  ASSERT_NE(condition, nullptr);
  EXPECT_EQ(condition->sensorKey(), "Wall");
  ASSERT_TRUE(store->save());
  EXPECT_EQ(store->getFanSetById(set->identifier()), set);
  EXPECT_EQ(store->allFanConditions().size(), 1u);
}

}  // namespace
}  // namespace corvane
