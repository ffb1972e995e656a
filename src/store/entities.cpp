#include "corvane/store/entities.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include <fmt/format.h>

#include "corvane/util/data.h"
#include "corvane/util/dates.h"
#include "corvane/util/strings.h"
#include "store/store_access.h"
#include "util/hook.h"

namespace corvane {

using store_detail::Access;

namespace {

Hook<HWEntitySettings>& entitySettings() {
  static Hook<HWEntitySettings> hook;
  return hook;
}

bool percentMode() { return currentUnitPreferences().fanValueType == 1; }

constexpr std::int64_t kFanType = 1;

}  // namespace

void setEntitySettingsProvider(std::function<HWEntitySettings()> provider) {
  entitySettings().set(std::move(provider));
}

HWEntitySettings currentEntitySettings() { return entitySettings().get(); }

// ---- Sensor ----

std::shared_ptr<HWSensorCategoryEntity> HWSensorEntity::category() const {
  if (category_ && !category_->isDeleted()) return category_;
  auto context = managedObjectContext();
  if (!context || categoryID_ == 0) return nullptr;
  category_ = std::static_pointer_cast<HWSensorCategoryEntity>(
      Access::objectWithID(*context, HWEntity::kCategory, categoryID_));
  return category_;
}

void HWSensorEntity::setCategory(const std::shared_ptr<HWSensorCategoryEntity>& category) {
  willChange();
  category_ = category;
  categoryID_ = category ? category->objectID() : 0;
  categoryOrder_ = -1;
}

namespace {

namespace ids = store_detail::point_ids;

// A sensor's points of one range: the range's time-ordered run and the sensor's other points.
constexpr const char* kPointsOfRange =
    R"(("id" BETWEEN ? AND ? OR "id" BETWEEN ? AND ?) AND "timeRange" = ? AND "sensor" = ?)";

void bindPointsOfRange(SQLite::Statement& s, std::int64_t sensor, int range) {
  const int slot = ids::slotOf(range);
  s.bind(1, static_cast<int64_t>(ids::first(sensor, slot)));
  s.bind(2, static_cast<int64_t>(ids::last(sensor, slot)));
  s.bind(3, static_cast<int64_t>(ids::first(sensor, ids::kOtherSlot)));
  s.bind(4, static_cast<int64_t>(ids::last(sensor, ids::kOtherSlot)));
  s.bind(5, range);
  s.bind(6, static_cast<int64_t>(sensor));
}

// Every point of a sensor: its run of row ids.
constexpr const char* kPointsOfSensor = R"("id" BETWEEN ? AND ? AND "sensor" = ?)";

void bindPointsOfSensor(SQLite::Statement& s, std::int64_t sensor) {
  s.bind(1, static_cast<int64_t>(ids::first(sensor, 0)));
  s.bind(2, static_cast<int64_t>(ids::last(sensor, ids::kOtherSlot)));
  s.bind(3, static_cast<int64_t>(sensor));
}

}  // namespace

std::vector<std::shared_ptr<HWGraphPointEntity>> HWSensorEntity::graphPoints() const {
  auto context = managedObjectContext();
  if (!context || objectID() == 0) return {};
  const std::int64_t id = objectID();
  return Access::fetch<HWGraphPointEntity>(
      *context, HWEntity::kGraphPoint, kPointsOfSensor, [id](SQLite::Statement& s) { bindPointsOfSensor(s, id); },
      "\"sensorOrder\"", [this](const HWGraphPointEntity& p) { return p.sensor().get() == this; });
}

std::vector<std::shared_ptr<HWGraphPointEntity>> HWSensorEntity::graphPoints(HWTimeRange range) const {
  auto context = managedObjectContext();
  if (!context || objectID() == 0) return {};
  const std::int64_t id = objectID();
  const int number = static_cast<int>(range);
  return Access::fetch<HWGraphPointEntity>(
      *context, HWEntity::kGraphPoint, kPointsOfRange,
      [id, number](SQLite::Statement& s) { bindPointsOfRange(s, id, number); }, "\"sensorOrder\"",
      [this, number](const HWGraphPointEntity& p) { return p.sensor().get() == this && p.timeRange() == number; });
}

std::int64_t HWSensorEntity::graphPointCount(HWTimeRange range) const {
  if (objectID() == 0) return 0;
  const std::int64_t id = objectID();
  auto context = managedObjectContext();
  return static_cast<std::int64_t>(Access::scalar(
      context.get(), std::string(R"(SELECT COUNT(*) FROM "GraphPoint" WHERE )") + kPointsOfRange,
      [id, range](SQLite::Statement& s) { bindPointsOfRange(s, id, static_cast<int>(range)); }, 0));
}

std::int64_t HWSensorEntity::categoryTypeNumber() const {
  auto owner = category();
  return owner ? owner->type() : -1;
}

bool HWSensorEntity::isCPUProximitySensor() const { return key_ == "TC0P" || key_ == "AverageCPU"; }

bool HWSensorEntity::isUnknownSensor() const { return key_ == name_ && key_ == fullName_ && group_ == 0; }

std::string HWSensorEntity::sensorDescription() const {
  const std::int64_t type = categoryTypeNumber();
  const std::string base = type == kFanType ? name_ : key_;
  std::string text = strings::localizedStringForKey(base);
  if (text == base) {
    static constexpr const char* kFormats[] = {"Temp-%@", "Fan-%@", "Voltage-%@", "Current-%@", "Power-%@"};
    if (type >= 0 && type <= 4) {
      text = strings::localizedStringForKey(kFormats[type]);
      const auto at = text.find("%@");
      if (at != std::string::npos) text.replace(at, 2, fullName_);
    } else {
      text = fullName_;
    }
  }
  return type == kFanType ? text : text + " (" + key_ + ")";
}

int64_t HWSensorEntity::statusEnum() const {
  switch (categoryTypeNumber()) {
    case 0:
      if (value_ > -124) {
        if (value_ >= 100) return 3;
        if (value_ >= (isCPUProximitySensor() ? 70 : 90)) return 2;
        return 1;
      }
      if (value_ == -128) return 10;
      if (value_ == -127) return 9;
      if (value_ == -126) return 11;
      if (value_ == -125) return 12;
      if (value_ == -124) return 13;
      return 14;
    case 1: {
      const double span = std::fabs(maxValue_ - minValue_);
      if (value_ == 0) return 4;
      if (value_ >= minValue_ + span * 90 / 100) return 7;
      if (value_ >= minValue_ + span * 75 / 100) return 6;
      return 5;
    }
    default:
      // A custom sensor reading exactly 0 is "nothing"; a catalogue sensor reading 0 is fine.
      if (isCustom_) return value_ > 0 ? 8 : 0;
      return value_ >= 0 ? 8 : 14;
  }
}

bool HWSensorEntity::isNormalCondition() const {
  switch (categoryTypeNumber()) {
    case 0: return statusEnum() == 1;
    case 1: return statusEnum() == 5;
    default: return statusEnum() == 8;
  }
}

SensorType HWSensorEntity::categoryType() const {
  const std::int64_t type = categoryTypeNumber();
  // A sensor outside every category formats as a plain number (a type past the enumeration).
  return type < 0 ? static_cast<SensorType>(99) : static_cast<SensorType>(type);
}

double HWSensorEntity::convertedValue() const {
  switch (categoryTypeNumber()) {
    case 0: return HWValueConverter::convertedTemp(value_);
    case 1:
      if (!percentMode()) return value_;
      return std::clamp((value_ - minValue_) / (maxValue_ - minValue_), 0.0, 1.0);
    default: return value_;
  }
}

double HWSensorEntity::convertedMinValue() const {
  const std::int64_t type = categoryTypeNumber();
  if (type == 0) return HWValueConverter::convertedTemp(minValue_);
  if (type == kFanType && percentMode()) return 0.0;
  return minValue_;
}

double HWSensorEntity::convertedMaxValue() const {
  const std::int64_t type = categoryTypeNumber();
  if (type == 0) return HWValueConverter::convertedTemp(maxValue_);
  if (type == kFanType && percentMode()) return 1.0;
  return maxValue_;
}

double HWSensorEntity::graphMinValue() const {
  const std::int64_t type = categoryTypeNumber();
  if (type == kFanType && percentMode()) return 0.0;
  double result = minValue_;
  if (recordedMinValue_ != kNothingRecorded) result = std::min(minValue_, recordedMinValue_);
  return type == 0 ? HWValueConverter::convertedTemp(result) : result;
}

double HWSensorEntity::graphMaxValue() const {
  const std::int64_t type = categoryTypeNumber();
  if (type == kFanType && percentMode()) return 1.0;
  const double result = std::max(recordedMaxValue_, maxValue_);
  return type == 0 ? HWValueConverter::convertedTemp(result) : result;
}

double HWSensorEntity::finalRecordedMaxValue() const {
  const std::int64_t id = objectID();
  auto context = managedObjectContext();
  const double found =
      id == 0 ? kNothingRecorded
              : Access::scalar(context.get(), std::string(R"(SELECT MAX("pointY") FROM "GraphPoint" WHERE )") + kPointsOfSensor,
                               [id](SQLite::Statement& s) { bindPointsOfSensor(s, id); }, kNothingRecorded);
  return found == kNothingRecorded ? recordedMaxValue_ : found;
}

double HWSensorEntity::finalRecordedMinValue() const {
  const std::int64_t id = objectID();
  auto context = managedObjectContext();
  const double found =
      id == 0 ? kNothingRecorded
              : Access::scalar(context.get(), std::string(R"(SELECT MIN("pointY") FROM "GraphPoint" WHERE )") + kPointsOfSensor,
                               [id](SQLite::Statement& s) { bindPointsOfSensor(s, id); }, kNothingRecorded);
  return found == kNothingRecorded ? recordedMinValue_ : found;
}

std::shared_ptr<HWSensor> HWSensorEntity::toSensor() const {
  const std::int64_t type = categoryTypeNumber();
  return HWSensor::instanceWithKey({
      .key = key_,
      .name = name_,
      .fullName = fullName_,
      .value = value_,
      .minLimitValue = minValue_,
      .maxLimitValue = maxValue_,
      .type = type < 0 ? SensorType::kTemperature : static_cast<SensorType>(type),
      .group = sensorGroupFromNumber(static_cast<std::uint64_t>(std::max<std::int16_t>(group_, 0)))
                   .value_or(SensorGroup::kUnknown),
      .platform = static_cast<std::uint64_t>(static_cast<std::uint16_t>(platform_)),
      .sourceType = sourceTypeFromNumber(static_cast<std::uint64_t>(std::max<std::int16_t>(sourceType_, 0)))
                        .value_or(SourceType::kSMC),
      .average = average_,
  });
}

void HWSensorEntity::updateFromSensor(const HWSensor& sensor, bool isFan) {
  willChange();
  name_ = sensor.name();
  fullName_ = sensor.fullName();
  group_ = static_cast<std::int16_t>(toNumber(sensor.group()));
  value_ = sensor.value();
  average_ = sensor.average();
  sourceType_ = static_cast<std::int16_t>(toNumber(sensor.sourceType()));
  platform_ = static_cast<std::int16_t>(sensor.platform());
  if (!isFan) {
    minValue_ = sensor.minLimitValue();
    maxValue_ = sensor.maxLimitValue();
    return;
  }
  // A fan's stored range only ever widens.
  if (!(minValue_ > 0 && minValue_ <= sensor.minLimitValue())) minValue_ = sensor.minLimitValue();
  if (!(maxValue_ > 0 && maxValue_ >= sensor.maxLimitValue())) maxValue_ = sensor.maxLimitValue();
}

// ---- Category ----

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorCategoryEntity::sensors() const {
  auto context = managedObjectContext();
  if (!context) return {};
  const std::int64_t id = objectID();
  auto list = Access::fetch<HWSensorEntity>(
      *context, HWEntity::kSensor, id == 0 ? "0" : "\"category\" = ?",
      [id](SQLite::Statement& s) {
        if (id != 0) s.bind(1, static_cast<int64_t>(id));
      },
      "\"categoryOrder\"", [this](const HWSensorEntity& s) { return s.category().get() == this; });
  // Unsaved members count by their in-memory order; members appended since the last save last.
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) {
    const auto order = [](const HWSensorEntity& s) {
      return Access::sensorOrder(s) < 0 ? std::numeric_limits<std::int64_t>::max() : Access::sensorOrder(s);
    };
    return order(*a) < order(*b);
  });
  return list;
}

void HWSensorCategoryEntity::setSensors(const std::vector<std::shared_ptr<HWSensorEntity>>& sensors) {
  auto self = std::static_pointer_cast<HWSensorCategoryEntity>(shared_from_this());
  for (const auto& member : this->sensors()) {
    if (std::find(sensors.begin(), sensors.end(), member) == sensors.end()) member->setCategory(nullptr);
  }
  std::int64_t order = 0;
  for (const auto& sensor : sensors) {
    if (!sensor) continue;
    if (sensor->category().get() != this || Access::sensorOrder(*sensor) != order) {
      sensor->setCategory(self);
      Access::sensorOrder(*sensor) = order;
    }
    ++order;
  }
}

std::string HWSensorCategoryEntity::localizedName() const {
  static constexpr const char* kKeys[] = {"category-temperature-name", "category-fan-name", "category-voltage-name",
                                          "category-current-name", "category-power-name"};
  if (type_ >= 0 && type_ <= 4) return strings::localizedStringForKey(kKeys[type_]);
  return name_;
}

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorCategoryEntity::filterSensors() const {
  const HWEntitySettings settings = currentEntitySettings();
  std::vector<std::shared_ptr<HWSensorEntity>> kept;
  for (const auto& sensor : sensors()) {
    bool keep = true;
    if (sensor->sourceType() == 2) {
      keep = settings.showComputedSensors;
    } else if (sensor->sourceType() == 1) {
      keep = settings.showHIDSensors;
    } else if (sensor->isUnknownSensor()) {
      keep = settings.showUnknownSensors;
    }
    if (keep) kept.push_back(sensor);
  }
  return kept;
}

// ---- FanSet ----

nlohmann::json HWFanSetEntity::valueDict() const {
  auto decoded = data::toObjectOfClasses(value_, data::kArchiveDictionary);
  return decoded && decoded->is_object() ? *decoded : nlohmann::json::object();
}

void HWFanSetEntity::setValueDict(const nlohmann::json& dict) { setValue(data::archivedDataWithObject(dict)); }

bool HWFanSetEntity::isManualFanSet() const {
  const auto manual = currentEntitySettings().manualFanSetId;
  return manual && *manual == identifier_;
}

// ---- FanCondition ----

std::shared_ptr<HWFanSetEntity> HWFanConditionEntity::fanSet() const {
  if (fanSet_ && !fanSet_->isDeleted()) return fanSet_;
  auto context = managedObjectContext();
  if (!context || fanSetID_ == 0) return nullptr;
  fanSet_ = std::static_pointer_cast<HWFanSetEntity>(Access::objectWithID(*context, HWEntity::kFanSet, fanSetID_));
  return fanSet_;
}

void HWFanConditionEntity::setFanSet(const std::shared_ptr<HWFanSetEntity>& fanSet) {
  willChange();
  fanSet_ = fanSet;
  fanSetID_ = fanSet ? fanSet->objectID() : 0;
}

std::shared_ptr<HWSensorEntity> HWFanConditionEntity::sensor() const {
  auto context = managedObjectContext();
  if (!context || sensorKey_.empty()) return nullptr;
  const std::string key = sensorKey_;
  auto found = Access::fetch<HWSensorEntity>(
      *context, HWEntity::kSensor, "\"key\" = ?", [key](SQLite::Statement& s) { s.bind(1, key); }, "\"id\"",
      [key](const HWSensorEntity& s) { return s.key() == key; });
  return found.empty() ? nullptr : found.front();
}

std::string HWFanConditionEntity::description() const {
  auto set = fanSet();
  return fmt::format("Fan set: {}\nSensor: {}\nThreshold: {}\nBattery State: {}\nExternal Display: {}",
                     set ? set->name() : "(null)", sensorKey_, static_cast<int>(threshold_), batteryState_,
                     externalDisplayConnected_ ? 1 : 0);
}

// ---- GraphPoint ----

std::shared_ptr<HWSensorEntity> HWGraphPointEntity::sensor() const {
  if (sensor_ && !sensor_->isDeleted()) return sensor_;
  auto context = managedObjectContext();
  if (!context || sensorID_ == 0) return nullptr;
  sensor_ = std::static_pointer_cast<HWSensorEntity>(Access::objectWithID(*context, HWEntity::kSensor, sensorID_));
  return sensor_;
}

void HWGraphPointEntity::setSensor(const std::shared_ptr<HWSensorEntity>& sensor) {
  willChange();
  sensor_ = sensor;
  sensorID_ = sensor ? sensor->objectID() : 0;
}

std::string HWGraphPointEntity::title() const {
  const auto when = std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(pointX_)));
  return dates::dateTimeFormatForGraph(when);
}

double HWGraphPointEntity::convertedPointY() const {
  auto owner = sensor();
  const std::int64_t type = owner ? owner->categoryTypeNumber() : -1;
  if (type == 0) return HWValueConverter::convertedTemp(pointY_);
  if (type == kFanType && percentMode()) return pointY_ / owner->maxValue();
  return pointY_;
}

std::string HWGraphPointEntity::valueString() const {
  auto owner = sensor();
  return HWValueConverter::fullStringFromValue(convertedPointY(), owner ? owner->categoryType()
                                                                        : static_cast<SensorType>(99), false);
}

}  // namespace corvane
