#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "corvane/sensors/value_formatter.h"
#include "corvane/util/strings.h"

namespace corvane {
namespace {

// The tables give types as the numbers a stored category holds; 9 names no type.
SensorType typeNumbered(uint64_t number) { return static_cast<SensorType>(number); }

struct FakeSensor final : FormattableSensor {
  SensorType type = SensorType::kTemperature;
  double value = 0, min = 0, max = 0;
  int64_t status = 0;
  bool cpuProximity = false;
  SensorType categoryType() const override { return type; }
  double convertedValue() const override { return value; }
  double minValue() const override { return min; }
  double maxValue() const override { return max; }
  int64_t statusEnum() const override { return status; }
  bool isCPUProximitySensor() const override { return cpuProximity; }
};

class FormatterTest : public ::testing::Test {
 protected:
  void use(bool celsius, uint64_t fanValueType) {
    setUnitPreferencesProvider([=] { return UnitPreferences{celsius, fanValueType}; });
  }
  void TearDown() override { setUnitPreferencesProvider(nullptr); }
};

TEST_F(FormatterTest, FullStringIsNumberAndUnitWithoutABlank) {
  struct Case {
    bool celsius;
    uint64_t fanValueType;
    double value;
    uint64_t type;
    bool shortForm;
    const char* expected;
  };
  for (const auto& c :
       {Case{true, 0, 0.0, 0, false, "0°"}, Case{false, 0, 212.0, 0, false, "212°F"},
        Case{false, 0, 212.0, 0, true, "212°"}, Case{true, 0, 62.5, 0, false, "62°"},  // %.0f rounds half to even
        Case{true, 0, 1800.0, 1, false, "1800rpm"}, Case{true, 0, 1800.0, 1, true, "1800"},
        Case{true, 1, 0.999, 1, true, "99%"}, Case{true, 0, 1.5, 3, true, "1.50A"},
        Case{true, 0, 7.0, 9, false, "7.00"}, Case{true, 1, -0.5, 1, false, "-"}}) {
    use(c.celsius, c.fanValueType);
    EXPECT_EQ(HWValueConverter::fullStringFromValue(c.value, typeNumbered(c.type), c.shortForm), c.expected);
  }
}

TEST_F(FormatterTest, StatusDisplayKnowsFourteenStatuses) {
  FakeSensor sensor;
  for (int64_t status : {0, 15, -1}) {
    sensor.status = status;
    EXPECT_EQ(HWSensorFormatter::statusDisplayFromSensor(sensor), "--") << status;
  }
  for (int64_t status = 1; status <= 14; ++status) {
    sensor.status = status;
    const std::string text = HWSensorFormatter::statusDisplayFromSensor(sensor);
    EXPECT_FALSE(text.empty()) << status;
    EXPECT_EQ(text.find("sensor-status-display"), std::string::npos) << "no English text for status " << status;
  }
}

TEST_F(FormatterTest, StatusExplanationsNameTheirThresholds) {
  struct Case {
    bool celsius;
    uint64_t type;
    int64_t status;
    bool cpuProximity;
    double min, max;
    std::optional<std::string> expected;
  };
  for (const auto& c :
       {Case{true, 0, 1, true, 0, 0, "Sensor Temperature < 70°"},
        Case{true, 0, 1, false, 0, 0, "Sensor Temperature < 90°"},
        Case{true, 0, 3, true, 0, 0, "Sensor Temperature >= 100°"},
        Case{false, 0, 3, false, 0, 0, "Sensor Temperature >= 212°F"}, Case{true, 0, 5, false, 0, 0, std::nullopt},
        Case{true, 1, 4, false, 1000, 5000, "Sensor Fan Speed = 0"},
        Case{true, 1, 6, false, 1000, 5000, "Sensor Fan Speed >= 4000rpm"},
        Case{true, 1, 7, false, 1000, 5000, "Sensor Fan Speed >= 4600rpm"},
        Case{true, 1, 7, false, 5000, 1000, "Sensor Fan Speed >= 8600rpm"},  // |max - min|
        Case{true, 2, 1, false, 0, 0, std::nullopt}}) {
    use(c.celsius, 0);
    FakeSensor sensor;
    sensor.type = typeNumbered(c.type);
    sensor.status = c.status;
    sensor.cpuProximity = c.cpuProximity;
    sensor.min = c.min;
    sensor.max = c.max;
    EXPECT_EQ(HWSensorFormatter::statusExplanationFromSensor(sensor), c.expected) << c.type << "/" << c.status;
  }
}

}  // namespace
}  // namespace corvane
