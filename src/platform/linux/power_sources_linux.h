// Power sources on Linux: the system batteries under /sys/class/power_supply, each on mains
// power while an adapter is online. A desktop lists no battery and so no power source, as a Mac
// does. The sysfs root is a parameter so tests use fixture trees.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "corvane/platform/io_registry.h"
#include "corvane/platform/power_sources.h"

namespace corvane::platform::power_supply {

// The files of one entry of /sys/class/power_supply that matter here, trimmed; "" when absent.
struct Supply {
  std::string type;    // "Battery", "Mains", "USB", ...
  std::string scope;   // "Device" for the battery of a mouse or a keyboard
  std::string online;  // "1" while an adapter delivers power
  std::string status;  // a battery's "Charging", "Discharging", "Full", "Not charging"
  // What the machine description reads of a battery. Batteries report either charge (µAh) or
  // energy (µWh), never the Mac's mAh, and some report neither.
  std::string cycleCount;        // "cycle_count"
  std::string chargeFull;        // "charge_full"
  std::string chargeFullDesign;  // "charge_full_design"
  std::string energyFull;        // "energy_full"
  std::string energyFullDesign;  // "energy_full_design"
};

// One source per system battery, in the given order. Its state is AC power while a supply that
// is not a battery is online; when no adapter reports being online or offline, the battery's
// own status decides (only "Discharging" means battery power).
std::vector<PowerSourceDescription> powerSourcesOf(const std::vector<Supply>& supplies);

// The first system battery of `supplies` as the Mac's battery service would describe it:
// capacities in thousandths of the kernel's unit (mAh or mWh), the full and design capacities
// always taken in the same unit so that their ratio holds. Values that are missing, not whole
// numbers or negative are absent; no system battery gives all absent.
SmartBattery smartBatteryOf(const std::vector<Supply>& supplies);

// The supplies under `sysRoot`, in entry-name order.
std::vector<Supply> scanSupplies(const std::filesystem::path& sysRoot);

std::shared_ptr<PowerSources> makePowerSources(std::filesystem::path sysRoot);

}  // namespace corvane::platform::power_supply
