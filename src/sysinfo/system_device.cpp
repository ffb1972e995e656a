#include "corvane/sysinfo/system_device.h"

namespace corvane {
namespace {

std::mutex& deviceLock() {
  static std::mutex lock;
  return lock;
}

std::shared_ptr<HWSystemDevice>& deviceSlot() {
  static std::shared_ptr<HWSystemDevice> slot;
  return slot;
}

}  // namespace

std::shared_ptr<HWSystemDevice> HWSystemDevice::device() {
  std::lock_guard guard(deviceLock());
  auto& slot = deviceSlot();
  if (!slot) slot = std::shared_ptr<HWSystemDevice>(new HWSystemDevice());
  return slot;
}

void HWSystemDevice::reset() {
  std::lock_guard guard(deviceLock());
  deviceSlot().reset();
}

const HWCPUInfo& HWSystemDevice::cpuInfo() {
  std::call_once(cpuOnce_, [this] { cpuInfo_ = cpu::getCPUInfo(); });
  return cpuInfo_;
}

const std::optional<std::vector<HWGPUInfo>>& HWSystemDevice::gpuInfos() {
  std::call_once(gpuOnce_, [this] { gpuInfos_ = gpu::getGPUInfo(cpuInfo().platform()); });
  return gpuInfos_;
}

}  // namespace corvane
