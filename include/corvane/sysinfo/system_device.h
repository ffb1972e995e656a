// The process-wide description of the machine, built lazily piece by piece.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "corvane/sysinfo/cpu_info.h"
#include "corvane/sysinfo/gpu_info.h"

namespace corvane {

// Each piece is gathered from the installed platform on first access and then kept for the life
// of the object. Thread-safe: concurrent first accesses gather once.
class HWSystemDevice {
 public:
  // The process's description, made on first use.
  static std::shared_ptr<HWSystemDevice> device();

  // Test-only: drops the process's description, so that the next device() describes the
  // platform a test has just installed. Holders of the old object keep it.
  static void reset();

  // The processor, gathered on first access.
  const HWCPUInfo& cpuInfo();

  // The graphics processors for this processor's platform, gathered on first access; nullopt
  // when the registry search failed.
  const std::optional<std::vector<HWGPUInfo>>& gpuInfos();

 private:
  HWSystemDevice() = default;

  std::once_flag cpuOnce_;
  HWCPUInfo cpuInfo_;
  std::once_flag gpuOnce_;
  std::optional<std::vector<HWGPUInfo>> gpuInfos_;
};

}  // namespace corvane
