#include "corvane/fan/sensor_writer.h"

#include <cstdio>
#include <cstring>

#include "corvane/sysinfo/system_device.h"

namespace corvane {
namespace fan_writes {

std::optional<char> fanCharacter(std::uint64_t fan) {
  static constexpr char kAlphabet[] = "0123456789ABCDEFGHIJ";
  if (fan > kMaxFanIndex) return std::nullopt;
  return kAlphabet[fan];
}

std::vector<KeyWrite> writesFor(std::uint64_t speed, std::uint64_t fan, bool autoMode, bool t2) {
  const auto c = fanCharacter(fan);
  if (!c) return {};
  char value[16];
  if (t2) {
    const float target = static_cast<float>(speed);
    std::uint32_t bits = 0;
    std::memcpy(&bits, &target, sizeof bits);
    std::snprintf(value, sizeof value, "%02x%02x%02x%02x", bits & 0xffu, (bits >> 8) & 0xffu, (bits >> 16) & 0xffu,
                  bits >> 24);
    return {{std::string("F") + *c + "Md", autoMode ? "00" : "01"}, {std::string("F") + *c + "Tg", value}};
  }
  std::snprintf(value, sizeof value, "%04x", static_cast<std::uint32_t>(speed * 4));
  return {{std::string("F") + *c + "Mn", value}};
}

}  // namespace fan_writes

bool HWSensorWriter::setSpeed(std::uint64_t speed, std::uint64_t fan, bool autoMode) {
  const bool t2 = HWSystemDevice::device()->modelInfo().isT2ChipSupport();
  const auto writes = fan_writes::writesFor(speed, fan, autoMode, t2);
  bool written = false;
  // Only the last write counts: a newer machine that refuses the mode key still takes the target.
  for (const auto& write : writes) written = smc_.setExternalValue(write.value, write.key);
  return written;
}

}  // namespace corvane
