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

struct FullStringCase {
  bool celsius;
  uint64_t fanValueType;
  double value;
  uint64_t type;
  bool shortForm;
  const char* expected;
};

class FullStringTest : public FormatterTest, public ::testing::WithParamInterface<FullStringCase> {};

TEST_P(FullStringTest, NumberAndUnitWithoutABlank) {
  const FullStringCase& c = GetParam();
  use(c.celsius, c.fanValueType);
  EXPECT_EQ(HWValueConverter::fullStringFromValue(c.value, typeNumbered(c.type), c.shortForm), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Units, FullStringTest,
    ::testing::Values(FullStringCase{true, 0, 62.4, 0, false, "62°"}, FullStringCase{true, 0, 0.0, 0, false, "0°"},
                      FullStringCase{false, 0, 212.0, 0, false, "212°F"}, FullStringCase{false, 0, 212.0, 0, true, "212°"},
                      FullStringCase{true, 0, 62.5, 0, false, "62°"},  // %.0f rounds half to even
                      FullStringCase{true, 0, 1800.0, 1, false, "1800rpm"}, FullStringCase{true, 0, 1800.0, 1, true, "1800"},
                      FullStringCase{true, 1, 0.456, 1, false, "45%"}, FullStringCase{true, 1, 0.999, 1, true, "99%"},
                      FullStringCase{true, 0, 12.25, 2, false, "12.25V"}, FullStringCase{true, 0, 1.5, 3, true, "1.50A"},
                      FullStringCase{true, 0, 3.0, 4, false, "3.00W"}, FullStringCase{true, 0, 7.0, 9, false, "7.00"},
                      FullStringCase{true, 0, -0.5, 0, false, "-"}, FullStringCase{true, 1, -0.5, 1, false, "-"},
                      FullStringCase{true, 0, -0.5, 4, false, "-"}));

TEST_F(FormatterTest, TemperatureConversionFollowsTheUnit) {
  EXPECT_DOUBLE_EQ(HWValueConverter::convertedTemp(100.0), 100.0);  // the default is Celsius
  use(false, 0);
  EXPECT_DOUBLE_EQ(HWValueConverter::convertedTemp(100.0), 212.0);
  EXPECT_DOUBLE_EQ(HWValueConverter::convertedTemp(-40.0), -40.0);
  EXPECT_FALSE(HWValueConverter::unitStringFromCategoryType(typeNumbered(5), false).has_value());
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

struct ExplanationCase {
  bool celsius;
  uint64_t type;
  int64_t status;
  bool cpuProximity;
  double min, max;
  std::optional<std::string> expected;
};

class ExplanationTest : public FormatterTest, public ::testing::WithParamInterface<ExplanationCase> {};

TEST_P(ExplanationTest, ThresholdSentences) {
  const ExplanationCase& c = GetParam();
  use(c.celsius, 0);
  FakeSensor sensor;
  sensor.type = typeNumbered(c.type);
  sensor.status = c.status;
  sensor.cpuProximity = c.cpuProximity;
  sensor.min = c.min;
  sensor.max = c.max;
  EXPECT_EQ(HWSensorFormatter::statusExplanationFromSensor(sensor), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, ExplanationTest,
    ::testing::Values(ExplanationCase{true, 0, 1, true, 0, 0, "Sensor Temperature < 70°"},
                      ExplanationCase{true, 0, 1, false, 0, 0, "Sensor Temperature < 90°"},
                      ExplanationCase{true, 0, 2, false, 0, 0, "Sensor Temperature >= 90°"},
                      ExplanationCase{true, 0, 3, true, 0, 0, "Sensor Temperature >= 100°"},
                      ExplanationCase{false, 0, 3, false, 0, 0, "Sensor Temperature >= 212°F"},
                      ExplanationCase{false, 0, 1, true, 0, 0, "Sensor Temperature < 158°F"},
                      ExplanationCase{true, 0, 5, false, 0, 0, std::nullopt},
                      ExplanationCase{true, 1, 4, false, 1000, 5000, "Sensor Fan Speed = 0"},
                      ExplanationCase{true, 1, 5, false, 1000, 5000, "Sensor Fan Speed < 4000rpm"},
                      ExplanationCase{true, 1, 6, false, 1000, 5000, "Sensor Fan Speed >= 4000rpm"},
                      ExplanationCase{true, 1, 7, false, 1000, 5000, "Sensor Fan Speed >= 4600rpm"},
                      ExplanationCase{true, 1, 7, false, 5000, 1000, "Sensor Fan Speed >= 8600rpm"},  // |max - min|
                      ExplanationCase{true, 1, 1, false, 1000, 5000, std::nullopt},
                      ExplanationCase{true, 2, 1, false, 0, 0, std::nullopt}));

}  // namespace
}  // namespace corvane
