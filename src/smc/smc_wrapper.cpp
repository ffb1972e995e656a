#include "corvane/smc/smc_wrapper.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "corvane/platform/platform.h"
#include "corvane/platform/processes.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/smc/smc.h"
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
  std::string message = "[SMCWrapper] Read (";
  message.append(key);
  message += ") failed";
  return errors::kitError(kReadFailedCode, std::move(message));
}

HWError convertFailed(std::string_view key, const SMCValue& value) {
  char tail[64];
  std::snprintf(tail, sizeof tail, ") failed: val:%s size-%d", value.dataType, static_cast<int>(value.dataSize));
  std::string message = "[SMCWrapper] Convert (";
  message.append(key);
  message += tail;
  return errors::kitError(kReadFailedCode, std::move(message));
}

// The fan key `format` ("F%cAc") for fan `index`; false beyond the addressable fans.
bool fanKey(const char* format, std::uint64_t index, char (&key)[5]) {
  if (index >= kAddressableFans) return false;
  std::snprintf(key, sizeof key, format, smc::kFanCharacters[index]);
  return true;
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
  const float number = SMCConvertValueToNumber(value);
  if (number == -1.0f) {
    handleFailedWithErrMsg(convertFailed(key, value));
    return std::nullopt;
  }
  return static_cast<double>(number);
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
    // Blanks and control bytes are padding in the SMC's text values.
    if (value.bytes[i] >= 33) text.push_back(static_cast<char>(value.bytes[i]));
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

std::optional<double> SMCWrapper::fanValue(const char* format, std::uint64_t index) {
  char key[5];
  if (!fanKey(format, index, key)) return std::nullopt;
  return rawValueByKey(key);
}

double SMCWrapper::speedOfFan(std::uint64_t index) { return fanValue("F%cAc", index).value_or(0.0); }

double SMCWrapper::safeMinimumSpeedOfFan(std::uint64_t index) { return fanValue("F%cMn", index).value_or(0.0); }

double SMCWrapper::safeMaximumSpeedOfFan(std::uint64_t index) { return fanValue("F%cMx", index).value_or(0.0); }

std::string SMCWrapper::descriptionOfFan(std::uint64_t index) {
  char key[5];
  if (fanKey("F%cID", index, key)) {
    auto name = rawStringValueByKey(key);
    if (name && !name->empty()) return std::move(*name);
  }
  return "Fan " + std::to_string(index + 1);
}

std::optional<double> SMCWrapper::getSensorValueByKey(std::string_view key, std::uint64_t type) {
  if (type == sensor_type::kFan) {
    const std::int64_t index = integerValue(key);
    return index < 0 ? 0.0 : speedOfFan(static_cast<std::uint64_t>(index));
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
    // −1.0 means the codec does not know the type; a NaN is a reading and stays.
    if (SMCConvertValueToNumber(value) == -1.0f) continue;
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
    std::string name = descriptionOfFan(i);
    sensors.push_back(HWSensor::instanceWithKey(std::to_string(i), name, name, speedOfFan(i),
                                                safeMinimumSpeedOfFan(i), safeMaximumSpeedOfFan(i),
                                                sensor_type::kFan, sensor_group::kFans, kAllPlatforms,
                                                source_type::kSMC, false));
  }
  for (const std::string& key : getAllSensorKeys()) {
    std::uint64_t type = 0;
    switch (key[0]) {
      case 'T': type = sensor_type::kTemperature; break;
      case 'V': type = sensor_type::kVoltage; break;
      case 'P': type = sensor_type::kPower; break;
      case 'I': type = sensor_type::kCurrent; break;
      default: continue;
    }
    const auto value = rawValueByKey(key);
    if (!value) continue;
    const double maxLimit = type == sensor_type::kTemperature ? 110.0 : 0.0;
    sensors.push_back(HWSensor::instanceWithKey(key, key, key, *value, 0.0, maxLimit, type,
                                                sensor_group::kUnknown, kAllPlatforms, source_type::kSMC,
                                                false));
  }
  return sensors;
}

bool SMCWrapper::setExternalValue(const std::string& value, const std::string& key) {
  const auto tool = files::smcExePath();
  std::error_code ec;
  if (!tool || !std::filesystem::exists(*tool, ec)) return false;
  const auto result = platform::current().service<platform::Processes>().run(*tool, {"-k", key, "-w", value}, nullptr);
  return result && result->exitCode == 0;
}

}  // namespace corvane
