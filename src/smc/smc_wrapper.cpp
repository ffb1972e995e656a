#include "corvane/smc/smc_wrapper.h"

#include <charconv>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

#include "corvane/platform/platform.h"
#include "corvane/platform/processes.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"
#include "corvane/util/install_paths.h"

namespace corvane {
namespace {

constexpr long kReadFailedCode = 1;
constexpr std::size_t kAddressableFans = smc::kFanCharacters.size();

// Reads `key` as SMCReadKey expects it: its first four bytes, zero-padded.
kern_return_t readKey(std::string_view key, SMCValue& value) {
  char name[5] = {};
  std::memcpy(name, key.data(), key.size() < 4 ? key.size() : 4);
  return SMCReadKey(name, &value);
}

HWError readFailed(std::string_view key) {
  return errors::kitError(kReadFailedCode, fmt::format("[SMCWrapper] Read ({}) failed", key));
}

HWError convertFailed(std::string_view key, const SMCValue& value) {
  // The type code is NUL-terminated by the driver layer; strnlen keeps a damaged one in bounds.
  const std::string_view type(value.dataType, strnlen(value.dataType, sizeof value.dataType));
  return errors::kitError(kReadFailedCode, fmt::format("[SMCWrapper] Convert ({}) failed: val:{} size-{}", key,
                                                       type, value.dataSize));
}

// The fan key ending in `suffix` of fan `index` ("Ac", 0 → "F0Ac"); nullopt beyond the
// addressable fans.
std::optional<std::string> fanKey(std::string_view suffix, std::uint64_t index) {
  if (index >= kAddressableFans) return std::nullopt;
  std::string key = "F";
  key += smc::kFanCharacters[index];
  key += suffix;
  return key;
}

// The leading decimal integer of `text` (after blanks), 0 when there is none.
std::int64_t integerValue(std::string_view text) {
  std::size_t start = 0;
  while (start < text.size() && (text[start] == ' ' || text[start] == '\t')) ++start;
  if (start < text.size() && text[start] == '+') ++start;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data() + start, text.data() + text.size(), number);
  (void)end;
  return error == std::errc() ? number : 0;
}

}  // namespace

SMCWrapper::SMCWrapper() { SMCOpen(); }

SMCWrapper::~SMCWrapper() { SMCClose(); }

std::optional<double> SMCWrapper::rawValueByKey(std::string_view key) {
  SMCValue value;
  if (readKey(key, value) != 0) {
    handleFailedWithErrMsg(readFailed(key));
    return std::nullopt;
  }
  const auto number = smc::decodedValue(value);
  // Callers of the wrapper take -1 to mean "cannot convert", so a key that really reads -1 is
  // reported as a failed conversion here, as it always has been; only raw listings show it.
  if (!number || *number == -1.0f) {
    handleFailedWithErrMsg(convertFailed(key, value));
    return std::nullopt;
  }
  return static_cast<double>(*number);
}

std::optional<std::string> SMCWrapper::rawStringValueByKey(std::string_view key) {
  SMCValue value;
  if (readKey(key, value) != 0 || value.dataSize == 0) {
    handleFailedWithErrMsg(readFailed(key));
    return std::nullopt;
  }
  std::string text;
  const std::size_t size = value.dataSize < sizeof value.bytes ? value.dataSize : sizeof value.bytes;
  for (std::size_t i = 0; i < size; ++i) {
    // Blanks and control bytes are padding in the SMC's text values; bytes past ASCII are no
    // text at all (a stray 0xFF would reach the screen as U+FFFD and break a JSON document).
    if (value.bytes[i] > ' ' && value.bytes[i] < 0x7F) text.push_back(static_cast<char>(value.bytes[i]));
  }
  return text;
}

void SMCWrapper::handleFailedWithErrMsg(const HWError& error) {
  if (auto receiver = delegate_.lock()) receiver->smcReadValueFailedWithError(error);
}

std::uint64_t SMCWrapper::numberOfFans() {
  const auto count = rawValueByKey("FNum");
  if (!count || !(*count >= 1.0)) return 0;
  return static_cast<std::uint64_t>(*count);
}

std::optional<double> SMCWrapper::fanValue(std::string_view suffix, std::uint64_t index) {
  const auto key = fanKey(suffix, index);
  if (!key) return std::nullopt;
  return rawValueByKey(*key);
}

double SMCWrapper::speedOfFan(std::uint64_t index) { return fanValue("Ac", index).value_or(0.0); }

double SMCWrapper::safeMinimumSpeedOfFan(std::uint64_t index) { return fanValue("Mn", index).value_or(0.0); }

double SMCWrapper::safeMaximumSpeedOfFan(std::uint64_t index) { return fanValue("Mx", index).value_or(0.0); }

std::string SMCWrapper::descriptionOfFan(std::uint64_t index) {
  if (const auto key = fanKey("ID", index)) {
    auto name = rawStringValueByKey(*key);
    if (name && !name->empty()) return std::move(*name);
  }
  return "Fan " + std::to_string(index + 1);
}

std::optional<double> SMCWrapper::getSensorValueByKey(std::string_view key, SensorType type) {
  if (type == SensorType::kFan) {
    const std::int64_t index = integerValue(key);
    if (index < 0) return 0.0;
    return fanValue("Ac", static_cast<std::uint64_t>(index));
  }
  return rawValueByKey(key);
}

const std::vector<std::string>& SMCWrapper::getAllSensorKeys() {
  if (!cachedAllSensorKeys_.empty()) return cachedAllSensorKeys_;
  const auto counted = rawValueByKey("#KEY");
  const std::uint64_t count = counted && *counted >= 1.0 ? static_cast<std::uint64_t>(*counted) : 0;
  std::vector<std::string> keys;
  for (std::uint64_t index = 0; index < count; ++index) {
    SMCValue value;
    if (SMCReadKeyByIndex(static_cast<uint32_t>(index), &value) != 0) continue;
    // A key that reads -1 cannot be told from one that does not convert, so both are left out;
    // a NaN is a reading and stays.
    const auto number = smc::decodedValue(value);
    if (!number || *number == -1.0f) continue;
    switch (value.key[0]) {
      case 'T':
      case 'V':
      case 'P':
      case 'I':
        keys.emplace_back(value.key);
        break;
      default:
        break;
    }
  }
  cachedAllSensorKeys_ = std::move(keys);
  return cachedAllSensorKeys_;
}

std::vector<std::shared_ptr<HWSensor>> SMCWrapper::getAllSensors() {
  std::vector<std::shared_ptr<HWSensor>> sensors;
  const std::uint64_t fans = numberOfFans();
  for (std::uint64_t i = 0; i < fans && i < kAddressableFans; ++i) {
    sensors.push_back(HWSensor::instanceWithKey({.key = std::to_string(i),
                                                 .name = descriptionOfFan(i),
                                                 .value = speedOfFan(i),
                                                 .minLimitValue = safeMinimumSpeedOfFan(i),
                                                 .maxLimitValue = safeMaximumSpeedOfFan(i),
                                                 .type = SensorType::kFan,
                                                 .group = SensorGroup::kFans}));
  }
  for (const std::string& key : getAllSensorKeys()) {
    SensorType type = SensorType::kTemperature;
    switch (key[0]) {
      case 'T': type = SensorType::kTemperature; break;
      case 'V': type = SensorType::kVoltage; break;
      case 'P': type = SensorType::kPower; break;
      case 'I': type = SensorType::kCurrent; break;
      default: continue;
    }
    const auto value = rawValueByKey(key);
    if (!value) continue;
    sensors.push_back(HWSensor::instanceWithKey({.key = key,
                                                 .name = key,
                                                 .value = *value,
                                                 .maxLimitValue = type == SensorType::kTemperature ? 110.0 : 0.0,
                                                 .type = type}));
  }
  return sensors;
}

bool SMCWrapper::setExternalValue(const std::string& value, const std::string& key) {
  const auto tool = files::smcExePath();
  std::error_code ec;
  if (!tool || !std::filesystem::exists(*tool, ec)) return false;
  // The helper follows the machine this process simulates, so that is recorded first.
  platform::current().announceMachine();
  const auto result = platform::current().service<platform::Processes>().run(*tool, {"-k", key, "-w", value}, nullptr);
  return result && result->exitCode == 0;
}

}  // namespace corvane
