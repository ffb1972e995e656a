// Sensor values as the interface shows them: the user's temperature unit and fan scale, a unit
// beside each number, and the status texts of a stored sensor.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "corvane/sensors/hw_sensor.h"

namespace corvane {

// The two display choices the formatting follows.
struct UnitPreferences {
  bool tempUnitCelsius = true;  // false: Fahrenheit
  uint64_t fanValueType = 0;    // 1: fan speeds as a percentage; anything else: rpm
};

// The settings store owns these choices and sits above this layer, so it installs a provider
// (settings::installHooks). Until then the defaults apply: Celsius and rpm. Thread-safe.
void setUnitPreferencesProvider(std::function<UnitPreferences()> provider);
UnitPreferences currentUnitPreferences();

// Conversions and number formats by sensor type. Stateless; reads the unit preferences on every
// call. A type outside the enumeration formats as a plain number with two decimals and no unit.
class HWValueConverter {
 public:
  // Celsius to the user's unit.
  static double convertedTemp(double celsius);
  // The number alone: whole degrees, whole rpm (or percent × 100 truncated), else 2 decimals.
  static std::string stringFromValue(double value, SensorType categoryType);
  // "°F"/"°", "rpm"/"%", "V", "A", "W"; nothing for an unknown type.
  static std::optional<std::string> unitStringFromCategoryType(SensorType categoryType, bool shortForm);
  // Number and unit with no blank ("62°", "1800rpm", "12.25V"); "-" for a negative value.
  static std::string fullStringFromValue(double value, SensorType categoryType, bool shortForm);
};

// What the formatter needs of a stored sensor; the stored sensor entity implements it.
class FormattableSensor {
 public:
  virtual ~FormattableSensor() = default;
  virtual SensorType categoryType() const = 0;  // the sensor type of its category
  virtual double convertedValue() const = 0;   // the value in the user's unit
  virtual double minValue() const = 0;         // lower limit (fans: safe minimum speed)
  virtual double maxValue() const = 0;         // upper limit (fans: safe maximum speed)
  virtual int64_t statusEnum() const = 0;      // 1 ... 14, see statusDisplayFromSensor
  virtual bool isCPUProximitySensor() const = 0;
};

class HWSensorFormatter {
 public:
  static std::optional<std::string> unitStringFromSensor(const FormattableSensor& sensor);
  static std::string stringValueFromSensor(const FormattableSensor& sensor);
  static std::string fullStringValueFromSensor(const FormattableSensor& sensor);
  static std::string tidyStringValueFromSensor(const FormattableSensor& sensor);
  // The localised status text, or "--" for a status outside 1 ... 14.
  static std::string statusDisplayFromSensor(const FormattableSensor& sensor);
  // The threshold sentence for temperature and fan statuses, in English; nothing otherwise.
  static std::optional<std::string> statusExplanationFromSensor(const FormattableSensor& sensor);
};

}  // namespace corvane
