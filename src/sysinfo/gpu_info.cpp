#include "corvane/sysinfo/gpu_info.h"

#include <array>
#include <string_view>

#include "corvane/platform/io_registry.h"
#include "corvane/platform/platform.h"
#include "corvane/sysinfo/cpu_info.h"
#include "corvane/util/dictionaries.h"
#include "corvane/util/system_utils.h"

#include <nlohmann/json.hpp>

namespace corvane::gpu {
namespace {

constexpr std::array<std::string_view, 3> kDedicatedVendors = {"NVIDIA", "AMD", "Radeon"};

// A registry "model" as text: the data usually carries a C string's terminating NUL.
std::string modelText(std::string bytes) {
  while (!bytes.empty() && bytes.back() == '\0') bytes.pop_back();
  return bytes;
}

}  // namespace

std::optional<std::string> shortModelNameFrom(const std::string& modelName) {
  for (auto vendor : kDedicatedVendors) {
    if (modelName.find(vendor) != std::string::npos) return std::string(vendor);
  }
  return std::nullopt;
}

bool isDedicatedFrom(const std::string& modelName) {
  return shortModelNameFrom(modelName).has_value();
}

std::optional<std::vector<HWGPUInfo>> gpuInfosFromProfiler(std::string_view profilerJson) {
  const auto root = nlohmann::json::parse(profilerJson, nullptr, false);
  if (root.is_discarded() || !root.is_object()) return std::nullopt;
  const auto displays = root.find("SPDisplaysDataType");
  if (displays == root.end() || !displays->is_array()) return std::nullopt;
  const auto text = [](const nlohmann::json& item, const char* key) {
    const auto found = item.find(key);
    return found != item.end() && found->is_string() ? found->get<std::string>() : std::string();
  };
  std::vector<HWGPUInfo> gpus;
  for (const auto& item : *displays) {
    if (!item.is_object()) continue;
    HWGPUInfo gpu;
    gpu.setModelName(text(item, "sppci_model"));
    gpu.setShortModelName(gpu.modelName());
    gpu.setVendor(text(item, "spdisplays_vendor"));
    // The profiler writes the core count as text ("38"); a number is taken too.
    if (const auto cores = item.find("sppci_cores"); cores != item.end()) {
      gpu.setCores(static_cast<std::int64_t>(dictionaries::integerValue(*cores)));
    }
    auto vram = text(item, "spdisplays_vram_shared");
    gpu.setVram(item.contains("spdisplays_vram_shared") ? vram : text(item, "spdisplays_vram"));
    gpus.push_back(std::move(gpu));
  }
  return gpus;
}

std::optional<std::vector<HWGPUInfo>> getGPUInfo(std::uint64_t platform) {
  if (platform != cpu_platform::kIntel && platform != cpu_platform::kUnknown) {
    // Apple silicon's graphics processor is part of the chip, not a PCI device; the system
    // profiler describes it. A simulated machine has no profiler to run.
    if (platform::current().simulated()) return std::nullopt;
    const auto output =
        HWSystemUtils::readDataByPath("/usr/sbin/system_profiler", std::vector<std::string>{"SPDisplaysDataType", "-json"},
                                      nullptr);
    if (!output) return std::nullopt;
    return gpuInfosFromProfiler(*output);
  }
  const auto devices = platform::current().service<platform::IORegistry>().pciDevices();
  if (!devices) return std::nullopt;
  std::vector<HWGPUInfo> gpus;
  for (const auto& device : *devices) {
    if (!device.model) continue;
    auto name = modelText(*device.model);
    if (name.empty()) continue;
    HWGPUInfo gpu;
    gpu.setShortModelName(shortModelNameFrom(name));
    gpu.setIsDedicated(isDedicatedFrom(name));
    gpu.setModelName(std::move(name));
    gpus.push_back(std::move(gpu));
  }
  return gpus;
}

}  // namespace corvane::gpu
