#include "corvane/sensors/hw_sensor.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace corvane {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct ValidityCase {
  const char* label;
  std::uint64_t type;
  double value;
  double minLimit;
  double maxLimit;
  bool valid;
};

class SensorValidity : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(SensorValidity, JudgesTheValueByType) {
  const auto& c = GetParam();
  auto sensor = HWSensor::instanceWithKey("TEST", "Test", "Test", c.value, c.minLimit, c.maxLimit,
                                          c.type, sensor_group::kCPU, kAllPlatforms,
                                          source_type::kSMC, false);
  EXPECT_EQ(sensor->isValidValue(), c.valid);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SensorValidity,
    ::testing::Values(
        ValidityCase{"TemperatureAtMaximum", sensor_type::kTemperature, 110.0, 0, 110, true},
        ValidityCase{"TemperatureAtMinimum", sensor_type::kTemperature, 0.0, 0, 110, false},
        ValidityCase{"TemperatureAboveMaximum", sensor_type::kTemperature, 110.5, 0, 110, false},
        ValidityCase{"TemperatureInside", sensor_type::kTemperature, 45.2, 0, 110, true},
        ValidityCase{"TemperatureNaN", sensor_type::kTemperature, kNaN, 0, 110, true},
        ValidityCase{"FanZero", sensor_type::kFan, 0, 0, 0, true},
        ValidityCase{"FanNegative", sensor_type::kFan, -5, 0, 0, true},
        ValidityCase{"VoltageZero", sensor_type::kVoltage, 0.0, 0, 0, false},
        ValidityCase{"VoltageNormal", sensor_type::kVoltage, 12.3, 0, 0, true},
        ValidityCase{"VoltageAt300", sensor_type::kVoltage, 300.0, 0, 0, true},
        ValidityCase{"VoltageAbove300", sensor_type::kVoltage, 300.1, 0, 0, false},
        ValidityCase{"VoltageNegative", sensor_type::kVoltage, -1.5, 0, 0, true},
        ValidityCase{"CurrentZero", sensor_type::kCurrent, 0.0, 0, 0, false},
        ValidityCase{"CurrentExactly100", sensor_type::kCurrent, 100.0, 0, 0, true},
        ValidityCase{"CurrentAbove100", sensor_type::kCurrent, 100.01, 0, 0, false},
        ValidityCase{"CurrentNaN", sensor_type::kCurrent, kNaN, 0, 0, false},
        ValidityCase{"PowerSmall", sensor_type::kPower, 0.01, 0, 0, true},
        ValidityCase{"PowerZero", sensor_type::kPower, 0.0, 0, 0, false},
        ValidityCase{"PowerNaN", sensor_type::kPower, kNaN, 0, 0, false},
        ValidityCase{"UnknownType", 5, 10.0, 0, 100, false},
        ValidityCase{"LargeUnknownType", 99, 1.0, 0, 100, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(HWSensor, ConstructorsFillTheDocumentedDefaults) {
  auto smc = HWSensor::instanceWithKey("TC0P", "CPU Proximity", sensor_type::kTemperature,
                                       sensor_group::kCPU, kAllPlatforms);
  EXPECT_EQ(smc->fullName(), "CPU Proximity");
  EXPECT_EQ(smc->sourceType(), source_type::kSMC);
  EXPECT_FALSE(smc->average());
  EXPECT_EQ(smc->value(), 0.0);
  EXPECT_EQ(smc->maxLimitValue(), 0.0);

  auto averaged = HWSensor::instanceWithKey("TC%C", "CPU Core %", sensor_type::kTemperature,
                                            sensor_group::kCPU, 30, true);
  EXPECT_TRUE(averaged->average());
  EXPECT_EQ(averaged->platform(), 30u);
  EXPECT_EQ(averaged->sourceType(), source_type::kSMC);

  auto hid = HWSensor::hidSensorWithKey("gas gauge battery", "Battery", sensor_type::kTemperature,
                                        sensor_group::kBattery, kAllPlatforms, false);
  EXPECT_EQ(hid->sourceType(), source_type::kHID);
  EXPECT_EQ(hid->fullName(), "Battery");
  EXPECT_EQ(hid->group(), sensor_group::kBattery);

  auto full = HWSensor::instanceWithKey("F0Ac", "Fan", "Left Fan", 1200, 1000, 6000,
                                        sensor_type::kFan, sensor_group::kFans, kAllPlatforms,
                                        source_type::kComputed, true);
  EXPECT_EQ(full->fullName(), "Left Fan");
  EXPECT_EQ(full->minLimitValue(), 1000);
  EXPECT_EQ(full->maxLimitValue(), 6000);
  EXPECT_EQ(full->sourceType(), source_type::kComputed);
}

TEST(HWSensor, RecordsAreDistinctObjectsEvenWithEqualFields) {
  auto a = HWSensor::instanceWithKey("TC0P", "CPU Proximity", 0, 1, kAllPlatforms);
  auto b = HWSensor::instanceWithKey("TC0P", "CPU Proximity", 0, 1, kAllPlatforms);
  EXPECT_NE(a, b);
  a->setValue(50);
  EXPECT_EQ(b->value(), 0.0);
}

struct UnknownCase {
  const char* label;
  const char* key;
  const char* name;
  const char* fullName;
  std::uint64_t group;
  bool unknown;
};

class SensorUnknown : public ::testing::TestWithParam<UnknownCase> {};

TEST_P(SensorUnknown, IsUnknownOnlyWhenUnnamedAndUngrouped) {
  const auto& c = GetParam();
  auto sensor = HWSensor::instanceWithKey(c.key, c.name, c.fullName, 0, 0, 0,
                                          sensor_type::kTemperature, c.group, kAllPlatforms,
                                          source_type::kSMC, false);
  EXPECT_EQ(sensor->isUnknownSensor(), c.unknown);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SensorUnknown,
    ::testing::Values(UnknownCase{"RawRecord", "TZ9Z", "TZ9Z", "TZ9Z", 0, true},
                      UnknownCase{"NamedButGrouped", "TZ9Z", "TZ9Z", "TZ9Z", 4, false},
                      UnknownCase{"Named", "TC0P", "CPU Proximity", "CPU Proximity", 0, false},
                      UnknownCase{"FullNameDiffers", "TZ9Z", "TZ9Z", "Zone", 0, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(HWSensor, TypeNames) {
  EXPECT_EQ(sensorTypeName(sensor_type::kTemperature), "Temperature");
  EXPECT_EQ(sensorTypeName(sensor_type::kFan), "Fan");
  EXPECT_EQ(sensorTypeName(sensor_type::kVoltage), "Voltage");
  EXPECT_EQ(sensorTypeName(sensor_type::kCurrent), "Current");
  EXPECT_EQ(sensorTypeName(sensor_type::kPower), "Power");
  EXPECT_EQ(sensorTypeName(5), "");
}

}  // namespace
}  // namespace corvane
