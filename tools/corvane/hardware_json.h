// The processor and graphics descriptions as `corvane cpu` and `corvane info` print them, keyed
// by the descriptions' own property names.
#pragma once

#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/sysinfo/cpu_info.h"
#include "corvane/sysinfo/gpu_info.h"

namespace corvane::cli {

// "cpuInfo": counts and sizes the machine does not give are null rather than made-up numbers.
nlohmann::ordered_json cpuInfoJson(const HWCPUInfo& info);

// "gpuInfos": one object per graphics processor; null when they could not be listed.
nlohmann::ordered_json gpuInfosJson(const std::optional<std::vector<HWGPUInfo>>& gpus);

}  // namespace corvane::cli
