#include "corvane/sysinfo/battery_info.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "corvane/platform/io_registry.h"
#include "corvane/platform/platform.h"
#include "corvane/sysinfo/cpu_info.h"

namespace corvane {

int64_t HWBatteryInfo::health() const {
  // Done in floating point so that a zero design capacity gives no health rather than a fault.
  // A ratio beyond a 32-bit integer (an infinite one included) truncates to no health, as it
  // always has.
  const double percent = std::floor(static_cast<double>(maxCapacity) * 100.0 / static_cast<double>(designedCapacity));
  if (!(percent >= 1.0 && percent <= 2147483647.0)) return 0;
  return std::min<int64_t>(static_cast<int64_t>(percent), 100);
}

namespace battery {
namespace {

// The registry's numbers are kept as 32-bit values, as the overview always read them.
int64_t narrowed(const std::optional<int64_t>& value) {
  return value ? static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(*value))) : 0;
}

}  // namespace

HWBatteryInfo batteryInfoFrom(const platform::SmartBattery& battery, uint64_t cpuPlatform) {
  HWBatteryInfo info;
  info.cycleCount = narrowed(battery.cycleCount);
  info.maxCapacity = narrowed(cpuPlatform == cpu_platform::kIntel ? battery.maxCapacity : battery.appleRawMaxCapacity);
  info.designedCapacity = narrowed(battery.designCapacity);
  return info;
}

HWBatteryInfo getBatteryInfo(uint64_t cpuPlatform) {
  return batteryInfoFrom(platform::current().service<platform::IORegistry>().smartBattery(), cpuPlatform);
}

}  // namespace battery
}  // namespace corvane
