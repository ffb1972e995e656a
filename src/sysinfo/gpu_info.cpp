#include "corvane/sysinfo/gpu_info.h"

#include <array>
#include <string_view>

#include "corvane/platform/io_registry.h"
#include "corvane/platform/platform.h"
#include "corvane/sysinfo/cpu_info.h"

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

std::optional<std::vector<HWGPUInfo>> getGPUInfo(std::uint64_t platform) {
  if (platform != cpu_platform::kIntel && platform != cpu_platform::kUnknown) {
    // Apple silicon lists its graphics processors in the system profiler, not as PCI devices;
    // reading that is not done in this build.
    return std::vector<HWGPUInfo>();
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
