#include "corvane/sysinfo/system_device.h"

#include <unistd.h>

#include <climits>
#include <cstring>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"
#include "corvane/util/dates.h"
#include "corvane/util/system_utils.h"
#include "platform/log.h"
#include "util/hook.h"

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


Hook<std::string>& localeCode() {
  static Hook<std::string> hook;
  return hook;
}

std::string currentLocaleCode() { return localeCode().get(); }

std::string currentHostName() {
  auto name = HWSystemUtils::sysctlNSStringForKey("kern.hostname");
  if (!name.empty()) return name;
  char buffer[HOST_NAME_MAX + 1] = {};
  if (::gethostname(buffer, sizeof buffer - 1) != 0) return {};
  return buffer;
}

// A boot time in the byte forms the kernel values use.
std::optional<std::chrono::system_clock::time_point> bootDateFromBytes(const std::string& bytes) {
  std::int64_t seconds = 0;
  std::int32_t micros = 0;
  if (bytes.size() == 16 || bytes.size() == 8) {
    std::memcpy(&seconds, bytes.data(), sizeof seconds);
    if (bytes.size() == 16) std::memcpy(&micros, bytes.data() + 8, sizeof micros);
  } else if (bytes.size() == 4) {
    std::int32_t narrow = 0;
    std::memcpy(&narrow, bytes.data(), sizeof narrow);
    seconds = narrow;
  } else {
    return std::nullopt;
  }
  return std::chrono::system_clock::time_point(std::chrono::seconds(seconds) + std::chrono::microseconds(micros));
}

}  // namespace

HWSystemDevice::HWSystemDevice() : hostName_(currentHostName()), bootDate_(device::getBootDate()) {}

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

void HWSystemDevice::setLocaleCodeProvider(std::function<std::string()> provider) {
  localeCode().set(std::move(provider));
}

std::optional<std::string> HWSystemDevice::getUptimeValue() const {
  const auto now = std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(dispatch::now())));
  return device::uptimeText(bootDate_, now, currentLocaleCode());
}

const HWDeviceModelInfo& HWSystemDevice::modelInfo() {
  std::call_once(modelOnce_, [this] { modelInfo_ = device::getModelInfo(); });
  return modelInfo_;
}

const HWOSInfo& HWSystemDevice::osInfo() {
  std::call_once(osOnce_, [this] { osInfo_ = device::getOSInfo(); });
  return osInfo_;
}

const HWMemoryInfo& HWSystemDevice::memoryInfo() {
  std::call_once(memoryOnce_, [this] { memoryInfo_ = memory::getMemoryInfo(); });
  return memoryInfo_;
}

std::optional<HWDiskInfo> HWSystemDevice::diskInfo() {
  std::lock_guard guard(diskLock_);
  if (!diskInfo_) diskInfo_ = disk::getDiskInfo();
  return diskInfo_;
}

const HWBatteryInfo& HWSystemDevice::batteryInfo() {
  // The processor is gathered first, outside this flag, as it decides which property is read.
  const auto platform = cpuInfo().platform();
  std::call_once(batteryOnce_, [this, platform] { batteryInfo_ = battery::getBatteryInfo(platform); });
  return batteryInfo_;
}

const HWCPUInfo& HWSystemDevice::cpuInfo() {
  std::call_once(cpuOnce_, [this] { cpuInfo_ = cpu::getCPUInfo(); });
  return cpuInfo_;
}

const std::optional<std::vector<HWGPUInfo>>& HWSystemDevice::gpuInfos() {
  std::call_once(gpuOnce_, [this] { gpuInfos_ = gpu::getGPUInfo(cpuInfo().platform()); });
  return gpuInfos_;
}

namespace device {

std::optional<std::chrono::system_clock::time_point> getBootDate() {
  const auto& current = platform::current();
  auto bytes = current.service<platform::KernelValues>().valueByName("kern.boottime");
  if (!bytes && current.simulated()) bytes = platform::KernelValues::host()->valueByName("kern.boottime");
  auto date = bytes ? bootDateFromBytes(*bytes) : std::nullopt;
  if (!date) platform::log("Error getting boot time: no readable kern.boottime");
  return date;
}

std::optional<std::string> uptimeText(const std::optional<std::chrono::system_clock::time_point>& bootDate,
                                      std::chrono::system_clock::time_point now, const std::string& localeCode) {
  if (!bootDate) return std::nullopt;
  auto text = dates::durationText(*bootDate, now, localeCode);
  if (text.empty()) return std::string("--");
  return text;
}

}  // namespace device
}  // namespace corvane
