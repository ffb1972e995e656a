// Kernel values by name, as the Mac's sysctlbyname gives them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::platform {

class Platform;

// Answers kernel values by their Mac names ("hw.model", "hw.memsize", ...). Values come back as
// the raw bytes the Mac's kernel would hand out: strings with their terminating NUL, integers in
// host byte order and 4 or 8 bytes wide. Thread-safe.
class KernelValues {
 public:
  virtual ~KernelValues() = default;

  // Makes the service for `platform`: from the recorded machine's "sysctl" map when the
  // platform is simulated, else from the host (sysctl on a Mac, /proc and /sys on Linux).
  static std::shared_ptr<KernelValues> create(const Platform& platform);

  // The host's own values, whichever platform is installed (a simulated machine still runs on
  // the host, and borrows what its recording lacks, such as the boot time).
  static std::shared_ptr<KernelValues> host();

  // The bytes of the value called `name`, or nothing when this machine has no such value.
  virtual std::optional<std::string> valueByName(std::string_view name) const = 0;
};

}  // namespace corvane::platform
