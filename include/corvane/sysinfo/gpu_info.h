// The machine's graphics processors, as the I/O registry or the system profiler names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {

// One graphics processor. A copyable value; not synchronised.
class HWGPUInfo {
 public:
  // Full model name (e.g. "AMD Radeon Pro 5500M").
  const std::string& modelName() const { return modelName_; }
  void setModelName(std::string v) { modelName_ = std::move(v); }
  // A vendor word ("NVIDIA", "AMD", "Radeon") on the registry path; nullopt when none applies.
  const std::optional<std::string>& shortModelName() const { return shortModelName_; }
  void setShortModelName(std::optional<std::string> v) { shortModelName_ = std::move(v); }
  // Whether this is a discrete graphics processor (known on the registry path only).
  bool isDedicated() const { return isDedicated_; }
  void setIsDedicated(bool v) { isDedicated_ = v; }
  // Vendor text from the hardware profile; empty when not known.
  const std::string& vendor() const { return vendor_; }
  void setVendor(std::string v) { vendor_ = std::move(v); }
  // Memory text from the hardware profile; empty when not known.
  const std::string& vram() const { return vram_; }
  void setVram(std::string v) { vram_ = std::move(v); }
  // Graphics core count from the hardware profile; 0 when not known.
  std::int64_t cores() const { return cores_; }
  void setCores(std::int64_t v) { cores_ = v; }

 private:
  std::string modelName_;
  std::optional<std::string> shortModelName_;
  bool isDedicated_ = false;
  std::string vendor_;
  std::string vram_;
  std::int64_t cores_ = 0;
};

namespace gpu {

// The first of "NVIDIA", "AMD", "Radeon" that `modelName` contains, else nullopt.
std::optional<std::string> shortModelNameFrom(const std::string& modelName);

// True when `modelName` names a discrete vendor ("NVIDIA", "AMD" or "Radeon").
bool isDedicatedFrom(const std::string& modelName);

// The graphics processors the system profiler's "SPDisplaysDataType -json" output lists: model
// (also the short name), vendor, core count and memory (the shared memory when given, else the
// dedicated one). Nothing when the text is not JSON or its "SPDisplaysDataType" is not an
// array; an element that is not an object is skipped, a field of the wrong kind left empty.
std::optional<std::vector<HWGPUInfo>> gpuInfosFromProfiler(std::string_view profilerJson);

// The graphics processors of the current machine for CPU platform value `platform`. On Intel
// (1) and unrecognised chips (0) they are the PCI devices with a "model" in the I/O registry;
// nullopt when the registry search fails. On a recognised Apple-silicon platform they are what
// the system profiler lists; nullopt when it cannot be run (always on a simulated machine,
// which records no profiler output).
std::optional<std::vector<HWGPUInfo>> getGPUInfo(std::uint64_t platform);

}  // namespace gpu
}  // namespace corvane
