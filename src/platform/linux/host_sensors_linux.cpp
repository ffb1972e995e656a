// The host's hardware monitors through the sensors library, so that whatever the user set up for
// them (labels, scaling of inputs wired through dividers, inputs to ignore) applies here as it
// does for every other program reading them.
#include <sensors/error.h>
#include <sensors/sensors.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/host_sensors_backends.h"

namespace corvane::platform {
namespace {

// The library keeps one configuration and one chip list per process: every service object shares
// this session, under this lock. It stays open while its configuration stays the same, so a view
// that reads every second does not parse the configuration and scan the chips each time.
std::mutex gSessionLock;
bool gSessionOpen = false;
std::filesystem::path gSessionConfiguration;
// What the library's parser complained of first during the last start (it would print it
// otherwise); the file is empty when the library was handed the file rather than its name.
struct ParseComplaint {
  bool made = false;
  std::string file, what;
  int line = 0;
} gParseComplaint;

void noteParseError(const char* what, const char* file, int line) {
  if (gParseComplaint.made) return;  // the first complaint is the one to fix
  gParseComplaint = {true, file != nullptr ? file : "", what != nullptr ? what : "parse error", line};
}
void onParseError(const char* what, int line) { noteParseError(what, nullptr, line); }
void onParseErrorInFile(const char* what, const char* file, int line) { noteParseError(what, file, line); }

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// Opens the session for `configuration` unless it is open already; false with `error` when the
// file cannot be read or does not parse. Call with the lock held.
bool openSession(const std::filesystem::path& configuration, std::string& error) {
  if (gSessionOpen && gSessionConfiguration == configuration) return true;
  if (gSessionOpen) sensors_cleanup();
  gSessionOpen = false;
  std::unique_ptr<std::FILE, FileCloser> file;
  if (!configuration.empty()) {
    file.reset(std::fopen(configuration.c_str(), "re"));
    if (!file) {
      error = configuration.string() + ": " + std::strerror(errno);
      return false;
    }
  }
  gParseComplaint = {};
  sensors_parse_error = onParseError;
  sensors_parse_error_wfn = onParseErrorInFile;
  const int status = sensors_init(file.get());
  const auto& complaint = gParseComplaint;
  // The parser skips a line it cannot read and starts anyway; a configuration the user wrote is
  // refused instead, with the line to fix, rather than half applied.
  if (complaint.made || (status != 0 && status != -SENSORS_ERR_KERNEL)) {
    if (status == 0) sensors_cleanup();
    const std::string name = !complaint.file.empty()    ? complaint.file
                             : !configuration.empty() ? configuration.string()
                                                      : "the sensor configuration";
    error = complaint.made ? name + ":" + std::to_string(complaint.line) + ": " + complaint.what
                           : name + ": " + sensors_strerror(status);
    return false;
  }
  // No sysfs, or no readable monitor class in it: a host without monitors, not a failure.
  gSessionOpen = status == 0;
  gSessionConfiguration = configuration;
  if (!gSessionOpen) sensors_cleanup();
  return true;
}

// Which inputs of a feature give its value and its limits, the first present one winning (an
// unused place is SENSORS_SUBFEATURE_UNKNOWN, which no feature has).
using Choices = std::array<sensors_subfeature_type, 2>;
constexpr auto kNone = SENSORS_SUBFEATURE_UNKNOWN;
struct Inputs {
  HostSensorKind kind;
  Choices value, minimum, maximum;
};

std::optional<Inputs> inputsOf(sensors_feature_type type) {
  switch (type) {
    case SENSORS_FEATURE_TEMP:
      return Inputs{HostSensorKind::kTemperature, {SENSORS_SUBFEATURE_TEMP_INPUT, kNone},
                    {SENSORS_SUBFEATURE_TEMP_MIN, kNone}, {SENSORS_SUBFEATURE_TEMP_MAX, SENSORS_SUBFEATURE_TEMP_CRIT}};
    case SENSORS_FEATURE_FAN:
      return Inputs{HostSensorKind::kFan, {SENSORS_SUBFEATURE_FAN_INPUT, kNone}, {SENSORS_SUBFEATURE_FAN_MIN, kNone},
                    {SENSORS_SUBFEATURE_FAN_MAX, kNone}};
    case SENSORS_FEATURE_IN:
      return Inputs{HostSensorKind::kVoltage, {SENSORS_SUBFEATURE_IN_INPUT, kNone}, {SENSORS_SUBFEATURE_IN_MIN, kNone},
                    {SENSORS_SUBFEATURE_IN_MAX, kNone}};
    case SENSORS_FEATURE_CURR:
      return Inputs{HostSensorKind::kCurrent, {SENSORS_SUBFEATURE_CURR_INPUT, kNone},
                    {SENSORS_SUBFEATURE_CURR_MIN, kNone}, {SENSORS_SUBFEATURE_CURR_MAX, kNone}};
    case SENSORS_FEATURE_POWER:
      // Many meters report only an average over their own interval.
      return Inputs{HostSensorKind::kPower, {SENSORS_SUBFEATURE_POWER_INPUT, SENSORS_SUBFEATURE_POWER_AVERAGE},
                    {SENSORS_SUBFEATURE_POWER_MIN, kNone}, {SENSORS_SUBFEATURE_POWER_MAX, SENSORS_SUBFEATURE_POWER_CAP}};
    default: return std::nullopt;  // energy, humidity, alarms: no category shows them
  }
}

// The first of `types` the feature has: absent when it has none, NaN when that one cannot be read.
std::optional<double> valueOf(const sensors_chip_name* chip, const sensors_feature* feature, const Choices& types) {
  for (const auto type : types) {
    const sensors_subfeature* input = type == kNone ? nullptr : sensors_get_subfeature(chip, feature, type);
    if (input == nullptr) continue;
    double value = 0;
    if ((input->flags & SENSORS_MODE_R) == 0 || sensors_get_value(chip, input->number, &value) != 0) {
      return std::numeric_limits<double>::quiet_NaN();
    }
    return value;
  }
  return std::nullopt;
}

std::optional<double> limitOf(const sensors_chip_name* chip, const sensors_feature* feature, const Choices& types) {
  const auto value = valueOf(chip, feature, types);
  return value && !std::isnan(*value) ? value : std::nullopt;
}

std::string chipNameOf(const sensors_chip_name* chip) {
  char name[256];
  const int length = sensors_snprintf_chip_name(name, sizeof name, chip);
  return length > 0 ? std::string(name, std::min<std::size_t>(static_cast<std::size_t>(length), sizeof name - 1))
                    : std::string(chip->prefix != nullptr ? chip->prefix : "chip");
}

class LibsensorsHostSensors final : public HostSensors {
 public:
  bool readings(std::vector<HostSensorReading>& out, std::string& error,
                const std::filesystem::path& configuration) const override {
    out.clear();
    std::lock_guard lock(gSessionLock);
    if (!openSession(configuration, error)) return false;
    if (!gSessionOpen) return true;
    // The library names every chip without a bus the same way ("acpitz-virtual-0"). Chips that
    // share a name take their monitor folder's name too, all of them, so that every key is
    // unique and does not depend on the order the folder lists them in.
    std::map<std::string, int> named;
    int chipIndex = 0;
    while (const sensors_chip_name* chip = sensors_get_detected_chips(nullptr, &chipIndex)) ++named[chipNameOf(chip)];
    chipIndex = 0;
    while (const sensors_chip_name* chip = sensors_get_detected_chips(nullptr, &chipIndex)) {
      std::string chipName = chipNameOf(chip);
      if (named[chipName] > 1 && chip->path != nullptr) {
        chipName += "@" + std::filesystem::path(chip->path).filename().string();
      }
      int featureIndex = 0;
      while (const sensors_feature* feature = sensors_get_features(chip, &featureIndex)) {
        const auto inputs = inputsOf(feature->type);
        if (!inputs) continue;
        const auto value = valueOf(chip, feature, inputs->value);
        if (!value) continue;  // limits alone, nothing to show
        HostSensorReading reading;
        reading.chip = chipName;
        reading.feature = feature->name;
        std::unique_ptr<char, decltype(&std::free)> label(sensors_get_label(chip, feature), &std::free);
        reading.label = label ? label.get() : feature->name;
        reading.kind = inputs->kind;
        reading.value = *value;
        reading.minimum = limitOf(chip, feature, inputs->minimum);
        reading.maximum = limitOf(chip, feature, inputs->maximum);
        out.push_back(std::move(reading));
      }
    }
    return true;
  }
};

}  // namespace

std::shared_ptr<HostSensors> nativeHostSensors() { return std::make_shared<LibsensorsHostSensors>(); }

}  // namespace corvane::platform
