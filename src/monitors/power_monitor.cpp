#include "corvane/monitors/power_monitor.h"

#include "corvane/platform/platform.h"

namespace corvane {

std::uint64_t powerSourceStateOf(const std::vector<platform::PowerSourceDescription>& sources) {
  if (sources.empty()) return static_cast<std::uint64_t>(HWPowerSourceState::kUnknown);
  // Only the first source counts: a Mac lists its internal battery first.
  const auto& first = sources.front();
  if (first.powerSourceState == platform::kACPower) {
    return static_cast<std::uint64_t>(first.isCharging ? HWPowerSourceState::kACCharging
                                                       : HWPowerSourceState::kACNotCharging);
  }
  if (first.powerSourceState == platform::kBatteryPower) return static_cast<std::uint64_t>(HWPowerSourceState::kBattery);
  return static_cast<std::uint64_t>(HWPowerSourceState::kUnknown);
}

const std::shared_ptr<HWPowerMonitor>& HWPowerMonitor::shared() {
  static const std::shared_ptr<HWPowerMonitor> monitor = std::make_shared<HWPowerMonitor>();
  return monitor;
}

std::uint64_t HWPowerMonitor::powerSourceState() const {
  return powerSourceStateOf(platform::current().service<platform::PowerSources>().sources());
}

}  // namespace corvane
