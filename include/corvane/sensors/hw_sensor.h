// The in-memory sensor record: one sensor's key, names, latest value, limits and kind.
//
// The SMC wrapper and the HID reader make raw records, the catalogue makes named templates, and
// the sensor reader merges the two and refreshes `value`. A record has identity semantics: it is
// held by std::shared_ptr and compared by address (there is deliberately no operator==). It is a
// plain mutable object with no locking; whoever shares one between threads orders the access.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace corvane {

// Sensor types; the type is also the category a sensor is filed under.
namespace sensor_type {
inline constexpr std::uint64_t kTemperature = 0;  // degrees Celsius
inline constexpr std::uint64_t kFan = 1;          // revolutions per minute
inline constexpr std::uint64_t kVoltage = 2;      // volts
inline constexpr std::uint64_t kCurrent = 3;      // amperes
inline constexpr std::uint64_t kPower = 4;        // watts
}  // namespace sensor_type

// Where a sensor's value comes from.
namespace source_type {
inline constexpr std::uint64_t kSMC = 0;       // an SMC key read through the SMC wrapper
inline constexpr std::uint64_t kHID = 1;       // an HID temperature service (Apple silicon)
inline constexpr std::uint64_t kComputed = 2;  // derived from other sensors by the reader
}  // namespace source_type

// Display groups; sensors sort by group ascending, with kUnknown last.
namespace sensor_group {
inline constexpr std::uint64_t kUnknown = 0;      // keys the catalogue does not name
inline constexpr std::uint64_t kCPU = 1;          // die, cores, package, proximity, CPU rails
inline constexpr std::uint64_t kGPU = 2;
inline constexpr std::uint64_t kMemory = 3;
inline constexpr std::uint64_t kMainboard = 4;    // mainboard and chipset
inline constexpr std::uint64_t kAirflow = 5;      // airflow and wireless
inline constexpr std::uint64_t kSSD = 6;          // solid-state drives
inline constexpr std::uint64_t kDriveBay = 7;     // drive bays and optical drive
inline constexpr std::uint64_t kBattery = 8;
inline constexpr std::uint64_t kPowerSupply = 9;  // power supply and power board
inline constexpr std::uint64_t kDisplay = 10;
inline constexpr std::uint64_t kFans = 11;
}  // namespace sensor_group

// The platform mask that matches every machine (all nine platform bits).
inline constexpr std::uint64_t kAllPlatforms = 511;

// The English name of a sensor type ("Temperature", "Fan", "Voltage", "Current", "Power"), which
// is also its category name; an empty view for any other value.
std::string_view sensorTypeName(std::uint64_t type);

class HWSensor {
 public:
  // A record with every field given.
  static std::shared_ptr<HWSensor> instanceWithKey(std::string key, std::string name,
                                                   std::string fullName, double value,
                                                   double minLimitValue, double maxLimitValue,
                                                   std::uint64_t type, std::uint64_t group,
                                                   std::uint64_t platform,
                                                   std::uint64_t sourceType, bool average);
  // An SMC template: fullName = name, value and limits 0, source SMC, not averaged.
  static std::shared_ptr<HWSensor> instanceWithKey(std::string key, std::string name,
                                                   std::uint64_t type, std::uint64_t group,
                                                   std::uint64_t platform);
  // An SMC template as above, with `average` given.
  static std::shared_ptr<HWSensor> instanceWithKey(std::string key, std::string name,
                                                   std::uint64_t type, std::uint64_t group,
                                                   std::uint64_t platform, bool average);
  // An HID template: fullName = name, value and limits 0, source HID.
  static std::shared_ptr<HWSensor> hidSensorWithKey(std::string key, std::string name,
                                                    std::uint64_t type, std::uint64_t group,
                                                    std::uint64_t platform, bool average);

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
  // A sensor_type value.
  std::uint64_t type() const { return type_; }
  void setType(std::uint64_t v) { type_ = v; }
  // A sensor_group value; 0 when no catalogue entry names the key.
  std::uint64_t group() const { return group_; }
  void setGroup(std::uint64_t v) { group_ = v; }
  // Bit mask of the platforms this meaning applies to; kAllPlatforms for every one.
  std::uint64_t platform() const { return platform_; }
  void setPlatform(std::uint64_t v) { platform_ = v; }
  // A source_type value.
  std::uint64_t sourceType() const { return sourceType_; }
  void setSourceType(std::uint64_t v) { sourceType_ = v; }
  // Whether the value feeds the computed CPU/GPU averages and maxima.
  bool average() const { return average_; }
  void setAverage(bool v) { average_ = v; }

  // Whether `value` is plausible for the type. A NaN passes the temperature test and fails the
  // current and power tests; the comparisons are shaped for exactly that.
  bool isValidValue() const;
  // True for a raw record no catalogue entry has named: key == name == fullName and group 0.
  bool isUnknownSensor() const;

 private:
  HWSensor() = default;

  std::string key_;
  std::string name_;
  std::string fullName_;
  double value_ = 0;
  double minLimitValue_ = 0;
  double maxLimitValue_ = 0;
  std::uint64_t type_ = 0;
  std::uint64_t group_ = 0;
  std::uint64_t platform_ = 0;
  std::uint64_t sourceType_ = 0;
  bool average_ = false;
};

}  // namespace corvane
