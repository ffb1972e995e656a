// The backends of IORegistry.
#pragma once

#include <memory>

#include <nlohmann/json.hpp>

#include "corvane/platform/io_registry.h"

namespace corvane::platform {

// The host's I/O registry (defined in the folder of this operating system).
std::shared_ptr<IORegistry> nativeIORegistry();

namespace sim {

// The devices of a recorded "ioreg" member: {"pci": [{"model": "AMD Radeon Pro 5500M"}, ...]}.
// A device's "model" must be a string to count as present; a missing or malformed "pci" list
// means a machine recorded without PCI devices (an empty list).
std::vector<PciDevice> pciDevicesFromIoreg(const nlohmann::json& ioreg);

// The battery of a recorded "ioreg" member: {"battery": {"CycleCount": 312, "MaxCapacity": 4200,
// "AppleRawMaxCapacity": 4200, "DesignCapacity": 5000}}. A property counts as present only as a
// whole number; a machine recorded without "battery" has none (all absent).
SmartBattery smartBatteryFromIoreg(const nlohmann::json& ioreg);

// An I/O registry answering from a recorded "ioreg" member (null or an object).
std::shared_ptr<IORegistry> ioRegistryFromIoreg(const nlohmann::json& ioreg);

}  // namespace sim
}  // namespace corvane::platform
