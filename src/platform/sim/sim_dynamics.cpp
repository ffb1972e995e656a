#include "platform/sim/sim_dynamics.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <vector>

#include "corvane/platform/platform.h"
#include "platform/posix/file_lock.h"
#include "platform/sim/sim_smc_driver.h"

namespace corvane::platform {
namespace sim {

std::optional<CpuTimes> parseCpuTimes(std::string_view procStat) {
  if (procStat.substr(0, 4) != "cpu ") return std::nullopt;
  std::string_view line = procStat.substr(4, procStat.find('\n') - 4);
  std::vector<uint64_t> fields;
  while (!line.empty()) {
    const auto start = line.find_first_not_of(' ');
    if (start == std::string_view::npos) break;
    line.remove_prefix(start);
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), value);
    if (error != std::errc()) return std::nullopt;
    fields.push_back(value);
    line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  }
  if (fields.size() < 4) return std::nullopt;
  fields.resize(8, 0);  // older kernels stop before iowait, irq, softirq or steal
  CpuTimes times;
  times.busy = fields[0] + fields[1] + fields[2] + fields[5] + fields[6] + fields[7];
  times.total = times.busy + fields[3] + fields[4];
  return times;
}

SimDynamics::SimDynamics(SimDynamicsOptions options) : options_(std::move(options)) {}

double SimDynamics::loadAt(double now) {
  if (!loadTime_ || std::fabs(now - *loadTime_) >= 1.0) {
    loadTime_ = now;
    const double load = options_.load();
    load_ = std::isfinite(load) ? std::clamp(load, 0.0, 1.0) : 0.0;
  }
  return load_;
}

double SimDynamics::temperature(const std::string& id, double recorded) {
  if (!(recorded > 0 && recorded < options_.ceiling)) return recorded;
  const double now = options_.clock();
  std::lock_guard lock(lock_);
  const double floor = recorded - options_.coolingMargin;
  const double target = std::clamp(recorded + options_.fullLoadRise * loadAt(now), floor, options_.ceiling);
  auto [it, fresh] = states_.try_emplace(id, State{recorded, now});
  State& state = it->second;
  if (!fresh) {
    const double elapsed = std::max(0.0, now - state.time);
    const double share = options_.timeConstant > 0 ? 1 - std::exp(-elapsed / options_.timeConstant) : 1;
    state.value = std::clamp(state.value + (target - state.value) * share, floor, options_.ceiling);
    state.time = now;
  }
  return state.value;
}

double SimDynamics::fanSpeed(const std::string& id, double actual, double target, double minimum, double maximum) {
  const double now = options_.clock();
  if (minimum > 0 && target < minimum) target = minimum;
  if (maximum > 0 && target > maximum) target = maximum;
  std::lock_guard lock(lock_);
  auto [it, fresh] = states_.try_emplace(id, State{actual, now});
  State& state = it->second;
  if (!fresh) {
    const double step = options_.fanRampRate * std::max(0.0, now - state.time);
    state.value += std::clamp(target - state.value, -step, step);
    state.time = now;
  }
  return state.value;
}

}  // namespace sim

bool enableSimDynamics(Platform& platform, SimDynamicsOptions options) {
  auto* driver = dynamic_cast<SimSmcDriver*>(&platform.smc());
  if (driver == nullptr || !options.clock || !options.codec.decode || !options.codec.encode) return false;
  if (!options.load) options.load = hostCpuLoad();
  driver->setDynamics(std::make_shared<sim::SimDynamics>(std::move(options)));
  return true;
}

std::function<double()> hostCpuLoad() {
  auto previous = std::make_shared<sim::CpuTimes>();
  return [previous] {
    const auto text = posix::readWholeFile("/proc/stat");
    const auto times = text ? sim::parseCpuTimes(*text) : std::nullopt;
    if (!times || times->total <= previous->total || times->busy < previous->busy) return 0.0;
    const double load = static_cast<double>(times->busy - previous->busy) /
                        static_cast<double>(times->total - previous->total);
    *previous = *times;
    return load;
  };
}

}  // namespace corvane::platform
