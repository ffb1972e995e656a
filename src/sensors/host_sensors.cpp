#include "corvane/sensors/host_sensors.h"

#include <string_view>

#include "corvane/platform/platform.h"

namespace corvane {
namespace {

// The group a driver's chip belongs to, by the driver's name (the chip name's first part).
SensorGroup groupOfChip(std::string_view chip) {
  const std::string_view driver = chip.substr(0, chip.find('-'));
  struct Driver {
    std::string_view name;
    SensorGroup group;
  };
  static constexpr Driver kDrivers[] = {
      {"coretemp", SensorGroup::kCPU},     {"k10temp", SensorGroup::kCPU},      {"zenpower", SensorGroup::kCPU},
      {"cpu_thermal", SensorGroup::kCPU},  {"amdgpu", SensorGroup::kGPU},       {"radeon", SensorGroup::kGPU},
      {"nouveau", SensorGroup::kGPU},      {"i915", SensorGroup::kGPU},         {"nvme", SensorGroup::kSSD},
      {"drivetemp", SensorGroup::kDriveBay}, {"jc42", SensorGroup::kMemory},    {"spd5118", SensorGroup::kMemory},
      {"iwlwifi", SensorGroup::kAirflow},  {"acpitz", SensorGroup::kMainboard}, {"pch", SensorGroup::kMainboard},
  };
  for (const auto& known : kDrivers) {
    // Some drivers number their chips ("iwlwifi_1", "pch_cannonlake"): the name up to a '_'.
    if (driver == known.name || (driver.starts_with(known.name) && driver[known.name.size()] == '_')) {
      return known.group;
    }
  }
  if (driver.starts_with("BAT")) return SensorGroup::kBattery;
  return SensorGroup::kUnknown;
}

SensorType typeOf(platform::HostSensorKind kind) {
  switch (kind) {
    case platform::HostSensorKind::kTemperature: return SensorType::kTemperature;
    case platform::HostSensorKind::kFan: return SensorType::kFan;
    case platform::HostSensorKind::kVoltage: return SensorType::kVoltage;
    case platform::HostSensorKind::kCurrent: return SensorType::kCurrent;
    case platform::HostSensorKind::kPower: return SensorType::kPower;
  }
  return SensorType::kTemperature;
}

}  // namespace

std::vector<std::shared_ptr<HWSensor>> hostSensorRecords(const std::vector<platform::HostSensorReading>& readings) {
  std::vector<std::shared_ptr<HWSensor>> records;
  records.reserve(readings.size());
  for (const auto& reading : readings) {
    const SensorType type = typeOf(reading.kind);
    const double noMaximum = type == SensorType::kTemperature ? 110.0 : 0.0;
    records.push_back(HWSensor::instanceWithKey({.key = reading.chip + "/" + reading.feature,
                                                 .name = reading.label,
                                                 .value = reading.value,
                                                 .minLimitValue = reading.minimum.value_or(0.0),
                                                 .maxLimitValue = reading.maximum.value_or(noMaximum),
                                                 .type = type,
                                                 .group = type == SensorType::kFan ? SensorGroup::kFans
                                                                                   : groupOfChip(reading.chip),
                                                 .sourceType = SourceType::kHost}));
  }
  return records;
}

bool readHostSensors(std::vector<std::shared_ptr<HWSensor>>& out, std::string& error,
                     const std::filesystem::path& configuration) {
  std::vector<platform::HostSensorReading> readings;
  const bool read = platform::current().service<platform::HostSensors>().readings(readings, error, configuration);
  out = hostSensorRecords(readings);
  return read;
}

}  // namespace corvane
