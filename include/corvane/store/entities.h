// The five stored entities with the display values computed from their stored attributes.
//
// Attribute names are the column names of the store file. Relations are held as the related
// object; to-many relations are read from the store through the object's context on every call.
// Objects are used on their context's queue only.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/sensors/hw_sensor.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/store/core_data_stack.h"

namespace corvane {

class HWSensorCategoryEntity;
class HWGraphPointEntity;
class HWFanSetEntity;

// The display switches and the manual fan set that the entities read on every call. The sensor
// data store installs the provider; until then: unknown and HID sensors hidden, computed ones
// shown, no manual fan set.
struct HWEntitySettings {
  bool showUnknownSensors = false;
  bool showHIDSensors = false;
  bool showComputedSensors = true;
  std::optional<std::string> manualFanSetId{};
};
void setEntitySettingsProvider(std::function<HWEntitySettings()> provider);
HWEntitySettings currentEntitySettings();

// -1 in recordedMaxValue and recordedMinValue means nothing recorded. A new sensor starts with
// -1 as its maximum (any reading raises it) and with the largest double as its minimum, so the
// first reading lowers it; display code treats both as "nothing recorded".
inline constexpr double kNothingRecorded = -1;
inline constexpr double kRecordedMinStart = std::numeric_limits<double>::max();

// Time ranges of graph points: last hour, last day, last week.
enum class HWTimeRange : std::int16_t { kHour = 0, kDay = 1, kWeek = 2 };

class HWSensorEntity final : public HWManagedObject, public FormattableSensor {
 public:
  HWEntity entity() const override { return HWEntity::kSensor; }

  bool average() const { return average_; }
  void setAverage(bool v) { willChange(); average_ = v; }
  const std::string& fullName() const { return fullName_; }
  void setFullName(std::string v) { willChange(); fullName_ = std::move(v); }
  std::int16_t group() const { return group_; }
  void setGroup(std::int16_t v) { willChange(); group_ = v; }
  bool isCustom() const { return isCustom_; }
  void setIsCustom(bool v) { willChange(); isCustom_ = v; }
  const std::string& key() const { return key_; }
  void setKey(std::string v) { willChange(); key_ = std::move(v); }
  double maxValue() const override { return maxValue_; }
  void setMaxValue(double v) { willChange(); maxValue_ = v; }
  double minValue() const override { return minValue_; }
  void setMinValue(double v) { willChange(); minValue_ = v; }
  const std::string& name() const { return name_; }
  void setName(std::string v) { willChange(); name_ = std::move(v); }
  std::int16_t platform() const { return platform_; }
  void setPlatform(std::int16_t v) { willChange(); platform_ = v; }
  double recordedMaxValue() const { return recordedMaxValue_; }
  void setRecordedMaxValue(double v) { willChange(); recordedMaxValue_ = v; }
  double recordedMinValue() const { return recordedMinValue_; }
  void setRecordedMinValue(double v) { willChange(); recordedMinValue_ = v; }
  std::int16_t sourceType() const { return sourceType_; }
  void setSourceType(std::int16_t v) { willChange(); sourceType_ = v; }
  double value() const { return value_; }
  void setValue(double v) { willChange(); value_ = v; }

  // The category (null when the sensor is in none). Setting one appends the sensor at the end of
  // that category's sensors.
  std::shared_ptr<HWSensorCategoryEntity> category() const;
  void setCategory(const std::shared_ptr<HWSensorCategoryEntity>& category);
  // The sensor's graph points of every range in the order they were added (from the file).
  std::vector<std::shared_ptr<HWGraphPointEntity>> graphPoints() const;
  // The points of one range, order kept.
  std::vector<std::shared_ptr<HWGraphPointEntity>> graphPoints(HWTimeRange range) const;
  std::vector<std::shared_ptr<HWGraphPointEntity>> hourGraphPoints() const { return graphPoints(HWTimeRange::kHour); }
  std::vector<std::shared_ptr<HWGraphPointEntity>> dayGraphPoints() const { return graphPoints(HWTimeRange::kDay); }
  std::vector<std::shared_ptr<HWGraphPointEntity>> weekGraphPoints() const { return graphPoints(HWTimeRange::kWeek); }
  // The number of saved points of one range (counted in the file).
  std::int64_t graphPointCount(HWTimeRange range) const;

  // The category's type (-1 without a category).
  std::int64_t categoryTypeNumber() const;
  // "TC0P" or "AverageCPU".
  bool isCPUProximitySensor() const override;
  // key == name == fullName and group 0: no catalogue entry named the sensor.
  bool isUnknownSensor() const;
  std::string sensorDescription() const;
  int64_t statusEnum() const override;
  bool isNormalCondition() const;
  SensorType categoryType() const override;
  double convertedValue() const override;
  double convertedMinValue() const;
  double convertedMaxValue() const;
  double graphMinValue() const;
  double graphMaxValue() const;
  // The largest / smallest pointY of all saved points, computed in the file; the recorded
  // extreme when there are none (or the result is -1).
  double finalRecordedMaxValue() const;
  double finalRecordedMinValue() const;
  // A new sensor record with the stored key, names, value, limits, category type and kinds.
  std::shared_ptr<HWSensor> toSensor() const;
  // Copies a freshly read record in: names, group, value, average, source, platform and limits;
  // a fan's stored limits only ever widen (a positive minimum not above the new one and a
  // positive maximum not below the new one are kept).
  void updateFromSensor(const HWSensor& sensor, bool isFan);

 private:
  friend struct store_detail::Access;
  bool average_ = false;
  std::string fullName_;
  std::int16_t group_ = 0;
  bool isCustom_ = false;
  std::string key_;
  double maxValue_ = 0;
  double minValue_ = 0;
  std::string name_;
  std::int16_t platform_ = 0;
  double recordedMaxValue_ = kNothingRecorded;
  double recordedMinValue_ = kRecordedMinStart;
  std::int16_t sourceType_ = 0;
  double value_ = 0;
  // The relation: the object when known, else the row id from the file (0: none).
  mutable std::shared_ptr<HWSensorCategoryEntity> category_;
  std::int64_t categoryID_ = 0;
  std::int64_t categoryOrder_ = -1;  // -1: append at the end when saved
};

class HWSensorCategoryEntity final : public HWManagedObject {
 public:
  HWEntity entity() const override { return HWEntity::kCategory; }
  const std::string& name() const { return name_; }
  void setName(std::string v) { willChange(); name_ = std::move(v); }
  std::int16_t type() const { return type_; }
  void setType(std::int16_t v) { willChange(); type_ = v; }

  // The sensors in their order (the context's in-memory view over the file).
  std::vector<std::shared_ptr<HWSensorEntity>> sensors() const;
  // Makes `sensors` the category's sensors in this order; sensors that were in it and are not
  // in the list leave it (they keep everything else).
  void setSensors(const std::vector<std::shared_ptr<HWSensorEntity>>& sensors);
  // The localised category name for types 0 to 4, the stored name otherwise.
  std::string localizedName() const;
  // The sensors that the display switches let through, order kept.
  std::vector<std::shared_ptr<HWSensorEntity>> filterSensors() const;

 private:
  friend struct store_detail::Access;
  std::string name_;
  std::int16_t type_ = 0;
};

class HWFanSetEntity final : public HWManagedObject {
 public:
  HWEntity entity() const override { return HWEntity::kFanSet; }
  // Seconds since 1970.
  double created() const { return created_; }
  void setCreated(double v) { willChange(); created_ = v; }
  const std::string& identifier() const { return identifier_; }
  void setIdentifier(std::string v) { willChange(); identifier_ = std::move(v); }
  const std::string& name() const { return name_; }
  void setName(std::string v) { willChange(); name_ = std::move(v); }
  // The keyed archive of the fan-key-to-rpm dictionary.
  const std::vector<std::uint8_t>& value() const { return value_; }
  void setValue(std::vector<std::uint8_t> v) { willChange(); value_ = std::move(v); }
  // `value` decoded (a dictionary root only); an empty object when it is not one.
  nlohmann::json valueDict() const;
  // Encodes `dict` into `value` at once.
  void setValueDict(const nlohmann::json& dict);
  // Whether this is the fan set chosen as the manual one.
  bool isManualFanSet() const;

 private:
  friend struct store_detail::Access;
  double created_ = 0;
  std::string identifier_;
  std::string name_;
  std::vector<std::uint8_t> value_;
};

class HWFanConditionEntity final : public HWManagedObject {
 public:
  HWEntity entity() const override { return HWEntity::kFanCondition; }
  bool active() const { return active_; }
  void setActive(bool v) { willChange(); active_ = v; }
  std::int16_t batteryState() const { return batteryState_; }
  void setBatteryState(std::int16_t v) { willChange(); batteryState_ = v; }
  double created() const { return created_; }
  void setCreated(double v) { willChange(); created_ = v; }
  bool externalDisplayConnected() const { return externalDisplayConnected_; }
  void setExternalDisplayConnected(bool v) { willChange(); externalDisplayConnected_ = v; }
  const std::string& sensorKey() const { return sensorKey_; }
  void setSensorKey(std::string v) { willChange(); sensorKey_ = std::move(v); }
  double threshold() const { return threshold_; }
  void setThreshold(double v) { willChange(); threshold_ = v; }

  std::shared_ptr<HWFanSetEntity> fanSet() const;
  void setFanSet(const std::shared_ptr<HWFanSetEntity>& fanSet);
  // The sensor named by sensorKey, looked up in this object's context on every call.
  std::shared_ptr<HWSensorEntity> sensor() const;
  // "Fan set: …\nSensor: …\nThreshold: …\nBattery State: …\nExternal Display: …".
  std::string description() const;

 private:
  friend struct store_detail::Access;
  bool active_ = false;
  std::int16_t batteryState_ = 0;
  double created_ = 0;
  bool externalDisplayConnected_ = false;
  std::string sensorKey_;
  double threshold_ = 0;
  mutable std::shared_ptr<HWFanSetEntity> fanSet_;
  std::int64_t fanSetID_ = 0;
};

class HWGraphPointEntity final : public HWManagedObject {
 public:
  HWEntity entity() const override { return HWEntity::kGraphPoint; }
  double pointX() const { return pointX_; }
  void setPointX(double v) { willChange(); pointX_ = v; }
  double pointY() const { return pointY_; }
  void setPointY(double v) { willChange(); pointY_ = v; }
  std::int16_t timeRange() const { return timeRange_; }
  void setTimeRange(std::int16_t v) { willChange(); timeRange_ = v; }

  std::shared_ptr<HWSensorEntity> sensor() const;
  // Attaches the point at the end of `sensor`'s points.
  void setSensor(const std::shared_ptr<HWSensorEntity>& sensor);
  // pointX in the graph's date-and-time format.
  std::string title() const;
  // Temperature in the user's unit; a fan in percent mode as a share of its maximum.
  double convertedPointY() const;
  std::string valueString() const;

 private:
  friend struct store_detail::Access;
  double pointX_ = 0;
  double pointY_ = 0;
  std::int16_t timeRange_ = 0;
  mutable std::shared_ptr<HWSensorEntity> sensor_;
  std::int64_t sensorID_ = 0;
};

}  // namespace corvane
