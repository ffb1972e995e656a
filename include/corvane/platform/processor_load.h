// How busy each processor has been since boot, in the kernel's scheduler ticks, and which kind
// of core each processor is.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// Tick indices, in the order the Mac's kernel hands them out.
inline constexpr int kUserTicks = 0;
inline constexpr int kSystemTicks = 1;
inline constexpr int kIdleTicks = 2;
inline constexpr int kNiceTicks = 3;
inline constexpr int kTicksPerProcessor = 4;

// One look at the tick counters. The counters are 32 bits wide and wrap: only their differences
// between two looks mean anything.
struct ProcessorTickSample {
  // User, system, idle and nice ticks of the whole machine; nothing when the kernel gave none.
  std::optional<std::array<std::uint32_t, kTicksPerProcessor>> machine;
  // Four ticks per processor, in processor-number order. A processor the kernel does not list
  // (offline, or a line it could not read) has all four at 0.
  std::vector<std::uint32_t> processors;
};

// A core and its kind as the machine describes it.
struct ProcessorCore {
  std::uint64_t id = 0;    // the processor number
  std::string name;        // e.g. "cpu0"
  std::uint64_t type = 0;  // 1 efficiency, 2 performance, 0 not told apart
};

// The source of processor ticks and core kinds. Thread-safe.
class ProcessorLoad {
 public:
  virtual ~ProcessorLoad() = default;

  // Makes the service for `platform`: the host's counters, or, on a simulated machine, what its
  // profile records (profiles record neither ticks nor core kinds yet, so it answers nothing).
  static std::shared_ptr<ProcessorLoad> create(const Platform& platform);

  // Fills `sample` (its buffers are reused); false, with `sample` unspecified, when the kernel
  // gave no ticks at all.
  virtual bool sample(ProcessorTickSample& sample) const = 0;

  // The cores in processor-number order; nothing when the machine does not describe them.
  virtual std::optional<std::vector<ProcessorCore>> cores() const = 0;
};

}  // namespace corvane::platform
