#include "corvane/sensors/hw_sensor.h"

#include <cstdint>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(SensorValidity, JudgesTheValueByType) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    SensorType type;
    double value, maxLimit;
    bool valid;
  };
  for (const auto& c :
       {Case{SensorType::kTemperature, 110.0, 110, true}, Case{SensorType::kTemperature, 110.5, 110, false},
        Case{SensorType::kTemperature, kNaN, 110, true}, Case{SensorType::kFan, -5, 0, true},
        Case{SensorType::kVoltage, 0.0, 0, false}, Case{SensorType::kVoltage, 300.0, 0, true},
        Case{SensorType::kVoltage, 300.1, 0, false}, Case{SensorType::kCurrent, 100.0, 0, true},
        Case{SensorType::kCurrent, 100.01, 0, false}, Case{SensorType::kCurrent, kNaN, 0, false},
        Case{SensorType::kPower, 0.01, 0, true}, Case{SensorType::kPower, 0.0, 0, false},
        // A type outside the enumeration (as a damaged store could hold) is never valid.
        Case{static_cast<SensorType>(5), 10.0, 100, false}}) {
    auto sensor = HWSensor::instanceWithKey(
        {.key = "TEST", .name = "Test", .value = c.value, .maxLimitValue = c.maxLimit, .type = c.type});
    EXPECT_EQ(sensor->isValidValue(), c.valid) << sensorTypeName(c.type) << " " << c.value;
  }
}

// Numbers read back from JSON, settings or the store: the last of each enumeration converts, the
// next one up is refused.
TEST(HWSensor, StoredNumbersConvertOnlyWithinTheEnumeration) {
  EXPECT_EQ(sensorTypeFromNumber(4), SensorType::kPower);
  EXPECT_EQ(sensorTypeFromNumber(5), std::nullopt);
  EXPECT_EQ(sensorTypeFromNumber(UINT64_MAX), std::nullopt);
  EXPECT_EQ(sensorGroupFromNumber(11), SensorGroup::kFans);
  EXPECT_EQ(sensorGroupFromNumber(12), std::nullopt);
  EXPECT_EQ(sourceTypeFromNumber(3), SourceType::kHost);
  EXPECT_EQ(sourceTypeFromNumber(4), std::nullopt);
}

}  // namespace
}  // namespace corvane
