// The in-memory sensor record: one sensor's key, names, latest value, limits and kind.
//
// The SMC wrapper and the HID reader make raw records, the catalogue makes named templates, and
// the sensor reader merges the two and refreshes `value`. A record has identity semantics: it is
// held by std::shared_ptr and compared by address (there is deliberately no operator==). It is a
// plain mutable object with no locking; whoever shares one between threads orders the access.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// Sensor types; the type is also the category a sensor is filed under. The numbers are fixed:
// JSON output, settings and the store hold them.
enum class SensorType : std::uint64_t {
  kTemperature = 0,  // degrees Celsius
  kFan = 1,          // revolutions per minute
  kVoltage = 2,      // volts
  kCurrent = 3,      // amperes
  kPower = 4,        // watts
};

// Where a sensor's value comes from; numbers fixed as for SensorType.
enum class SourceType : std::uint64_t {
  kSMC = 0,       // an SMC key read through the SMC wrapper
  kHID = 1,       // an HID temperature service (Apple silicon)
  kComputed = 2,  // derived from other sensors by the reader
  kHost = 3,      // a hardware monitor of the computer running the program, not of the Mac
};

// Display groups; sensors sort by group ascending, with kUnknown last. Numbers fixed as above.
enum class SensorGroup : std::uint64_t {
  kUnknown = 0,      // keys the catalogue does not name
  kCPU = 1,          // die, cores, package, proximity, CPU rails
  kGPU = 2,
  kMemory = 3,
  kMainboard = 4,    // mainboard and chipset
  kAirflow = 5,      // airflow and wireless
  kSSD = 6,          // solid-state drives
  kDriveBay = 7,     // drive bays and optical drive
  kBattery = 8,
  kPowerSupply = 9,  // power supply and power board
  kDisplay = 10,
  kFans = 11,
};

// The fixed number of a type, source or group, as JSON, settings and the store write it.
constexpr std::uint64_t toNumber(SensorType type) { return static_cast<std::uint64_t>(type); }
constexpr std::uint64_t toNumber(SourceType source) { return static_cast<std::uint64_t>(source); }
constexpr std::uint64_t toNumber(SensorGroup group) { return static_cast<std::uint64_t>(group); }

// The value a stored number stands for; nullopt for a number that names none (read from a file,
// a setting or the store, so never trusted).
constexpr std::optional<SensorType> sensorTypeFromNumber(std::uint64_t number) {
  if (number > toNumber(SensorType::kPower)) return std::nullopt;
  return static_cast<SensorType>(number);
}
constexpr std::optional<SourceType> sourceTypeFromNumber(std::uint64_t number) {
  if (number > toNumber(SourceType::kHost)) return std::nullopt;
  return static_cast<SourceType>(number);
}
constexpr std::optional<SensorGroup> sensorGroupFromNumber(std::uint64_t number) {
  if (number > toNumber(SensorGroup::kFans)) return std::nullopt;
  return static_cast<SensorGroup>(number);
}

// The platform mask that matches every machine (all nine platform bits).
inline constexpr std::uint64_t kAllPlatforms = 511;

// The English name of a sensor type ("Temperature", "Fan", "Voltage", "Current", "Power"), which
// is also its category name; an empty view for a value outside the enumeration.
std::string_view sensorTypeName(SensorType type);

class HWSensor {
 public:
  // Everything a record is made from. Name the fields that differ from the defaults:
  //   HWSensor::instanceWithKey({.key = "TC0P", .name = "CPU Proximity", .group = SensorGroup::kCPU})
  // (Every field has an initializer, so g++ does not flag the ones left out.)
  struct Fields {
    std::string key{};                      // SMC key, HID product name, or host chip/input
    std::string name{};                     // short display name
    std::optional<std::string> fullName{};  // long display name; absent: the same as `name`
    double value = 0;
    double minLimitValue = 0;
    double maxLimitValue = 0;
    SensorType type = SensorType::kTemperature;
    SensorGroup group = SensorGroup::kUnknown;
    std::uint64_t platform = kAllPlatforms;  // bit mask of platforms the meaning applies to
    SourceType sourceType = SourceType::kSMC;
    bool average = false;  // feeds the computed CPU/GPU averages and maxima
  };

  // A new record made of `fields`.
  static std::shared_ptr<HWSensor> instanceWithKey(Fields fields);

  HWSensor(const HWSensor&) = delete;
  HWSensor& operator=(const HWSensor&) = delete;

  // SMC key (four characters) or HID product name.
  const std::string& key() const { return key_; }
  void setKey(std::string v) { key_ = std::move(v); }
  // Short display name.
  const std::string& name() const { return name_; }
  void setName(std::string v) { name_ = std::move(v); }
  // Long display name (the catalogue puts the full GPU model here).
  const std::string& fullName() const { return fullName_; }
  void setFullName(std::string v) { fullName_ = std::move(v); }
  // Latest reading in the type's base unit.
  double value() const { return value_; }
  void setValue(double v) { value_ = v; }
  // Lower plausibility limit (for fans, the minimum speed).
  double minLimitValue() const { return minLimitValue_; }
  void setMinLimitValue(double v) { minLimitValue_ = v; }
  // Upper plausibility limit (for fans, the safe maximum speed).
  double maxLimitValue() const { return maxLimitValue_; }
  void setMaxLimitValue(double v) { maxLimitValue_ = v; }
  // What the value measures, and so its unit and category.
  SensorType type() const { return type_; }
  void setType(SensorType v) { type_ = v; }
  // The display group; SensorGroup::kUnknown when no catalogue entry names the key.
  SensorGroup group() const { return group_; }
  void setGroup(SensorGroup v) { group_ = v; }
  // Bit mask of the platforms this meaning applies to; kAllPlatforms for every one.
  std::uint64_t platform() const { return platform_; }
  void setPlatform(std::uint64_t v) { platform_ = v; }
  // Where the value is read from.
  SourceType sourceType() const { return sourceType_; }
  void setSourceType(SourceType v) { sourceType_ = v; }
  // Whether the value feeds the computed CPU/GPU averages and maxima.
  bool average() const { return average_; }
  void setAverage(bool v) { average_ = v; }

  // Whether the latest refresh failed to read the hardware (the value then reads 0, which is no
  // reading at all), and how many refreshes of this record have failed so far. Set by the reader.
  bool readFailed() const { return readFailed_; }
  std::uint64_t readErrors() const { return readErrors_; }
  // Records the outcome of one refresh.
  void noteRead(bool succeeded) {
    readFailed_ = !succeeded;
    if (!succeeded) ++readErrors_;
  }

  // Whether `value` is plausible for the type (never for a type outside the enumeration). A NaN
  // passes the temperature test and fails the current and power tests; the comparisons are
  // shaped for exactly that.
  bool isValidValue() const;
  // True for a raw record no catalogue entry has named: key == name == fullName and group unknown.
  bool isUnknownSensor() const;

 private:
  HWSensor() = default;

  std::string key_;
  std::string name_;
  std::string fullName_;
  double value_ = 0;
  double minLimitValue_ = 0;
  double maxLimitValue_ = 0;
  SensorType type_ = SensorType::kTemperature;
  SensorGroup group_ = SensorGroup::kUnknown;
  std::uint64_t platform_ = 0;
  SourceType sourceType_ = SourceType::kSMC;
  bool average_ = false;
  bool readFailed_ = false;
  std::uint64_t readErrors_ = 0;
};

}  // namespace corvane
