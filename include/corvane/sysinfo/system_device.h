// The process-wide description of the machine, built lazily piece by piece.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "corvane/sysinfo/battery_info.h"
#include "corvane/sysinfo/cpu_info.h"
#include "corvane/sysinfo/device_model.h"
#include "corvane/sysinfo/disk_info.h"
#include "corvane/sysinfo/gpu_info.h"
#include "corvane/sysinfo/memory_info.h"

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

  // Installs where the locale of the uptime text comes from (the settings store does, through
  // settings::installHooks). The default answers "" (ICU's default locale).
  static void setLocaleCodeProvider(std::function<std::string()> provider);

  // The host's name, fixed when the description is made.
  const std::string& hostName() const { return hostName_; }
  // When the machine started, fixed when the description is made; nullopt when unknown.
  const std::optional<std::chrono::system_clock::time_point>& bootDate() const { return bootDate_; }
  // How long the machine has been up, in words in the settings' locale (see
  // dates::durationText), measured to the dispatch clock's now; nullopt without a boot date,
  // "--" when the span cannot be put in words.
  std::optional<std::string> getUptimeValue() const;

  // The model, gathered on first access.
  const HWDeviceModelInfo& modelInfo();
  // The operating system, gathered on first access.
  const HWOSInfo& osInfo();

  // The processor, gathered on first access.
  const HWCPUInfo& cpuInfo();

  // The graphics processors for this processor's platform, gathered on first access; nullopt
  // when the registry search failed.
  const std::optional<std::vector<HWGPUInfo>>& gpuInfos();

  // The installed memory, gathered on first access.
  const HWMemoryInfo& memoryInfo();
  // The start-up disk; nullopt while none could be described, and then asked again on the
  // next access (a copy, as a later access may fill it).
  std::optional<HWDiskInfo> diskInfo();
  // The battery (zeros without one), gathered on first access for cpuInfo's platform.
  const HWBatteryInfo& batteryInfo();

 private:
  HWSystemDevice();

  std::string hostName_;
  std::optional<std::chrono::system_clock::time_point> bootDate_;
  std::once_flag modelOnce_;
  HWDeviceModelInfo modelInfo_;
  std::once_flag osOnce_;
  HWOSInfo osInfo_;

  std::once_flag cpuOnce_;
  HWCPUInfo cpuInfo_;
  std::once_flag gpuOnce_;
  std::optional<std::vector<HWGPUInfo>> gpuInfos_;

  std::once_flag memoryOnce_;
  HWMemoryInfo memoryInfo_;
  std::mutex diskLock_;
  std::optional<HWDiskInfo> diskInfo_;
  std::once_flag batteryOnce_;
  HWBatteryInfo batteryInfo_;
};

namespace device {

// The boot time the kernel values give ("kern.boottime": the Mac's 16-byte seconds and
// microseconds, or a recorded whole number of seconds). A simulated machine that did not record
// one takes the host's, as it runs on the host. Logs and answers nullopt when none is known.
std::optional<std::chrono::system_clock::time_point> getBootDate();

// `bootDate` to `now` as getUptimeValue words it, in `localeCode`.
std::optional<std::string> uptimeText(const std::optional<std::chrono::system_clock::time_point>& bootDate,
                                      std::chrono::system_clock::time_point now, const std::string& localeCode);

}  // namespace device
}  // namespace corvane
