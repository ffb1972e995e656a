#include "hardware_json.h"

#include "corvane/util/system_utils.h"

namespace corvane::cli {
namespace {

using Json = nlohmann::ordered_json;

// A count or size the machine did not give is null rather than a made-up number.
Json countJson(std::uint64_t count) { return count == kUnknownCount ? Json(nullptr) : Json(count); }
Json positiveJson(double value) { return value > 0 ? Json(value) : Json(nullptr); }

}  // namespace

Json cpuInfoJson(const HWCPUInfo& info) {
  Json cores = Json::array();
  for (const auto& core : info.coreList()) {
    cores.push_back({{"coreId", core.coreId}, {"name", core.name}, {"type", core.type}});
  }
  const double active = HWSystemUtils::sysctlDoubleForKey("hw.activecpu");
  return {{"brand", info.brand()},
          {"vendor", info.vendor()},
          {"cpuCount", info.cpuCount()},
          {"coreCount", countJson(info.coreCount())},
          {"threadCount", countJson(info.threadCount())},
          {"activeCount", active > 0 ? Json(static_cast<std::uint64_t>(active)) : Json(nullptr)},
          {"eCoreCount", countJson(info.eCoreCount())},
          {"pCoreCount", countJson(info.pCoreCount())},
          {"frequency", positiveJson(info.frequency())},
          {"l2Cache", positiveJson(info.l2Cache())},
          {"l3Cache", positiveJson(info.l3Cache())},
          {"architecture", info.architecture()},
          {"platform", info.platform()},
          {"hasHyperthreadingCores", info.hasHyperthreadingCores()},
          {"hasEPCores", info.hasEPCores()},
          {"coreList", std::move(cores)}};
}

Json gpuInfosJson(const std::optional<std::vector<HWGPUInfo>>& gpus) {
  if (!gpus) return nullptr;
  Json list = Json::array();
  for (const auto& gpu : *gpus) {
    list.push_back({{"modelName", gpu.modelName()},
                    {"shortModelName", gpu.shortModelName() ? Json(*gpu.shortModelName()) : Json(nullptr)},
                    {"isDedicated", gpu.isDedicated()},
                    {"vendor", gpu.vendor()},
                    {"vram", gpu.vram()},
                    {"cores", gpu.cores()}});
  }
  return list;
}

}  // namespace corvane::cli
