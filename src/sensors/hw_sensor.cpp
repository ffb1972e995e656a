#include "corvane/sensors/hw_sensor.h"

#include <utility>

namespace corvane {

std::string_view sensorTypeName(std::uint64_t type) {
  switch (type) {
    case sensor_type::kTemperature: return "Temperature";
    case sensor_type::kFan: return "Fan";
    case sensor_type::kVoltage: return "Voltage";
    case sensor_type::kCurrent: return "Current";
    case sensor_type::kPower: return "Power";
    default: return {};
  }
}

std::shared_ptr<HWSensor> HWSensor::instanceWithKey(std::string key, std::string name,
                                                    std::string fullName, double value,
                                                    double minLimitValue, double maxLimitValue,
                                                    std::uint64_t type, std::uint64_t group,
                                                    std::uint64_t platform,
                                                    std::uint64_t sourceType, bool average) {
  // The constructor is private so that records exist only behind shared pointers.
  std::shared_ptr<HWSensor> sensor(new HWSensor());
  sensor->key_ = std::move(key);
  sensor->name_ = std::move(name);
  sensor->fullName_ = std::move(fullName);
  sensor->value_ = value;
  sensor->minLimitValue_ = minLimitValue;
  sensor->maxLimitValue_ = maxLimitValue;
  sensor->type_ = type;
  sensor->group_ = group;
  sensor->platform_ = platform;
  sensor->sourceType_ = sourceType;
  sensor->average_ = average;
  return sensor;
}

std::shared_ptr<HWSensor> HWSensor::instanceWithKey(std::string key, std::string name,
                                                    std::uint64_t type, std::uint64_t group,
                                                    std::uint64_t platform) {
  return instanceWithKey(std::move(key), std::move(name), type, group, platform, false);
}

std::shared_ptr<HWSensor> HWSensor::instanceWithKey(std::string key, std::string name,
                                                    std::uint64_t type, std::uint64_t group,
                                                    std::uint64_t platform, bool average) {
  std::string fullName = name;
  return instanceWithKey(std::move(key), std::move(name), std::move(fullName), 0, 0, 0, type,
                         group, platform, source_type::kSMC, average);
}

std::shared_ptr<HWSensor> HWSensor::hidSensorWithKey(std::string key, std::string name,
                                                     std::uint64_t type, std::uint64_t group,
                                                     std::uint64_t platform, bool average) {
  std::string fullName = name;
  return instanceWithKey(std::move(key), std::move(name), std::move(fullName), 0, 0, 0, type,
                         group, platform, source_type::kHID, average);
}

bool HWSensor::isValidValue() const {
  switch (type_) {
    case sensor_type::kTemperature:
      // Rejects only on a true comparison, so a NaN reading is accepted.
      if (value_ <= minLimitValue_ || value_ > maxLimitValue_) return false;
      return true;
    case sensor_type::kFan:
      return true;
    case sensor_type::kVoltage:
      return value_ != 0 && value_ <= 300;
    case sensor_type::kCurrent:
      // Accepts only on true comparisons, so a NaN reading is rejected.
      return value_ > 0 && value_ <= 100;
    case sensor_type::kPower:
      return value_ > 0;
    default:
      return false;
  }
}

bool HWSensor::isUnknownSensor() const {
  return key_ == name_ && key_ == fullName_ && group_ == sensor_group::kUnknown;
}

}  // namespace corvane
