#include "corvane/sensors/value_formatter.h"

#include <cmath>
#include <mutex>

#include <fmt/format.h>

#include "corvane/util/strings.h"

namespace corvane {
namespace {

constexpr SensorType kTemperature = SensorType::kTemperature;
constexpr SensorType kFan = SensorType::kFan;

std::mutex g_providerLock;
std::function<UnitPreferences()> g_provider;  // guarded by g_providerLock


// Status texts are looked up by key in the strings tables.
constexpr const char* kStatusKeys[] = {
    "sensor-status-display-normal-temp",
    "sensor-status-display-high-temp",
    "sensor-status-display-very-high-temp",
    "sensor-status-display-zero-speed",
    "sensor-status-display-normal-speed",
    "sensor-status-display-high-speed",
    "sensor-status-display-very-high-speed",
    "sensor-status-display-ok",
    "sensor-status-display-skipped",
    "sensor-status-display-temperature-can-not-be-read",
    "sensor-status-display-failed-to-initialize",
    "sensor-status-display-temperature-below-allowed-minimum",
    "sensor-status-display-unstable-temperature",
    "sensor-status-display-error",
};

}  // namespace

void setUnitPreferencesProvider(std::function<UnitPreferences()> provider) {
  std::lock_guard lock(g_providerLock);
  g_provider = std::move(provider);
}

UnitPreferences currentUnitPreferences() {
  std::function<UnitPreferences()> provider;
  {
    std::lock_guard lock(g_providerLock);
    provider = g_provider;
  }
  return provider ? provider() : UnitPreferences{};
}

double HWValueConverter::convertedTemp(double celsius) {
  return currentUnitPreferences().tempUnitCelsius ? celsius : celsius * 9.0 / 5.0 + 32.0;
}

std::string HWValueConverter::stringFromValue(double value, SensorType categoryType) {
  if (categoryType == kFan) {
    if (currentUnitPreferences().fanValueType == 1) {
      // Truncated toward zero, not rounded: 0.456 shows as 45%. Out-of-range values saturate
      // rather than overflow.
      const double percent = std::trunc(value * 100.0);
      const long long whole = std::isfinite(percent) && std::fabs(percent) < 9.0e18 ? static_cast<long long>(percent) : 0;
      return std::to_string(whole);
    }
    return fmt::format("{:.0f}", value);
  }
  if (categoryType == kTemperature) return fmt::format("{:.0f}", value);
  return fmt::format("{:.2f}", value);
}

std::optional<std::string> HWValueConverter::unitStringFromCategoryType(SensorType categoryType, bool shortForm) {
  switch (categoryType) {
    case kTemperature:
      if (shortForm) return "°";
      return currentUnitPreferences().tempUnitCelsius ? "°" : "°F";
    case kFan:
      if (currentUnitPreferences().fanValueType == 1) return "%";
      return shortForm ? "" : "rpm";
    case SensorType::kVoltage: return "V";
    case SensorType::kCurrent: return "A";
    case SensorType::kPower: return "W";
  }
  return std::nullopt;
}

std::string HWValueConverter::fullStringFromValue(double value, SensorType categoryType, bool shortForm) {
  if (value < 0) return "-";
  return stringFromValue(value, categoryType) + unitStringFromCategoryType(categoryType, shortForm).value_or("");
}

std::optional<std::string> HWSensorFormatter::unitStringFromSensor(const FormattableSensor& sensor) {
  return HWValueConverter::unitStringFromCategoryType(sensor.categoryType(), false);
}

std::string HWSensorFormatter::stringValueFromSensor(const FormattableSensor& sensor) {
  return HWValueConverter::stringFromValue(sensor.convertedValue(), sensor.categoryType());
}

std::string HWSensorFormatter::fullStringValueFromSensor(const FormattableSensor& sensor) {
  return HWValueConverter::fullStringFromValue(sensor.convertedValue(), sensor.categoryType(), false);
}

std::string HWSensorFormatter::tidyStringValueFromSensor(const FormattableSensor& sensor) {
  return HWValueConverter::fullStringFromValue(sensor.convertedValue(), sensor.categoryType(), true);
}

std::string HWSensorFormatter::statusDisplayFromSensor(const FormattableSensor& sensor) {
  const int64_t status = sensor.statusEnum();
  if (status < 1 || status > 14) return "--";
  return strings::localizedStringForKey(kStatusKeys[status - 1]);
}

std::optional<std::string> HWSensorFormatter::statusExplanationFromSensor(const FormattableSensor& sensor) {
  const int64_t status = sensor.statusEnum();
  if (sensor.categoryType() == kTemperature) {
    const double high = sensor.isCPUProximitySensor() ? 70.0 : 90.0;
    const auto threshold = [](double celsius) {
      return HWValueConverter::fullStringFromValue(HWValueConverter::convertedTemp(celsius), kTemperature, false);
    };
    switch (status) {
      case 1: return "Sensor Temperature < " + threshold(high);
      case 2: return "Sensor Temperature >= " + threshold(high);
      case 3: return "Sensor Temperature >= " + threshold(100.0);
      default: return std::nullopt;
    }
  }
  if (sensor.categoryType() == kFan) {
    const double range = std::fabs(sensor.maxValue() - sensor.minValue());
    const auto mark = [&](double percent) {
      return HWValueConverter::fullStringFromValue(sensor.minValue() + range * percent / 100.0, kFan, false);
    };
    switch (status) {
      case 4: return std::string("Sensor Fan Speed = 0");
      case 5: return "Sensor Fan Speed < " + mark(75.0);
      case 6: return "Sensor Fan Speed >= " + mark(75.0);
      case 7: return "Sensor Fan Speed >= " + mark(90.0);
      default: return std::nullopt;
    }
  }
  return std::nullopt;
}

}  // namespace corvane
