// How busy the processor has been between two readings: the machine's user, system and idle
// shares, each core's usage, and the means of efficiency and performance cores.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "corvane/monitors/base_reader.h"
#include "corvane/platform/processor_load.h"
#include "corvane/sysinfo/cpu_info.h"

namespace corvane {

// One core's usage, 0 to 1, over the last interval.
struct HWCPUCoreUsage {
  double usage = 0.0;
  HWCPUCore cpuCore;
};

// One reading. Shares are fractions from 0 to 1, unrounded. A copy is shallow: the per-core
// lists are shared, and the reader never changes a list it has handed out, so a consumer may
// keep one across readings.
struct HWCPULoadInfo {
  // systemLoad + userLoad.
  double totalUsage = 0.0;
  // One entry per core of the core list, in its order; null when the processor has
  // hyper-threading (then foldedUsagePerCore holds the figures) or before the first reading.
  std::shared_ptr<const std::vector<HWCPUCoreUsage>> usagePerCore;
  // With hyper-threading: the mean of each pair of logical processors (0 and 1, 2 and 3, ...),
  // an odd last one dropped; null otherwise.
  std::shared_ptr<const std::vector<double>> foldedUsagePerCore;
  // Mean usage of efficiency and of performance cores; NaN when the machine has no core of that
  // kind, nothing before the first reading.
  std::optional<double> usageECores;
  std::optional<double> usagePCores;
  double systemLoad = 0.0;
  double userLoad = 0.0;
  // Nice time counts in the machine's total but in none of its shares, so the three shares
  // need not add up to 1.
  double idleLoad = 0.0;

  // The per-core figures as plain numbers, whichever form they have.
  std::vector<double> perCoreUsages() const;
};

// A reading with the time it was taken.
struct HWCPULoadInfoItem {
  double timeInterval = 0.0;  // seconds since 1970
  HWCPULoadInfo loadInfo;
};

// Measures the processor's load between two calls to read(). The first reading gives the load
// since boot. Held by std::shared_ptr; read() and the four steps are called from one queue at a
// time (the monitor's load timer), response() from anywhere.
class HWCPULoadReader final : public HWBaseReader<HWCPULoadInfo> {
 public:
  // Ticks from the installed platform; cores and hyper-threading from the shared device.
  HWCPULoadReader();
  // Ticks from `source`, with the given core list and hyper-threading.
  HWCPULoadReader(std::shared_ptr<platform::ProcessorLoad> source, std::optional<std::vector<HWCPUCore>> cores,
                  bool hasHyperthreadingCores);

  // Runs the four steps below in order on one look at the counters, then hands a copy of the
  // response to the delegate on the calling thread.
  void read() override;

  // Per-core usage since the previous reading, one entry per core of the core list (the list,
  // not the kernel's processor count, sets the length). Changes nothing when the kernel gives
  // no per-processor ticks.
  void readPerCoreLoadInfo();
  // Hands out the per-core figures, folded by pairs on a processor with hyper-threading.
  void adjustUsagePerCore();
  // The efficiency and performance means, looked up by core id.
  void calculateEPCoreUsage();
  // The machine-wide shares since the previous reading; a share that would be 0/0 keeps its
  // previous value.
  void readOverallLoadInfo();

  // The response as it stands.
  HWCPULoadInfo response() const;

 private:
  void perCoreFrom(const platform::ProcessorTickSample& sample);
  void overallFrom(const platform::ProcessorTickSample& sample);
  void adjustUsagePerCoreLocked();
  void calculateEPCoreUsageLocked();

  std::shared_ptr<platform::ProcessorLoad> source_;
  std::optional<std::vector<HWCPUCore>> cores_;
  bool hasHyperthreadingCores_ = false;

  mutable std::mutex cpuUsageLock_;  // guards everything below
  platform::ProcessorTickSample current_;
  std::vector<std::uint32_t> prevCpuInfo_;
  bool hasPrevCpuInfo_ = false;
  std::array<std::uint32_t, platform::kTicksPerProcessor> previousCPULoadInfo_{};
  std::shared_ptr<const std::vector<HWCPUCoreUsage>> usagePerCore_ =
      std::make_shared<const std::vector<HWCPUCoreUsage>>();
  HWCPULoadInfo response_;
};

}  // namespace corvane
