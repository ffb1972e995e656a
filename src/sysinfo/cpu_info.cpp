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
  auto brand = strings::removedRegexMatchesWithPattern(rawBrand, R"(\(TM\)|\(R\)|CPU|@)", "");
  brand = strings::trimWhitespace(strings::condenseWhitespace(brand));
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

HWCPUInfo getCPUInfo() {
  HWCPUInfo info;
  info.setBrand(getCPUBrand());
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
