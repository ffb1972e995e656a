#include "corvane/fan/fan_hand_back.h"

#include <nlohmann/json.hpp>

#include "corvane/fan/sensor_writer.h"
#include "platform/posix/file_lock.h"

namespace corvane {
namespace {

// {"fans": {"<number>": <speed>, ...}}; anything else reads as no fan.
std::map<std::uint64_t, std::uint64_t> parse(const std::optional<std::string>& text) {
  std::map<std::uint64_t, std::uint64_t> fans;
  if (!text) return fans;
  const auto document = nlohmann::json::parse(*text, nullptr, false);
  if (!document.is_object() || !document.contains("fans") || !document["fans"].is_object()) return fans;
  for (const auto& [number, speed] : document["fans"].items()) {
    if (!speed.is_number_unsigned() || number.empty() || number.size() > 2 ||
        number.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const auto fan = std::stoull(number);
    if (fan <= fan_writes::kMaxFanIndex) fans[fan] = speed.get<std::uint64_t>();
  }
  return fans;
}

}  // namespace

HWFanHandBack::HWFanHandBack(std::filesystem::path file) : file_(std::move(file)) {}

std::map<std::uint64_t, std::uint64_t> HWFanHandBack::takenFans() const {
  std::lock_guard guard(lock_);
  return parse(platform::posix::readWholeFile(file_));
}

void HWFanHandBack::noteWrite(std::uint64_t fan, std::uint64_t handBackSpeed, bool autoMode) {
  std::lock_guard guard(lock_);
  auto fans = parse(platform::posix::readWholeFile(file_));
  auto before = fans;
  if (autoMode) {
    fans.erase(fan);
  } else {
    fans[fan] = handBackSpeed;
  }
  if (fans != before) store(fans);
}

std::size_t HWFanHandBack::handBackAll(HWSensorWriter& writer) {
  std::lock_guard guard(lock_);
  auto fans = parse(platform::posix::readWholeFile(file_));
  std::size_t handedBack = 0;
  for (auto it = fans.begin(); it != fans.end();) {
    if (writer.setSpeed(it->second, it->first, true)) {
      ++handedBack;
      it = fans.erase(it);
    } else {
      ++it;
    }
  }
  if (handedBack > 0) store(fans);
  return handedBack;
}

void HWFanHandBack::store(const std::map<std::uint64_t, std::uint64_t>& fans) const {
  nlohmann::json document = {{"fans", nlohmann::json::object()}};
  for (const auto& [fan, speed] : fans) document["fans"][std::to_string(fan)] = speed;
  std::error_code ec;
  std::filesystem::create_directories(file_.parent_path(), ec);
  // A list that cannot be written only costs the hand-back after a crash; the writes go on.
  platform::posix::replaceFileAtomically(file_, document.dump() + "\n", nullptr);
}

}  // namespace corvane
