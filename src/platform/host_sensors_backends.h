// The backends of HostSensors.
#pragma once

#include <memory>
#include <string>

#include "corvane/platform/host_sensors.h"

namespace corvane::platform {

// The host's monitors (defined in the folder of this operating system).
std::shared_ptr<HostSensors> nativeHostSensors();

namespace sim {

// A machine with no monitors of its own: every reading succeeds with nothing.
std::shared_ptr<HostSensors> noHostSensors();

// A system without such monitors: every reading fails with `reason`.
std::shared_ptr<HostSensors> unsupportedHostSensors(std::string reason);

}  // namespace sim
}  // namespace corvane::platform
