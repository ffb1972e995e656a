// The sensor monitor on the virtual clock over a simulated machine and a store in a temp folder.

#include "corvane/monitors/sensor_monitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using std::chrono::seconds;

class Listener : public HWSensorMonitorDelegate {
 public:
  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>&) override {
    ++readings;
    if (afterReading) afterReading();
  }
  int readings = 0;
  std::function<void()> afterReading;
};

class SensorMonitorTest : public ::testing::Test {
 protected:
  void TearDown() override { HWDataManager::setAppMode(0); }

  // The data set of `machine` in a fresh store at update frequency `frequency`, and a monitor on it.
  void open(std::shared_ptr<const platform::MachineProfile> machine = testing::builtinMachine(),
            std::uint64_t frequency = 0) {
    testing::installMachine(std::move(machine), dir.path());
    HWSystemDevice::reset();  // the platform of the machine names the sensors
    HWDataManager::setAppMode(1);
    manager = HWDataManager::create(dir.path() / "group" / "Database.sqlite");
    manager->settingsDataStore()->setUpdateFrequency(frequency);
    ASSERT_TRUE(manager->buildDataSetNow());
    clock->runUntilIdle();  // the frequency's announcement goes before the monitor listens
    store = manager->sensorDataStore();
    monitor = HWSensorMonitor::create(manager);
    monitor->addDelegate(listener);
    monitor->setup();
  }
  // Starts the monitor; returns once `readings` readings were handled.
  void runReadings(int readings) {
    monitor->start();
    clock->runUntilIdle();
    while (listener->readings < readings) clock->advance(seconds(1));
  }
  std::shared_ptr<HWSensorEntity> find(const std::function<bool(const HWSensorEntity&)>& wanted) {
    for (const auto& sensor : store->allSensors()) {
      if (wanted(*sensor)) return sensor;
    }
    ADD_FAILURE() << "no such sensor";
    return std::make_shared<HWSensorEntity>();
  }
  std::shared_ptr<HWSensorEntity> ofCategory(std::int64_t type) {
    return find([&](const HWSensorEntity& s) { return s.categoryTypeNumber() == type && s.sourceType() == 0; });
  }
  std::shared_ptr<HWSensor> readingOf(const std::string& key) {
    for (const auto& reading : monitor->allSensors()) {
      if (reading->key() == key) return reading;
    }
    ADD_FAILURE() << "no reading of " << key;
    return monitor->allSensors().front();
  }
  void plant(const std::shared_ptr<HWSensorEntity>& sensor, int range, double age) {
    auto point = store->createGraphPoint();
    point->setPointX(clock->now() - age);
    point->setTimeRange(static_cast<std::int16_t>(range));
    point->setSensor(sensor);
  }

  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock = dispatch::installVirtualTime(1'700'000'000);
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWSensorDataStore> store;
  std::shared_ptr<HWSensorMonitor> monitor;
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
};

TEST_F(SensorMonitorTest, SamplesEachRangeOnItsReadingAndPrunesAfterReading150) {
  // Reading; hour, day and week points it added; an hour point 3500 s old at start, of a sensor never read.
  const std::array<std::int64_t, 5> steps[] = {{1, 0, 0, 0, 1},   {4, 0, 0, 0, 1},   {5, 1, 0, 0, 1},
                                               {10, 1, 0, 0, 1},  {120, 0, 1, 0, 1}, {149, 0, 0, 0, 1},
                                               {150, 1, 0, 0, 0}, {240, 0, 1, 0, 0}, {900, 0, 0, 1, 0}};
  open();
  const auto sensor = ofCategory(0);
  const auto unread = store->createSensorWithCustomInfo({{"key", "Custom"}, {"name", "Custom"}});
  plant(unread, 0, 3500);
  ASSERT_TRUE(store->save());
  std::vector<std::array<std::int64_t, 4>> seen = {{0, 0, 0, 1}};
  listener->afterReading = [&] {
    seen.push_back({sensor->graphPointCount(HWTimeRange::kHour), sensor->graphPointCount(HWTimeRange::kDay),
                    sensor->graphPointCount(HWTimeRange::kWeek), unread->graphPointCount(HWTimeRange::kHour)});
  };
  runReadings(900);
  for (const auto& step : steps) {
    const auto &before = seen[step[0] - 1], &after = seen[step[0]];
    EXPECT_EQ((std::array{after[0] - before[0], after[1] - before[1], after[2] - before[2], after[3]}),
              (std::array{step[1], step[2], step[3], step[4]}))
        << step[0];
  }
}

TEST_F(SensorMonitorTest, SpanRuleWidensOnlyVoltageCurrentAndPower) {
  // Category, value read, limits after; temperature and fan keep the 1 and 99 set before.
  const std::array<double, 4> cases[] = {{2, 12.3, 12, 13}, {2, 12, 10.8, 12}, {0, 12.3, 1, 99}, {1, 12, 1, 99}};
  open(testing::builtinMachine(), 2);  // 10 s: every reading is an hour point
  for (const auto& [category, value, min, max] : cases) {
    auto sensor = ofCategory(static_cast<std::int64_t>(category));
    sensor->setRecordedMinValue(kRecordedMinStart);
    sensor->setRecordedMaxValue(kNothingRecorded);
    sensor->setMinValue(1);
    sensor->setMaxValue(99);
    readingOf(sensor->key())->setValue(value);
    monitor->updateSensorData();
    EXPECT_EQ(std::make_pair(sensor->minValue(), sensor->maxValue()), std::make_pair(min, max)) << value;
  }
}

TEST_F(SensorMonitorTest, HiddenSensorsAreNeitherUpdatedNorSampled) {
  // Apple silicon with a named and an unnamed sensor each of the SMC and of HID.
  open(testing::profileFromJson(R"({"name": "Hidden", "sysctl": {"machdep.cpu.brand_string": "Apple M1 Pro"},
      "smc": [["Tp01", "sp78", "2800"], ["TZ9z", "sp78", "2100"]],
      "hid": {"temperature": [["pACC MTR Temp Sensor0", 60], ["mystery sensor", 33]], "voltage": []}})"));
  store->setShowComputedSensors(false);
  // Source and whether unknown; only the named SMC sensor is shown.
  const std::pair<std::int16_t, bool> kinds[] = {{1, false}, {1, true}, {2, false}, {0, true}, {0, false}};
  std::vector<std::shared_ptr<HWSensorEntity>> picked;
  for (const auto& kind : kinds) {
    picked.push_back(find(
        [&](const HWSensorEntity& s) { return s.sourceType() == kind.first && s.isUnknownSensor() == kind.second; }));
    readingOf(picked.back()->key())->setValue(-7);  // kept by the reader unless it refreshes the sensor
  }
  runReadings(5);
  for (const auto& sensor : picked) {
    const bool shown = sensor == picked.back();
    EXPECT_EQ(sensor->value() == readingOf(sensor->key())->value(), shown) << sensor->key();
    EXPECT_EQ(sensor->graphPointCount(HWTimeRange::kHour), shown ? 1 : 0) << sensor->key();
  }
}

TEST_F(SensorMonitorTest, PruningCutsEachRangeAtItsAxisAndSavesOnlyWhenSomethingWent) {
  struct Case {
    int range;
    double age;
    bool kept;
  };
  const std::vector<std::vector<Case>> plantings = {{{0, 3601, false}, {2, 3601, true}, {0, 3599, true}},
                                                    {{1, 86401, false}, {1, 86399, true}, {1, 3601, true}},
                                                    {{2, 604801, false}, {2, 604799, true}},
                                                    {{0, 10, true}, {2, 10, true}}};
  open();
  const auto sensor = ofCategory(0);
  for (const auto& planting : plantings) {
    bool anyRemoved = false;
    for (const Case& c : planting) plant(sensor, c.range, c.age), anyRemoved |= !c.kept;
    ASSERT_TRUE(store->save());
    sensor->setValue(sensor->value() + 1);  // a pending change: saved only by a pruning that removed
    monitor->removeOutOfDateGraphPoints();
    EXPECT_EQ(store->coreDataStack()->viewContext()->hasChanges(), !anyRemoved);
    for (const Case& c : planting) {
      const auto points = sensor->graphPoints(static_cast<HWTimeRange>(c.range));
      EXPECT_EQ(std::ranges::any_of(points, [&](const auto& p) { return p->pointX() == clock->now() - c.age; }), c.kept)
          << "range " << c.range << " age " << c.age;
    }
  }
}

TEST_F(SensorMonitorTest, FrequencyChangeRestartsTheSamplingPhaseAndTheTimer) {
  open();
  const auto sensor = ofCategory(0);
  runReadings(3);  // at 2 s the hour point would come on reading 5
  manager->settingsDataStore()->setUpdateFrequency(1);
  clock->runUntilIdle();
  // Restarted at 5 s: the reading inside start, then the timer's first tick, on which it is due.
  EXPECT_EQ(listener->readings, 5);
  EXPECT_EQ(sensor->graphPointCount(HWTimeRange::kHour), 1);
  EXPECT_DOUBLE_EQ(store->coreDataStack()->stalenessInterval(), 5);
  clock->advance(seconds(4));
  EXPECT_EQ(listener->readings, 5);
  clock->advance(seconds(1));
  EXPECT_EQ(listener->readings, 6);
}

TEST_F(SensorMonitorTest, ASensorStoredAnewIsTheOneWrittenToAndAMonitorLetGoReadsNoMore) {
  open();
  runReadings(2);
  const auto gone = ofCategory(0);
  store->deleteObject(gone);
  ASSERT_TRUE(store->save());
  ASSERT_TRUE(manager->buildDataSetNow());
  clock->advance(seconds(6));  // reading 5: an hour point
  const auto again = store->getSensorByKey(gone->key());
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->graphPointCount(HWTimeRange::kHour), 1);
  const int readings = listener->readings;
  monitor.reset();
  clock->advance(seconds(10));
  EXPECT_EQ(listener->readings, readings);
}

}  // namespace
}  // namespace corvane
