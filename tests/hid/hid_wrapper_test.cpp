#include "corvane/hid/hid_wrapper.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "platform/sim/sim_platform.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using platform::HidService;

constexpr const char* kAppleSilicon = R"({"name": "Hid", "sysctl": {}, "smc": [["TC0P", "sp78", "2f80"]],
  "hid": {"temperature": [["pACC MTR Temp Sensor0", 45.5], ["gas gauge battery", 30.25],
                          ["pACC MTR Temp Sensor0", 47.0]],
          "voltage": [["PMU vbat", 12.5]]}})";

// An event system whose services the test sets, counting the scans.
class ScriptedHid : public platform::HidEventSystem {
 public:
  bool present() const override { return true; }
  bool copyServices(int usagePage, int usage, int eventType, std::vector<HidService>& into) const override {
    ++scans;
    const bool temperature = usagePage == 0xFF00 && usage == 5 && eventType == 15;
    if (!temperature || !listed) {
      into.clear();
      return false;
    }
    into = services;
    return true;
  }
  bool listed = true;
  std::vector<HidService> services;
  mutable int scans = 0;
};

class HIDWrapperTest : public ::testing::Test {
 protected:
  void install(const std::string& json) { testing::installMachine(testing::profileFromJson(json), dir_.path()); }
  std::shared_ptr<ScriptedHid> script() {
    auto hid = std::make_shared<ScriptedHid>();
    platform::current().provide<platform::HidEventSystem>(hid);
    return hid;
  }
  void TearDown() override { SMCClose(); }

  testing::TempDir dir_;
  HIDWrapper wrapper_;
};

TEST_F(HIDWrapperTest, TypesWithoutAnHidClassGiveNothing) {
  install(kAppleSilicon);
  for (SensorType type : {SensorType::kFan, SensorType::kCurrent, SensorType::kPower}) {
    SCOPED_TRACE(sensorTypeName(type));
    EXPECT_EQ(wrapper_.getSensorsDictByType(type), std::nullopt);
    EXPECT_EQ(wrapper_.getSensorValueByKey("PMU vbat", type), std::nullopt);
  }
  for (const auto& sensor : wrapper_.getAllSensors()) {
    EXPECT_TRUE(sensor->type() == SensorType::kTemperature || sensor->type() == SensorType::kVoltage);
  }
}

TEST_F(HIDWrapperTest, DuplicateProductsMakeOneRecordWithTheLaterValue) {
  install(kAppleSilicon);
  const auto sensors = wrapper_.getAllSensors();
  ASSERT_EQ(sensors.size(), 3u);
  // Temperatures first (in name order), then voltages.
  EXPECT_EQ(sensors[0]->key(), "gas gauge battery");
  EXPECT_EQ(sensors[1]->key(), "pACC MTR Temp Sensor0");
  EXPECT_DOUBLE_EQ(sensors[1]->value(), 47.0);
  EXPECT_EQ(sensors[1]->name(), sensors[1]->key());
  EXPECT_EQ(sensors[1]->fullName(), sensors[1]->key());
  EXPECT_EQ(sensors[1]->maxLimitValue(), 110.0);
  EXPECT_EQ(sensors[1]->sourceType(), SourceType::kHID);
  EXPECT_EQ(sensors[1]->group(), SensorGroup::kUnknown);
  EXPECT_EQ(sensors[1]->platform(), kAllPlatforms);
  EXPECT_EQ(sensors[2]->key(), "PMU vbat");
  EXPECT_EQ(sensors[2]->type(), SensorType::kVoltage);
  EXPECT_EQ(sensors[2]->maxLimitValue(), 0.0);
  EXPECT_DOUBLE_EQ(*wrapper_.getSensorValueByKey("pACC MTR Temp Sensor0", SensorType::kTemperature), 47.0);
  EXPECT_DOUBLE_EQ(*wrapper_.getSensorValueByKey("PMU vbat", SensorType::kVoltage), 12.5);
  EXPECT_EQ(wrapper_.getSensorValueByKey("PMU vbat", SensorType::kTemperature), std::nullopt);
}

TEST_F(HIDWrapperTest, MachineWithoutHidHasNoServices) {
  install(R"({"name": "Intel", "sysctl": {}, "smc": [["TC0P", "sp78", "2f80"]]})");
  const auto& events = platform::current().service<platform::HidEventSystem>();
  EXPECT_FALSE(events.present());
  EXPECT_EQ(events.services(0xFF00, 5, 15), std::nullopt);
  EXPECT_EQ(wrapper_.getSensorsDictByType(SensorType::kTemperature), std::nullopt);
  EXPECT_TRUE(wrapper_.getAllSensors().empty());
}

TEST_F(HIDWrapperTest, SimulatedServicesFollowTheRecordedListsInOrder) {
  install(kAppleSilicon);
  const auto& events = platform::current().service<platform::HidEventSystem>();
  EXPECT_TRUE(events.present());
  const auto temperatures = events.services(0xFF00, 5, 15);
  ASSERT_TRUE(temperatures.has_value());
  ASSERT_EQ(temperatures->size(), 3u);
  EXPECT_EQ(*(*temperatures)[2].product, "pACC MTR Temp Sensor0");
  EXPECT_EQ((*temperatures)[2].value, 47.0);
  // A service asked for an event type it does not have has a product but no reading.
  const auto wrongEvent = events.services(0xFF00, 5, 25);
  ASSERT_TRUE(wrongEvent.has_value());
  EXPECT_EQ((*wrongEvent)[0].value, std::nullopt);
  EXPECT_EQ(events.services(0xFF00, 6, 15), std::nullopt);
}

TEST_F(HIDWrapperTest, AHostWithARecordedMachineAnswersHidFromIt) {
  // As on a Linux host, where the SMC and HID come from the recorded machine and the rest not.
  auto host = platform::sim::makePlatform(testing::profileFromJson(kAppleSilicon),
                                          platform::sim::rootedFileLocations(dir_.path()), "Hid", false,
                                          /*simulated=*/false);
  const auto& events = host->service<platform::HidEventSystem>();
  EXPECT_TRUE(events.present());
  const auto voltages = events.services(0xFF08, 3, 25);
  ASSERT_TRUE(voltages.has_value());
  ASSERT_EQ(voltages->size(), 1u);
  EXPECT_EQ((*voltages)[0].value, 12.5);
}

TEST_F(HIDWrapperTest, NoMatchingServicesGiveNoDictionary) {
  install(kAppleSilicon);
  auto hid = script();
  hid->listed = false;
  EXPECT_EQ(AppleSiliconSensors(0xFF00, 5, 15), std::nullopt);
  EXPECT_TRUE(wrapper_.getAllSensors().empty());
}

TEST_F(HIDWrapperTest, ServicesWithoutProductOrEventAreLeftOut) {
  install(kAppleSilicon);
  auto hid = script();
  hid->services = {{std::nullopt, 40.0}, {"A", std::nullopt}, {"B", 41.0}, {"B", std::nullopt}};
  const auto values = AppleSiliconSensors(0xFF00, 5, 15);
  ASSERT_TRUE(values.has_value());
  ASSERT_EQ(values->size(), 1u);
  EXPECT_EQ(values->at("B"), 41.0);  // a later service without a reading does not overwrite
  EXPECT_EQ(wrapper_.getSensorValueByKey("B", SensorType::kTemperature), 41.0);
  EXPECT_EQ(wrapper_.getSensorValueByKey("A", SensorType::kTemperature), std::nullopt);
}

TEST_F(HIDWrapperTest, APassScansOnceAndEachPassReadsAfresh) {
  install(kAppleSilicon);
  auto hid = script();
  hid->services = {{"A", 40.0}, {"B", 41.0}};
  wrapper_.beginPass();
  EXPECT_EQ(wrapper_.getSensorValueByKey("A", SensorType::kTemperature), 40.0);
  EXPECT_EQ(wrapper_.getSensorValueByKey("B", SensorType::kTemperature), 41.0);
  EXPECT_EQ(hid->scans, 1);
  hid->services = {{"A", 50.0}};
  wrapper_.beginPass();
  EXPECT_EQ(wrapper_.getSensorValueByKey("A", SensorType::kTemperature), 50.0);
  EXPECT_EQ(wrapper_.getSensorValueByKey("B", SensorType::kTemperature), std::nullopt);  // vanished
  EXPECT_EQ(hid->scans, 2);
  wrapper_.endPass();
  // Outside a pass every lookup is a scan of its own.
  wrapper_.getSensorValueByKey("A", SensorType::kTemperature);
  wrapper_.getSensorValueByKey("A", SensorType::kTemperature);
  EXPECT_EQ(hid->scans, 4);
}

}  // namespace
}  // namespace corvane
