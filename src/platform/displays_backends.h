// The backends of Displays.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/displays.h"

namespace corvane::platform {

// The host's displays (defined in the folder of this operating system).
std::shared_ptr<Displays> nativeDisplays();

namespace sim {

// The displays a recorded machine has. `recorded` is the profile's "displays" array, each entry
// an object with "builtIn" (bool, default false) and optional "name" and "id" (number; default
// the 1-based position); entries that are not objects are skipped. With no array (null), a
// laptop (a model beginning "MacBook") has its built-in panel and any other Mac no display.
std::vector<Display> displaysOfMachine(const nlohmann::json& recorded, std::string_view model);

// A service answering `displays`.
std::shared_ptr<Displays> fixedDisplays(std::vector<Display> displays);

}  // namespace sim
}  // namespace corvane::platform
