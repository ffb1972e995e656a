// The backends of StartupDisk.
#pragma once

#include <memory>
#include <optional>

#include <nlohmann/json.hpp>

#include "corvane/platform/startup_disk.h"

namespace corvane::platform {

// The host's start-up disk (defined in the folder of this operating system).
std::shared_ptr<StartupDisk> nativeStartupDisk();

namespace sim {

// The disk of a recorded "startupDisk" member: {"mediaName": "APPLE SSD AP0512M Media",
// "deviceModel": "APPLE SSD AP0512M", "mediaSize": 500277790720, "removable": false}. Names
// count only as strings, the size only as a whole number (else 0). A machine recorded without
// the member (null, or not an object) has no disk description.
std::optional<StartupDiskDescription> startupDiskOfMachine(const nlohmann::json& recorded);

}  // namespace sim
}  // namespace corvane::platform
