// Turns "run fan N at S rpm" (or "give fan N back to the system") into the SMC keys and values
// the helper tool writes. Machines from 2018 on take a mode key and a float target; older ones
// take a fixed-point minimum speed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "corvane/smc/smc_wrapper.h"

namespace corvane {

namespace fan_writes {

// The highest fan index a key can name: fans are numbered 0-9, then A-J.
inline constexpr std::uint64_t kMaxFanIndex = 19;

// One key and the hexadecimal value the helper tool writes to it.
struct KeyWrite {
  std::string key;
  std::string value;
  bool operator==(const KeyWrite&) const = default;
};

// The fan's character in its keys ('0'-'9', 'A'-'J'); nothing for an index above 19.
std::optional<char> fanCharacter(std::uint64_t fan);

// The writes for one request, in the order they are made; the last one decides the outcome.
// Newer machines ("T2"): the mode key ("00" automatic, "01" forced), then the target as a
// 32-bit float, lowest byte first. Older machines: the minimum speed as speed × 4 in at least
// four hexadecimal digits (modulo 2^32); the automatic mode does not apply to them. Empty for a
// fan index above 19.
std::vector<KeyWrite> writesFor(std::uint64_t speed, std::uint64_t fan, bool autoMode, bool t2);

}  // namespace fan_writes

// Owns its own SMC wrapper. Keeps no state between calls; each call blocks while the helper
// tool runs. Use from one thread at a time.
class HWSensorWriter {
 public:
  HWSensorWriter() = default;
  HWSensorWriter(const HWSensorWriter&) = delete;
  HWSensorWriter& operator=(const HWSensorWriter&) = delete;

  SMCWrapper& smc() { return smc_; }

  // Asks for `speed` rpm on fan `fan` (with `autoMode` the fan goes back to the system; the
  // target is still written on newer machines), the scheme chosen by the machine's model. True
  // when the deciding write succeeded; false when the helper tool is missing or failed, and for
  // a fan index above 19 (nothing is written then). A newer machine's mode write may fail
  // without changing the result.
  bool setSpeed(std::uint64_t speed, std::uint64_t fan, bool autoMode);

 private:
  SMCWrapper smc_;
};

}  // namespace corvane
