#include "corvane/sysinfo/cpu_info.h"

#include <algorithm>
#include <cctype>

#include "corvane/platform/platform.h"
#include "corvane/platform/processor_load.h"
#include "corvane/util/strings.h"
#include "corvane/util/system_utils.h"

namespace corvane {

std::string HWCPUInfo::shortBrand() const { return strings::replace(brand_, "Apple ", ""); }

namespace cpu {
namespace {

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

std::string cleanedBrand(const std::string& rawBrand) {
  // The marks and filler words Intel puts around the model number carry nothing for display.
  // Fixed words, so no expression engine: the daemon reads the brand too and loads none.
  auto brand = strings::removedOccurrencesIgnoringCase(rawBrand, {"(TM)", "(R)", "CPU", "@"});
  brand = strings::trimWhitespace(brand);
  return brand.empty() ? "Unknown" : brand;
}

std::string getCPUBrand() {
  return cleanedBrand(HWSystemUtils::sysctlNSStringForKey("machdep.cpu.brand_string"));
}

std::uint64_t getCPUPlatformFromBrand(const std::string& brand) {
  std::string lower = brand;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  // The order matters: "m1 pro max" would be a Pro, and a later chip matches nothing.
  if (contains(lower, "intel")) return cpu_platform::kIntel;
  if (contains(lower, "m1")) {
    if (contains(lower, "pro")) return cpu_platform::kM1Pro;
    if (contains(lower, "max")) return cpu_platform::kM1Max;
    if (contains(lower, "ultra")) return cpu_platform::kM1Ultra;
    return cpu_platform::kM1;
  }
  if (contains(lower, "m2")) {
    if (contains(lower, "pro")) return cpu_platform::kM2Pro;
    if (contains(lower, "max")) return cpu_platform::kM2Max;
    if (contains(lower, "ultra")) return cpu_platform::kM2Ultra;
    return cpu_platform::kM2;
  }
  return cpu_platform::kUnknown;
}

bool hasHyperthreadingCores() {
  return HWSystemUtils::sysctlDoubleForKey("hw.physicalcpu") != HWSystemUtils::sysctlDoubleForKey("hw.logicalcpu");
}

std::optional<std::vector<HWCPUCore>> getCPUCoresInfo() {
  auto found = platform::ProcessorLoad::create(platform::current())->cores();
  if (!found) return std::nullopt;
  std::vector<HWCPUCore> cores;
  cores.reserve(found->size());
  for (auto& core : *found) cores.push_back({core.id, std::move(core.name), core.type});
  return cores;
}

std::string getCPUVendor() {
  auto vendor = HWSystemUtils::sysctlNSStringForKey("machdep.cpu.vendor");
  // Apple silicon reports no vendor and has always been labelled so.
  return vendor.empty() ? "GenuineIntel" : vendor;
}

std::uint64_t getCPUCount() {
  const double packages = HWSystemUtils::sysctlDoubleForKey("hw.packages");
  return packages >= 1 ? static_cast<std::uint64_t>(packages) : 1;
}

namespace {

// A count the kernel gives as 0 (or not at all) is not known rather than none.
std::uint64_t countOrUnknown(const char* name) {
  const double count = HWSystemUtils::sysctlDoubleForKey(name);
  return count > 0 ? static_cast<std::uint64_t>(count) : kUnknownCount;
}

// A missing value is taken as −1 before scaling, so that it reads as a small negative number
// that no real size or frequency can be.
double scaledOrNegative(double value, double unit) { return (value == 0 ? -1.0 : value) / unit; }

}  // namespace

std::uint64_t getCPUCoreCount() { return countOrUnknown("machdep.cpu.core_count"); }
std::uint64_t getCPUThreadCount() { return countOrUnknown("machdep.cpu.thread_count"); }

double getCPUFrequency() {
  return scaledOrNegative(static_cast<double>(HWSystemUtils::sysctlFloatForKey("hw.cpufrequency")), 1'000'000'000.0);
}
double getL2Cache() { return scaledOrNegative(HWSystemUtils::sysctlDoubleForKey("hw.l2cachesize"), 1'048'576.0); }
double getL3Cache() { return scaledOrNegative(HWSystemUtils::sysctlDoubleForKey("hw.l3cachesize"), 1'048'576.0); }

std::int64_t getCPUArchitecture() { return HWSystemUtils::sysctlDoubleForKey("hw.cputype") == 0 ? 2 : 0; }

HWCPUInfo getCPUInfo() {
  HWCPUInfo info;
  info.setBrand(getCPUBrand());
  info.setVendor(getCPUVendor());
  info.setCpuCount(getCPUCount());
  info.setCoreCount(getCPUCoreCount());
  info.setThreadCount(getCPUThreadCount());
  info.setFrequency(getCPUFrequency());
  info.setL2Cache(getL2Cache());
  info.setL3Cache(getL3Cache());
  info.setArchitecture(getCPUArchitecture());
  info.setPlatform(getCPUPlatformFromBrand(info.brand()));
  info.setHasHyperthreadingCores(hasHyperthreadingCores());
  if (auto cores = getCPUCoresInfo()) {
    std::uint64_t efficiency = 0;
    std::uint64_t performance = 0;
    for (const auto& core : *cores) {
      efficiency += core.type == 1 ? 1 : 0;
      performance += core.type == 2 ? 1 : 0;
    }
    info.setECoreCount(efficiency);
    info.setPCoreCount(performance);
    info.setHasEPCores(efficiency > 0 || performance > 0);
    info.setCoreList(std::move(*cores));
  }
  return info;
}

}  // namespace cpu
}  // namespace corvane
