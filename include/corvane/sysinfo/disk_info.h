// The start-up disk, as the machine overview shows it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

namespace platform {
struct StartupDiskDescription;
}

// A copyable value; not synchronised.
struct HWDiskInfo {
  std::string name;   // the medium's name; empty when it has none
  std::string model;  // the device model, trimmed; empty when none
  uint64_t size = 0;  // the medium's size in bytes

  // The model when known, else the name, else "Unknown".
  std::string displayName() const;
};

namespace disk {

// The record for a described medium; nullopt for a removable one, which is not kept as the
// machine's disk.
std::optional<HWDiskInfo> diskInfoFrom(const platform::StartupDiskDescription& description);

// The start-up disk of the current machine; nullopt (logged) when no root volume is found, and
// nullopt when the medium cannot be described or is removable.
std::optional<HWDiskInfo> getDiskInfo();

}  // namespace disk
}  // namespace corvane
