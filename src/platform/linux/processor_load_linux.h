// Processor ticks of a Linux host from /proc/stat and core kinds from /sys/devices/system/cpu.
// The parsers are pure functions over text; the roots are parameters so tests use fixture trees.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "corvane/platform/processor_load.h"
#include "platform/linux/kernel_values_linux.h"

namespace corvane::platform::procfs {

// Processor numbers above this are taken for garbage rather than sized for.
inline constexpr std::uint64_t kMaxProcessorNumber = 8191;

// The "cpu" and "cpuN" lines of /proc/stat as Mac ticks: user (guest time included, as the
// kernel counts it), system with interrupt time, idle with time waiting for I/O, and nice. Steal
// time belongs to other guests and counts nowhere. A line with fewer than four numbers, or
// with anything but digits among them, counts as absent. False when no line was usable.
bool parseProcStat(std::string_view text, ProcessorTickSample& sample);

// What sysfs tells about one processor.
struct CoreFacts {
  std::uint64_t id = 0;
  std::optional<std::uint64_t> capacity;      // cpu_capacity
  std::optional<std::int64_t> clusterId;      // topology/cluster_id
  std::optional<std::uint64_t> maxFrequency;  // cpufreq/cpuinfo_max_freq
};

// The cores in processor-number order with their kinds. Where the kernel gives every core a
// capacity and they differ, the least capable are efficiency cores and the rest performance
// cores; otherwise, where cores sit in more than one cluster and every one has a maximum
// frequency that differs, the slowest are efficiency cores. Otherwise no core has a kind.
std::vector<ProcessorCore> coresWithKinds(std::vector<CoreFacts> facts);

// The host's service over `roots`.
std::shared_ptr<ProcessorLoad> makeProcessorLoad(Roots roots);

}  // namespace corvane::platform::procfs
