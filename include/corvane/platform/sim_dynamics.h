// Optional motion for a simulated machine, for a live demo and for long simulations: its
// temperatures follow a load, and its fans ramp toward their targets. Off unless switched on;
// without it every read returns exactly the recorded (or last written) bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace corvane::platform {

class Platform;

// Numbers in an SMC key's own type. The SMC layer, which owns the codec, supplies it
// (smc::simValueCodec()); this layer knows nothing of SMC types.
struct SimValueCodec {
  // The number `size` bytes of `type` (a packed four-character code) hold; nothing when unknown.
  std::function<std::optional<double>(uint32_t type, uint32_t size, const uint8_t* bytes)> decode;
  // Writes `value` into `bytes` in `type`; false (bytes untouched) when unknown.
  std::function<bool(uint32_t type, uint32_t size, double value, uint8_t* bytes)> encode;
};

struct SimDynamicsOptions {
  // Seconds on the clock that drives the machine: pass dispatch::now, so that a virtual clock
  // drives it in simulations and tests. Required.
  std::function<double()> clock;
  // The load between 0 (idle) and 1 (every core busy), asked on each read; empty: the host's
  // CPU load (hostCpuLoad()).
  std::function<double()> load;
  SimValueCodec codec;  // required
  // Seconds a temperature takes to cover 63% of the way to its target (a first-order lag).
  double timeConstant = 20;
  // Degrees Celsius a temperature settles above its recorded value at full load.
  double fullLoadRise = 35;
  // How far below its recorded value a temperature may fall, and the ceiling of every one.
  double coolingMargin = 3;
  double ceiling = 105;
  // The most a fan's speed changes per second, in rpm.
  double fanRampRate = 500;
};

// Switches the dynamics on for `platform`'s simulated SMC and HID temperatures (a second call
// replaces the settings; the state of each value starts over). Do it at start, before the first
// read. False when the platform's SMC is not simulated or a required option is missing.
bool enableSimDynamics(Platform& platform, SimDynamicsOptions options);

// The host's CPU load since the previous call of the returned function (the first call: since
// the host started), between 0 and 1; always 0 where the host's CPU times cannot be read. The
// function keeps the previous reading: call it from one thread at a time (the dynamics do).
std::function<double()> hostCpuLoad();

}  // namespace corvane::platform
