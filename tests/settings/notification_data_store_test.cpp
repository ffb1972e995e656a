// The alert rules over a simulated machine's store and settings suite, on the virtual clock.
#include "corvane/settings/notification_data_store.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

const std::string kKey(settings::kNotificationsKey);

class Listener : public HWNotificationDataStoreDelegate {
 public:
  void notificationDataStoreNotificationsDidChange(const HWNotificationList& list) override { heard.push_back(list); }
  std::vector<HWNotificationList> heard;
};

class NotificationDataStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installMachine(testing::builtinMachine(), dir.path());
    HWSystemDevice::reset();
    manager = HWDataManager::create(dir.path() / "group" / "Database.sqlite");
    settings::installUnitPreferencesHook(manager->prefData());
    ASSERT_TRUE(manager->buildDataSetNow());
    alerts = manager->notificationDataStore();
    clock->runUntilIdle();
  }
  void TearDown() override { settings::uninstallHooks(); }
  // The list's change announcement as a process of `senderMode` sends it, delivered.
  void announce(std::uint64_t senderMode) {
    platform::current().service<platform::GlobalNotifications>().post(
        std::string(settings::kNotificationDataStoreNotificationsDidChangeNotification), {{"appMode", senderMode}});
    clock->runUntilIdle();
  }
  // The rule dictionary of `key` as a writer would store it.
  static nlohmann::json rule(const std::string& key, double threshold = 80) {
    return {{"identifier", key}, {"name", key}, {"sourceType", "sensor"}, {"repeatMode", 1},
            {"active", true}, {"lastTimeFired", 0}, {"threshold", threshold}};
  }

  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock = dispatch::installVirtualTime(1'700'000'000);
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWNotificationDataStore> alerts;
};

TEST_F(NotificationDataStoreTest, DefaultRuleWatchesTheMainSensorAtSeventyCelsiusInTheUsersUnitUnwritten) {
  for (const bool celsius : {true, false}) {
    manager->sensorDataStore()->setTempUnitCelsius(celsius);
    alerts->clearData();
    const auto list = alerts->notifications();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]->identifier, manager->sensorDataStore()->mainSensor()->key());
    EXPECT_DOUBLE_EQ(list[0]->threshold, celsius ? 70.0 : 158.0);
    EXPECT_TRUE(list[0]->active);
    EXPECT_EQ(list[0]->repeatDelays(), 0);
    EXPECT_FALSE(manager->prefData()->objectForKey(kKey));
  }
}

TEST(NotificationDictionaryTest, ReadsTheStoredFormLeniently) {
  const auto epoch = dates::Date{};
  struct Case {
    nlohmann::json changes;  // merged into a complete rule; null removes a field
    bool reads;
    std::uint64_t sourceType, repeatMode;
    std::int64_t delay;
  };
  const Case cases[] = {
      {{{"repeatMode", 7}}, true, 0, 0, 0},       {{{"repeatMode", 5}}, true, 0, 5, 300},
      {{{"repeatMode", -2}}, true, 0, 0, 0},      {{{"repeatMode", nullptr}}, true, 0, 0, 0},
      {{{"sourceType", "cpu"}}, true, 1, 1, 10},  {{{"sourceType", "CPU"}}, true, 0, 1, 10},
      {{{"lastTimeFired", nullptr}}, true, 0, 1, 10}, {{{"active", 1}}, true, 0, 1, 10},
      {{{"threshold", "80"}}, false, 0, 0, 0},    {{{"name", nullptr}}, false, 0, 0, 0},
      {{{"identifier", 3}}, false, 0, 0, 0},      {{{"active", nullptr}}, false, 0, 0, 0},
  };
  for (const auto& c : cases) {
    auto dictionary = nlohmann::json{{"identifier", "TC0P"}, {"name", "CPU"}, {"sourceType", "sensor"},
                                     {"repeatMode", 1},     {"active", true}, {"threshold", 80}};
    dictionary.merge_patch(c.changes);
    std::string problem;
    const auto item = HWNotification::itemFromDictionary(dictionary, &problem);
    ASSERT_EQ(item != nullptr, c.reads) << c.changes;
    if (!item) {
      EXPECT_FALSE(problem.empty());
      continue;
    }
    EXPECT_EQ(item->sourceType, c.sourceType) << c.changes;
    EXPECT_EQ(item->repeatMode, c.repeatMode) << c.changes;
    EXPECT_EQ(item->repeatDelays(), c.delay) << c.changes;
    EXPECT_EQ(item->lastTimeFired, epoch) << c.changes;
    EXPECT_EQ(HWNotification::itemFromDictionary(item->toDictionary())->toDictionary(), item->toDictionary());
  }
  EXPECT_EQ(HWNotification::itemFromDictionary(nlohmann::json::array()), nullptr);
}

TEST_F(NotificationDataStoreTest, WrongShapedStoredRulesAreSkippedOnceEachAndNothingIsRewritten) {
  const nlohmann::json stored = {rule("TC0P"), 5, {{"identifier", "TA0P"}}, rule("ZZZZ"), rule("any-sensor", 90)};
  manager->prefData()->setObject(stored, kKey);
  ::testing::internal::CaptureStderr();
  const auto list = alerts->notifications();
  announce(HWDataManager::appMode() + 1);  // read again, as after another process's change
  const std::string said = ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0]->identifier, "TC0P");
  EXPECT_EQ(list[1]->identifier, "any-sensor");
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 3) << said;
  EXPECT_NE(said.find("ZZZZ"), std::string::npos) << said;
  EXPECT_EQ(manager->prefData()->objectForKey(kKey), stored);
}

TEST_F(NotificationDataStoreTest, OneRulePerIdentifier) {
  // New rules take the free temperature sensors in order until none is left.
  const auto temps = manager->sensorDataStore()->tempSensors();
  alerts->setNotifications({});
  for (const auto& sensor : temps) {
    const auto made = alerts->createNewSensorNotification();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->identifier, sensor->key());
  }
  EXPECT_EQ(alerts->createNewSensorNotification(), nullptr);
  EXPECT_EQ(alerts->notifications().size(), temps.size());

  // A second rule may not take a watched sensor, nor a second "any-sensor".
  const auto first = alerts->notifications()[0];
  const auto second = alerts->notifications()[1];
  HWError error;
  EXPECT_TRUE(alerts->updateSensor(nullptr, true, first, &error));
  EXPECT_FALSE(first->lastTimeFired);
  for (const auto& [sensor, any] : {std::pair{temps[2], false}, std::pair{std::shared_ptr<HWSensorEntity>(), true}}) {
    const auto before = HWNotification::itemsToDictionaries(alerts->notifications());
    error = {};
    EXPECT_FALSE(alerts->updateSensor(sensor, any, second, &error));
    EXPECT_EQ(error.message, "This sensor is already in the notifications list");
    EXPECT_EQ(error.code, -1);
    EXPECT_EQ(HWNotification::itemsToDictionaries(alerts->notifications()), before);
  }
  EXPECT_EQ(HWNotification::itemsFromDictionaries(*manager->prefData()->objectForKey(kKey))[0]->identifier,
            "any-sensor");
}

TEST_F(NotificationDataStoreTest, NewRuleThresholdIsHalfAgainTheValueCappedAtTheMaximum) {
  const auto sensor = manager->sensorDataStore()->getSensorByKey("TC0P");
  ASSERT_NE(sensor, nullptr);
  sensor->setMaxValue(105);
  for (const auto& [value, expected] : {std::pair{40.0, 60.0}, std::pair{80.0, 105.0}}) {
    sensor->setValue(value);
    EXPECT_DOUBLE_EQ(HWNotificationDataStore::newRuleThreshold(*sensor), expected);
  }
}

TEST_F(NotificationDataStoreTest, AnotherKindOfProcessesChangeDropsTheCache) {
  auto listener = std::make_shared<Listener>();
  alerts->addDelegate(listener);
  for (const std::uint64_t senderMode : {HWDataManager::appMode(), HWDataManager::appMode() + 1}) {
    alerts->setNotifications({});
    clock->runUntilIdle();
    // Written behind the store's back, then announced as that sender would.
    manager->prefData()->setObject(nlohmann::json::array({rule("TC0P")}), kKey);
    listener->heard.clear();
    announce(senderMode);
    ASSERT_EQ(listener->heard.size(), 1u);
    EXPECT_EQ(listener->heard[0].size(), senderMode == HWDataManager::appMode() ? 0u : 1u);
  }
}

}  // namespace
}  // namespace corvane
