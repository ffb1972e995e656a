// Where the computer draws its power from: the mains adapter, a battery, both, or nothing the
// system reports (a desktop Mac lists no power source).
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// The two values of a power source's state that the system names.
inline constexpr const char* kACPower = "AC Power";
inline constexpr const char* kBatteryPower = "Battery Power";

// One power source as the system describes it.
struct PowerSourceDescription {
  std::string powerSourceState;  // kACPower, kBatteryPower, or another text the system gives
  bool isCharging = false;       // false when the system does not say
  bool operator==(const PowerSourceDescription&) const = default;
};

// The power sources of one machine. Thread-safe; every call asks the system afresh.
class PowerSources {
 public:
  virtual ~PowerSources() = default;

  // Makes the service for `platform`: from the recorded machine when simulated, else the host's
  // (the power-source interface on a Mac, /sys/class/power_supply on Linux).
  static std::shared_ptr<PowerSources> create(const Platform& platform);

  // The sources in the system's order; empty when there are none or the system cannot be asked.
  virtual std::vector<PowerSourceDescription> sources() const = 0;
};

}  // namespace corvane::platform
