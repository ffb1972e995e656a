// The hardware monitors of the computer the program runs on, as its own kernel reports them
// (temperatures, fans, voltages, currents and power of the chips Linux drives), apart from the
// SMC of the Mac being shown. A simulated machine has none of its own.
#pragma once

#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// What an input measures, in the order the product files its categories.
enum class HostSensorKind { kTemperature, kFan, kVoltage, kCurrent, kPower };

// One input of one chip, read once.
struct HostSensorReading {
  std::string chip;     // the chip as sensor configurations name it ("coretemp-isa-0000")
  std::string feature;  // the input on its chip ("temp1"); chip and feature together are unique
  std::string label;    // the configured label, else the driver's, else the feature
  HostSensorKind kind = HostSensorKind::kTemperature;
  // °C, rpm, V, A or W, after the configuration's scaling; NaN when the input cannot be read.
  double value = std::numeric_limits<double>::quiet_NaN();
  std::optional<double> minimum;  // the chip's lower limit for the input, when it has one
  std::optional<double> maximum;  // its upper limit (a temperature's critical one without a maximum)
};

// The host's hardware monitors. Thread-safe; every call reads the inputs afresh.
class HostSensors {
 public:
  virtual ~HostSensors() = default;

  // Makes the service for `platform`: nothing of its own when simulated, else the host's.
  static std::shared_ptr<HostSensors> create(const Platform& platform);

  // Every input the configuration does not ignore, chip by chip in the system's order.
  // `configuration` is a sensor configuration file used instead of the user's own (the system
  // file and its drop-in folder); empty for the user's. A host with no monitor chips gives true
  // and nothing; false, with the reason in `error`, when the configuration cannot be read or
  // parsed, or the system offers no such monitors at all (not Linux).
  virtual bool readings(std::vector<HostSensorReading>& out, std::string& error,
                        const std::filesystem::path& configuration = {}) const = 0;
};

}  // namespace corvane::platform
