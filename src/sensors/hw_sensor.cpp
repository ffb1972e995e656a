#include "corvane/sensors/hw_sensor.h"

#include <utility>

namespace corvane {

std::string_view sensorTypeName(SensorType type) {
  switch (type) {
    case SensorType::kTemperature: return "Temperature";
    case SensorType::kFan: return "Fan";
    case SensorType::kVoltage: return "Voltage";
    case SensorType::kCurrent: return "Current";
    case SensorType::kPower: return "Power";
  }
  return {};
}

std::shared_ptr<HWSensor> HWSensor::instanceWithKey(Fields fields) {
  // The constructor is private so that records exist only behind shared pointers.
  std::shared_ptr<HWSensor> sensor(new HWSensor());
  sensor->fullName_ = fields.fullName ? std::move(*fields.fullName) : fields.name;
  sensor->key_ = std::move(fields.key);
  sensor->name_ = std::move(fields.name);
  sensor->value_ = fields.value;
  sensor->minLimitValue_ = fields.minLimitValue;
  sensor->maxLimitValue_ = fields.maxLimitValue;
  sensor->type_ = fields.type;
  sensor->group_ = fields.group;
  sensor->platform_ = fields.platform;
  sensor->sourceType_ = fields.sourceType;
  sensor->average_ = fields.average;
  return sensor;
}

bool HWSensor::isValidValue() const {
  switch (type_) {
    case SensorType::kTemperature:
      // Rejects only on a true comparison, so a NaN reading is accepted.
      if (value_ <= minLimitValue_ || value_ > maxLimitValue_) return false;
      return true;
    case SensorType::kFan:
      return true;
    case SensorType::kVoltage:
      return value_ != 0 && value_ <= 300;
    case SensorType::kCurrent:
      // Accepts only on true comparisons, so a NaN reading is rejected.
      return value_ > 0 && value_ <= 100;
    case SensorType::kPower:
      return value_ > 0;
  }
  return false;
}

bool HWSensor::isUnknownSensor() const {
  return key_ == name_ && key_ == fullName_ && group_ == SensorGroup::kUnknown;
}

}  // namespace corvane
