// The power monitor: on demand, whether the machine runs on the mains while charging, on the
// mains without charging, or on its battery. Fan conditions that ask for a power state use it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "corvane/monitors/base_monitor.h"
#include "corvane/platform/power_sources.h"

namespace corvane {

// Power-source state codes; fan conditions store the same numbers.
enum class HWPowerSourceState : std::uint64_t {
  kUnknown = 0,         // no power source listed, or a state other than the two below
  kACCharging = 1,      // "AC Power" and charging
  kBattery = 2,         // "Battery Power"
  kACNotCharging = 3,   // "AC Power" and not charging (a full battery)
};

// The state of the first source only, as the system lists them (empty: unknown). A source on
// battery power counts as such even when it claims to be charging.
std::uint64_t powerSourceStateOf(const std::vector<platform::PowerSourceDescription>& sources);

// Owns no reader and no timer, posts nothing: every question asks the platform afresh.
// Thread-safe.
class HWPowerMonitor : public HWBaseMonitor {
 public:
  // The process's monitor, made once.
  static const std::shared_ptr<HWPowerMonitor>& shared();

  // The current state code (HWPowerSourceState), read from the installed platform's power sources.
  std::uint64_t powerSourceState() const;
  // Kept for key-value compatibility only: what is stored here is never read back.
  void setPowerSourceState(std::uint64_t value) { storedState_ = value; }

 private:
  std::uint64_t storedState_ = 0;
};

}  // namespace corvane
