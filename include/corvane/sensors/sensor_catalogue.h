// The catalogue that names SMC keys and HID sensors: fixed template records giving each known
// key its name, group, type, the platforms where that meaning holds, and whether it feeds the
// CPU/GPU averages. Pure functions; every call builds fresh records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/sensors/hw_sensor.h"
#include "corvane/sysinfo/gpu_info.h"

namespace corvane::catalogue {

// Platform masks the catalogue entries use (bits of the CPU platform value).
inline constexpr std::uint64_t kIntelOnly = 1;
inline constexpr std::uint64_t kM1Family = 30;
inline constexpr std::uint64_t kM2Only = 32;
inline constexpr std::uint64_t kAppleSilicon = 510;

// Number of SMC templates before filtering.
inline constexpr std::size_t kSMCTemplateCount = 201;

// The SMC templates in catalogue order (the order decides between duplicate keys), unfiltered
// and with "{GPU}" left in place. A "%" in a key stands for a number 0…63, in a name for a count.
std::vector<std::shared_ptr<HWSensor>> smcTemplates();

// The SMC templates that apply to a machine of CPU platform value `platform`: every bit of
// `platform` must be set in the entry's mask, so platform 0 keeps them all. "{GPU}" is replaced
// in names by `dedicatedGPUShortName` and in full names by `dedicatedGPUName` (absent = empty),
// and both are then tidied of stray blanks.
std::vector<std::shared_ptr<HWSensor>> getDefaultSMCSensors(
    std::uint64_t platform, const std::optional<std::string>& dedicatedGPUName,
    const std::optional<std::string>& dedicatedGPUShortName);

// The 11 HID temperature templates (source HID, every platform), not filtered.
std::vector<std::shared_ptr<HWSensor>> getDefaultHIDSensors();

// The model name of the machine's dedicated GPU: only with exactly two GPUs, the last one flagged
// dedicated, when its name is non-empty; else nullopt.
std::optional<std::string> dedicatedGPUName(const std::vector<HWGPUInfo>& gpus);

// As dedicatedGPUName, with the short model name.
std::optional<std::string> dedicatedGPUShortName(const std::vector<HWGPUInfo>& gpus);

// True for the key of the CPU proximity sensor, whose temperature counts as high sooner than
// other temperatures.
bool isCPUProximityKey(std::string_view key);

}  // namespace corvane::catalogue
