// The disk the machine started from: the medium under the root volume "/".
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace corvane::platform {

class Platform;

// What the system tells about the start-up medium.
struct StartupDiskDescription {
  std::optional<std::string> mediaName;    // nullopt when the system names none
  std::optional<std::string> deviceModel;  // as reported, untrimmed; nullopt when none
  uint64_t mediaSize = 0;                  // bytes
  bool removable = false;
  bool operator==(const StartupDiskDescription&) const = default;
};

// The start-up disk of one machine. Thread-safe; every call asks the system afresh.
class StartupDisk {
 public:
  virtual ~StartupDisk() = default;

  // Makes the service for `platform`: from the recorded machine's "startupDisk" member when
  // simulated, else the host's (Disk Arbitration on a Mac, the mount table, statvfs and
  // /sys/dev/block on Linux).
  static std::shared_ptr<StartupDisk> create(const Platform& platform);

  // The medium under "/"; nullopt when no root volume is found or it cannot be described.
  virtual std::optional<StartupDiskDescription> describe() const = 0;
};

}  // namespace corvane::platform
