#include "corvane/hid/hid_wrapper.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/platform.h"
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

class HIDWrapperTest : public testing::MachineTest {
 protected:
  std::shared_ptr<ScriptedHid> script() {
    auto hid = std::make_shared<ScriptedHid>();
    platform::current().provide<platform::HidEventSystem>(hid);
    return hid;
  }
  HIDWrapper wrapper_;
};

TEST_F(HIDWrapperTest, DuplicateProductsMakeOneRecordWithTheLaterValueAndOtherTypesGiveNothing) {
  install(kAppleSilicon);
  const auto sensors = wrapper_.getAllSensors();
  ASSERT_EQ(sensors.size(), 3u);
  // Temperatures first (in name order), then voltages.
  EXPECT_EQ(sensors[0]->key(), "gas gauge battery");
  EXPECT_TRUE(sensors[1]->value() == 47.0 && sensors[1]->sourceType() == SourceType::kHID);
  EXPECT_TRUE(sensors[2]->key() == "PMU vbat" && sensors[2]->type() == SensorType::kVoltage);
  EXPECT_DOUBLE_EQ(*wrapper_.getSensorValueByKey("PMU vbat", SensorType::kVoltage), 12.5);
  EXPECT_EQ(wrapper_.getSensorValueByKey("PMU vbat", SensorType::kTemperature), std::nullopt);
  EXPECT_EQ(wrapper_.getSensorValueByKey("PMU vbat", SensorType::kFan), std::nullopt);
  EXPECT_EQ(wrapper_.getSensorsDictByType(SensorType::kPower), std::nullopt);
}

TEST_F(HIDWrapperTest, ServicesWithoutProductOrEventAreLeftOutAndNoneGiveNoDictionary) {
  install(kAppleSilicon);
  auto hid = script();
  hid->services = {{std::nullopt, 40.0}, {"A", std::nullopt}, {"B", 41.0}, {"B", std::nullopt}};
  const auto values = AppleSiliconSensors(0xFF00, 5, 15);
  ASSERT_TRUE(values.has_value());
  ASSERT_EQ(values->size(), 1u);
  EXPECT_EQ(values->at("B"), 41.0);  // a later service without a reading does not overwrite
  hid->listed = false;
  EXPECT_EQ(AppleSiliconSensors(0xFF00, 5, 15), std::nullopt);
  EXPECT_TRUE(wrapper_.getAllSensors().empty());
}

TEST_F(HIDWrapperTest, APassScansOnceAndEachPassReadsAfresh) {
  install(kAppleSilicon);
  auto hid = script();
  hid->services = {{"A", 40.0}, {"B", 41.0}};
  wrapper_.beginPass();
  EXPECT_EQ(wrapper_.getSensorValueByKey("A", SensorType::kTemperature), 40.0);
  EXPECT_EQ(wrapper_.getSensorValueByKey("B", SensorType::kTemperature), 41.0);
  EXPECT_EQ(hid->scans, 1);  // one scan serves the pass
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
