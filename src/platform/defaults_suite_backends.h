// The backends of DefaultsSuite and what they share.
#pragma once

#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "corvane/platform/defaults_suite.h"

namespace corvane::platform {

// The host's own suite (defined in the folder of this operating system).
std::shared_ptr<DefaultsSuite> nativeDefaultsSuite(const Platform& platform);

// Name of the SQLite suite's file in the app-group container. Not "*.sqlite": clearing the
// product's data removes every "sqlite" file of the container, and settings must survive that.
inline constexpr const char* kDefaultsFileName = "Preferences.db";

// True when `value` can live in a property list: no null anywhere, no binary, finite numbers,
// strings and keys in UTF-8.
bool isPropertyListValue(const nlohmann::json& value);

}  // namespace corvane::platform
