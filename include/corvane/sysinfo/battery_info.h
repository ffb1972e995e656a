// The battery's wear, as the machine overview shows it.
#pragma once

#include <cstdint>

namespace corvane {

namespace platform {
struct SmartBattery;
}

// A copyable value; not synchronised. A machine without a battery has all zeros.
struct HWBatteryInfo {
  int64_t cycleCount = 0;
  int64_t maxCapacity = 0;       // the full charge as the battery reports it now
  int64_t designedCapacity = 0;  // the full charge it was made for

  // maxCapacity as a whole percentage of designedCapacity, 0 to 100: 0 without a design
  // capacity, 100 for a battery above it.
  int64_t health() const;
};

namespace battery {

// The record for the registry's battery on CPU platform value `cpuPlatform`: Intel Macs report
// the full charge as "MaxCapacity", the others as "AppleRawMaxCapacity". Each value is kept as
// a 32-bit number, absent ones as 0.
HWBatteryInfo batteryInfoFrom(const platform::SmartBattery& battery, uint64_t cpuPlatform);

// The battery of the current machine for `cpuPlatform`.
HWBatteryInfo getBatteryInfo(uint64_t cpuPlatform);

}  // namespace battery
}  // namespace corvane
