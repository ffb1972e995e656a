// The backends of PowerSources.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/power_sources.h"

namespace corvane::platform {

// The host's power sources (defined in the folder of this operating system).
std::shared_ptr<PowerSources> nativePowerSources();

namespace sim {

// The sources a recorded machine has. `recorded` is the profile's "powerSources" array, each
// entry an object with "Power Source State" (string) and "Is Charging" (bool, default false);
// entries that are not objects are skipped. With no array (null), a laptop (a model beginning
// "MacBook") has one battery, plugged in and full, and any other Mac no power source.
std::vector<PowerSourceDescription> powerSourcesOfMachine(const nlohmann::json& recorded, std::string_view model);

// A service answering `sources`.
std::shared_ptr<PowerSources> fixedPowerSources(std::vector<PowerSourceDescription> sources);

}  // namespace sim
}  // namespace corvane::platform
