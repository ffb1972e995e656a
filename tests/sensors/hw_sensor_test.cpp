#include "corvane/sensors/hw_sensor.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

namespace corvane {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct ValidityCase {
  const char* label;
  SensorType type;
  double value;
  double minLimit;
  double maxLimit;
  bool valid;
};

class SensorValidity : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(SensorValidity, JudgesTheValueByType) {
  const auto& c = GetParam();
  auto sensor = HWSensor::instanceWithKey({.key = "TEST",
                                           .name = "Test",
                                           .value = c.value,
                                           .minLimitValue = c.minLimit,
                                           .maxLimitValue = c.maxLimit,
                                           .type = c.type,
                                           .group = SensorGroup::kCPU});
  EXPECT_EQ(sensor->isValidValue(), c.valid);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SensorValidity,
    ::testing::Values(
        ValidityCase{"TemperatureAtMaximum", SensorType::kTemperature, 110.0, 0, 110, true},
        ValidityCase{"TemperatureAtMinimum", SensorType::kTemperature, 0.0, 0, 110, false},
        ValidityCase{"TemperatureAboveMaximum", SensorType::kTemperature, 110.5, 0, 110, false},
        ValidityCase{"TemperatureInside", SensorType::kTemperature, 45.2, 0, 110, true},
        ValidityCase{"TemperatureNaN", SensorType::kTemperature, kNaN, 0, 110, true},
        ValidityCase{"FanZero", SensorType::kFan, 0, 0, 0, true},
        ValidityCase{"FanNegative", SensorType::kFan, -5, 0, 0, true},
        ValidityCase{"VoltageZero", SensorType::kVoltage, 0.0, 0, 0, false},
        ValidityCase{"VoltageNormal", SensorType::kVoltage, 12.3, 0, 0, true},
        ValidityCase{"VoltageAt300", SensorType::kVoltage, 300.0, 0, 0, true},
        ValidityCase{"VoltageAbove300", SensorType::kVoltage, 300.1, 0, 0, false},
        ValidityCase{"VoltageNegative", SensorType::kVoltage, -1.5, 0, 0, true},
        ValidityCase{"CurrentZero", SensorType::kCurrent, 0.0, 0, 0, false},
        ValidityCase{"CurrentExactly100", SensorType::kCurrent, 100.0, 0, 0, true},
        ValidityCase{"CurrentAbove100", SensorType::kCurrent, 100.01, 0, 0, false},
        ValidityCase{"CurrentNaN", SensorType::kCurrent, kNaN, 0, 0, false},
        ValidityCase{"PowerSmall", SensorType::kPower, 0.01, 0, 0, true},
        ValidityCase{"PowerZero", SensorType::kPower, 0.0, 0, 0, false},
        ValidityCase{"PowerNaN", SensorType::kPower, kNaN, 0, 0, false},
        // A type outside the enumeration (as a damaged store could hold) is never valid.
        ValidityCase{"UnknownType", static_cast<SensorType>(5), 10.0, 0, 100, false},
        ValidityCase{"LargeUnknownType", static_cast<SensorType>(99), 1.0, 0, 100, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(HWSensor, FieldsLeftOutTakeTheDocumentedDefaults) {
  auto named = HWSensor::instanceWithKey({.key = "TC0P", .name = "CPU Proximity", .group = SensorGroup::kCPU});
  EXPECT_EQ(named->fullName(), "CPU Proximity");
  EXPECT_EQ(named->type(), SensorType::kTemperature);
  EXPECT_EQ(named->platform(), kAllPlatforms);
  EXPECT_EQ(named->sourceType(), SourceType::kSMC);
  EXPECT_FALSE(named->average());
  EXPECT_EQ(named->value(), 0.0);
  EXPECT_EQ(named->maxLimitValue(), 0.0);

  // A full name given, even an empty one, is kept rather than replaced by the name.
  auto full = HWSensor::instanceWithKey({.key = "F0Ac", .name = "Fan", .fullName = "Left Fan"});
  EXPECT_EQ(full->fullName(), "Left Fan");
  auto blank = HWSensor::instanceWithKey({.key = "TG0P", .name = "GPU", .fullName = ""});
  EXPECT_EQ(blank->fullName(), "");
}

TEST(HWSensor, RecordsAreDistinctObjectsEvenWithEqualFields) {
  auto a = HWSensor::instanceWithKey({.key = "TC0P", .name = "CPU Proximity", .group = SensorGroup::kCPU});
  auto b = HWSensor::instanceWithKey({.key = "TC0P", .name = "CPU Proximity", .group = SensorGroup::kCPU});
  EXPECT_NE(a, b);
  a->setValue(50);
  EXPECT_EQ(b->value(), 0.0);
}

struct UnknownCase {
  const char* label;
  const char* key;
  const char* name;
  const char* fullName;
  SensorGroup group;
  bool unknown;
};

class SensorUnknown : public ::testing::TestWithParam<UnknownCase> {};

TEST_P(SensorUnknown, IsUnknownOnlyWhenUnnamedAndUngrouped) {
  const auto& c = GetParam();
  auto sensor = HWSensor::instanceWithKey({.key = c.key, .name = c.name, .fullName = c.fullName, .group = c.group});
  EXPECT_EQ(sensor->isUnknownSensor(), c.unknown);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SensorUnknown,
    ::testing::Values(UnknownCase{"RawRecord", "TZ9Z", "TZ9Z", "TZ9Z", SensorGroup::kUnknown, true},
                      UnknownCase{"NamedButGrouped", "TZ9Z", "TZ9Z", "TZ9Z", SensorGroup::kMainboard, false},
                      UnknownCase{"Named", "TC0P", "CPU Proximity", "CPU Proximity", SensorGroup::kUnknown, false},
                      UnknownCase{"FullNameDiffers", "TZ9Z", "TZ9Z", "Zone", SensorGroup::kUnknown, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(HWSensor, TypeNames) {
  EXPECT_EQ(sensorTypeName(SensorType::kTemperature), "Temperature");
  EXPECT_EQ(sensorTypeName(SensorType::kFan), "Fan");
  EXPECT_EQ(sensorTypeName(SensorType::kVoltage), "Voltage");
  EXPECT_EQ(sensorTypeName(SensorType::kCurrent), "Current");
  EXPECT_EQ(sensorTypeName(SensorType::kPower), "Power");
  EXPECT_EQ(sensorTypeName(static_cast<SensorType>(5)), "");
}

// Numbers read back from JSON, settings or the store: the last of each enumeration converts, the
// next one up is refused.
TEST(HWSensor, StoredNumbersConvertOnlyWithinTheEnumeration) {
  EXPECT_EQ(sensorTypeFromNumber(0), SensorType::kTemperature);
  EXPECT_EQ(sensorTypeFromNumber(4), SensorType::kPower);
  EXPECT_EQ(sensorTypeFromNumber(5), std::nullopt);
  EXPECT_EQ(sensorTypeFromNumber(UINT64_MAX), std::nullopt);
  EXPECT_EQ(sensorGroupFromNumber(0), SensorGroup::kUnknown);
  EXPECT_EQ(sensorGroupFromNumber(11), SensorGroup::kFans);
  EXPECT_EQ(sensorGroupFromNumber(12), std::nullopt);
  EXPECT_EQ(sourceTypeFromNumber(2), SourceType::kComputed);
  EXPECT_EQ(sourceTypeFromNumber(3), std::nullopt);
}

}  // namespace
}  // namespace corvane
