// The motion of a simulated machine's values when dynamics are on.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "corvane/platform/sim_dynamics.h"

namespace corvane::platform::sim {

// The machine-wide CPU times of /proc/stat's "cpu" line, in ticks.
struct CpuTimes {
  uint64_t busy = 0;   // user, nice, system, irq, softirq, steal
  uint64_t total = 0;  // busy plus idle and iowait
};
std::optional<CpuTimes> parseCpuTimes(std::string_view procStat);

// Values move lazily: each is brought up to the clock's time when it is read, from where it
// stood at its previous read, so nothing runs between reads. Thread-safe.
class SimDynamics {
 public:
  // `options` complete (a clock, a load, a codec).
  explicit SimDynamics(SimDynamicsOptions options);

  const SimValueCodec& codec() const { return options_.codec; }

  // Where temperature `id` stands now, given what it reads without dynamics (°C): a lag toward
  // that value plus the load's rise, never below it by more than the cooling margin nor above the
  // ceiling. A value outside (0, ceiling), such as a sensor's "absent" mark, is left as it is.
  double temperature(const std::string& id, double recorded);

  // Where fan `id`'s actual speed stands now: from its previous value (at first `actual`) toward
  // `target` kept within [minimum, maximum], by at most the ramp rate per elapsed second.
  double fanSpeed(const std::string& id, double actual, double target, double minimum, double maximum);

 private:
  struct State {
    double value = 0;
    double time = 0;
  };
  // The load, asked at most once a second of the clock so that a burst of reads shares one value.
  double loadAt(double now);

  SimDynamicsOptions options_;
  std::mutex lock_;
  std::unordered_map<std::string, State> states_;  // guarded by lock_
  std::optional<double> loadTime_;                 // guarded by lock_
  double load_ = 0;                                // guarded by lock_
};

}  // namespace corvane::platform::sim
