// Facts the Mac's I/O registry holds about the hardware: the PCI devices and the battery.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// One device of class "IOPCIDevice".
struct PciDevice {
  // The raw bytes of the device's "model" property (on a Mac, ASCII text usually ending in a
  // NUL); nullopt when the device has no "model" given as data.
  std::optional<std::string> model;
};

// The properties of the first "AppleSmartBattery" service that the machine description reads,
// each nullopt when absent. A machine without a battery has no such service, so all are absent.
struct SmartBattery {
  std::optional<int64_t> cycleCount;           // "CycleCount"
  std::optional<int64_t> maxCapacity;          // "MaxCapacity" (the full charge as Intel Macs report it)
  std::optional<int64_t> appleRawMaxCapacity;  // "AppleRawMaxCapacity" (the same on Apple silicon)
  std::optional<int64_t> designCapacity;       // "DesignCapacity"
  bool operator==(const SmartBattery&) const = default;
};

// The I/O registry of one machine. Thread-safe; every call searches afresh.
class IORegistry {
 public:
  virtual ~IORegistry() = default;

  // Makes the service for `platform`: from the recorded machine's "ioreg" member when the
  // platform is simulated, else from the host (IOKit on a Mac, sysfs and pci.ids on Linux).
  static std::shared_ptr<IORegistry> create(const Platform& platform);

  // The PCI devices in registry order; nullopt when the search itself failed.
  virtual std::optional<std::vector<PciDevice>> pciDevices() const = 0;

  // The battery's properties (on Linux, the first system battery under /sys/class/power_supply).
  virtual SmartBattery smartBattery() const = 0;
};

}  // namespace corvane::platform
