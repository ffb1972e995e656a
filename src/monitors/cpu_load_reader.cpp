#include "corvane/monitors/cpu_load_reader.h"

#include <cmath>
#include <utility>

#include "corvane/platform/platform.h"
#include "corvane/sysinfo/system_device.h"

namespace corvane {
namespace {

using Ticks = const std::uint32_t*;

// Processor `i`'s four ticks in `ticks`, or null when the kernel did not list it.
Ticks ticksAt(const std::vector<std::uint32_t>& ticks, std::size_t i) {
  const std::size_t at = i * platform::kTicksPerProcessor;
  if (ticks.size() < at + platform::kTicksPerProcessor) return nullptr;
  const Ticks slot = ticks.data() + at;
  return slot[0] == 0 && slot[1] == 0 && slot[2] == 0 && slot[3] == 0 ? nullptr : slot;
}

// Per core, nice time is time in use.
std::uint32_t inUseTicks(Ticks t) {
  return t[platform::kUserTicks] + t[platform::kSystemTicks] + t[platform::kNiceTicks];
}

double coreUsage(Ticks current, Ticks previous) {
  if (current == nullptr) return 0.0;  // gone offline: it did no work we can see
  // Differences in 32 bits, so a counter that wrapped still gives the right count; the sum is
  // taken in doubles so that it cannot wrap in turn.
  const std::uint32_t inUse = previous != nullptr ? inUseTicks(current) - inUseTicks(previous) : inUseTicks(current);
  const std::uint32_t idle = previous != nullptr ? current[platform::kIdleTicks] - previous[platform::kIdleTicks]
                                                 : current[platform::kIdleTicks];
  const double total = static_cast<double>(inUse) + static_cast<double>(idle);
  return total > 0.0 ? static_cast<double>(inUse) / total : 0.0;
}

}  // namespace

std::vector<double> HWCPULoadInfo::perCoreUsages() const {
  if (foldedUsagePerCore) return *foldedUsagePerCore;
  std::vector<double> usages;
  if (usagePerCore) {
    usages.reserve(usagePerCore->size());
    for (const auto& core : *usagePerCore) usages.push_back(core.usage);
  }
  return usages;
}

HWCPULoadReader::HWCPULoadReader() {
  // The reader keeps its own source, so that it outlives a platform replaced under it.
  source_ = platform::ProcessorLoad::create(platform::current());
  auto device = HWSystemDevice::device();
  cores_ = device->cpuInfo().coreList();
  hasHyperthreadingCores_ = device->cpuInfo().hasHyperthreadingCores();
}

HWCPULoadReader::HWCPULoadReader(std::shared_ptr<platform::ProcessorLoad> source,
                                 std::optional<std::vector<HWCPUCore>> cores, bool hasHyperthreadingCores)
    : source_(std::move(source)), cores_(std::move(cores)), hasHyperthreadingCores_(hasHyperthreadingCores) {}

void HWCPULoadReader::read() {
  {
    std::lock_guard guard(cpuUsageLock_);
    const bool sampled = source_ != nullptr && source_->sample(current_);
    if (sampled) perCoreFrom(current_);
    adjustUsagePerCoreLocked();
    calculateEPCoreUsageLocked();
    if (sampled) overallFrom(current_);
  }
  deliverResult(response());
}

void HWCPULoadReader::readPerCoreLoadInfo() {
  std::lock_guard guard(cpuUsageLock_);
  if (source_ != nullptr && source_->sample(current_)) perCoreFrom(current_);
}

void HWCPULoadReader::adjustUsagePerCore() {
  std::lock_guard guard(cpuUsageLock_);
  adjustUsagePerCoreLocked();
}

void HWCPULoadReader::calculateEPCoreUsage() {
  std::lock_guard guard(cpuUsageLock_);
  calculateEPCoreUsageLocked();
}

void HWCPULoadReader::readOverallLoadInfo() {
  std::lock_guard guard(cpuUsageLock_);
  if (source_ != nullptr && source_->sample(current_)) overallFrom(current_);
}

HWCPULoadInfo HWCPULoadReader::response() const {
  std::lock_guard guard(cpuUsageLock_);
  return response_;
}

void HWCPULoadReader::perCoreFrom(const platform::ProcessorTickSample& sample) {
  if (sample.processors.empty()) return;
  const std::size_t count = cores_ ? cores_->size() : 0;
  auto usages = std::make_shared<std::vector<HWCPUCoreUsage>>();
  usages->reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const Ticks previous = hasPrevCpuInfo_ ? ticksAt(prevCpuInfo_, i) : nullptr;
    usages->push_back({coreUsage(ticksAt(sample.processors, i), previous), (*cores_)[i]});
  }
  usagePerCore_ = std::move(usages);
  prevCpuInfo_ = sample.processors;
  hasPrevCpuInfo_ = true;
}

void HWCPULoadReader::adjustUsagePerCoreLocked() {
  if (!hasHyperthreadingCores_) {
    response_.usagePerCore = usagePerCore_;
    response_.foldedUsagePerCore.reset();
    return;
  }
  // Logical processors 2k and 2k+1 are taken for the two threads of one core.
  const auto& usages = *usagePerCore_;
  auto folded = std::make_shared<std::vector<double>>();
  folded->reserve(usages.size() / 2);
  for (std::size_t j = 0; j + 1 < usages.size(); j += 2) folded->push_back((usages[j].usage + usages[j + 1].usage) * 0.5);
  response_.foldedUsagePerCore = std::move(folded);
  response_.usagePerCore.reset();
}

void HWCPULoadReader::calculateEPCoreUsageLocked() {
  if (!cores_) return;
  const auto& usages = *usagePerCore_;
  double sums[2] = {0.0, 0.0};
  double counts[2] = {0.0, 0.0};
  for (const auto& core : *cores_) {
    if (core.type != 1 && core.type != 2) continue;
    // Looked up by the core's id, not its place in the list; an id past the readings counts 0.
    const std::size_t kind = core.type - 1;
    sums[kind] += core.coreId < usages.size() ? usages[static_cast<std::size_t>(core.coreId)].usage : 0.0;
    counts[kind] += 1.0;
  }
  // With no core of a kind the mean is 0/0: NaN tells consumers the machine has none.
  response_.usageECores = sums[0] / counts[0];
  response_.usagePCores = sums[1] / counts[1];
}

void HWCPULoadReader::overallFrom(const platform::ProcessorTickSample& sample) {
  if (!sample.machine) return;
  const auto& now = *sample.machine;
  std::uint32_t diff[platform::kTicksPerProcessor];
  for (int i = 0; i < platform::kTicksPerProcessor; ++i) diff[i] = now[i] - previousCPULoadInfo_[i];
  // Machine-wide, nice time is in the total but in no share.
  const double total = static_cast<double>(diff[platform::kUserTicks]) + diff[platform::kSystemTicks] +
                       diff[platform::kIdleTicks] + diff[platform::kNiceTicks];
  auto share = [&](int which, double& into) {
    const double value = diff[which] / total;
    if (!std::isnan(value)) into = value;
  };
  share(platform::kSystemTicks, response_.systemLoad);
  share(platform::kUserTicks, response_.userLoad);
  share(platform::kIdleTicks, response_.idleLoad);
  response_.totalUsage = response_.systemLoad + response_.userLoad;
  previousCPULoadInfo_ = now;
}

}  // namespace corvane
