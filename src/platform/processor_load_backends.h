// The backends of ProcessorLoad.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/processor_load.h"

namespace corvane::platform {

// The host's counters (defined in the folder of this operating system).
std::shared_ptr<ProcessorLoad> nativeProcessorLoad();

namespace sim {

// The cores a recorded "ioreg" member lists under "cpus" ([{"name": "cpu0", "cpu-id": 0,
// "cluster-type": "E"}, ...]), in its order; an entry without a name or a whole id is skipped.
// Nothing when the member lists no "cpus".
std::optional<std::vector<ProcessorCore>> coresFromIoreg(const nlohmann::json& ioreg);

}  // namespace sim
}  // namespace corvane::platform
