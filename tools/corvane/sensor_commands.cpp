// `corvane sensors` (and `corvane` alone): every sensor of the machine, named and read once.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/host_sensors.h"
#include "corvane/sensors/sensor_catalogue.h"
#include "corvane/sensors/sensor_reader.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

struct SensorOptions {
  bool all = false;   // unknown and HID sensors too
  bool json = false;
  bool host = false;  // this computer's own monitors instead of the Mac's sensors
  std::string configuration;  // with host: a sensor configuration file instead of the user's
};

using SensorList = HWSensorReader::SensorList;

// Keeps the list the reader delivers, and ends the main loop that waited for it.
class ListReceiver : public HWSensorReader::Delegate {
 public:
  void readerDidReadWithResult(HWBaseReader<SensorList>&, const SensorList& list) override {
    sensors = list;
    delivered = true;
    dispatch::stopMainQueue();
  }
  bool delivered = false;
  SensorList sensors;
};

// A listed sensor as the formatter sees it: the value in the user's units (a fan as a share of
// its range when fans show as a percentage), no status yet (statuses come with the store).
class ListedSensor final : public FormattableSensor {
 public:
  explicit ListedSensor(const HWSensor& sensor) : sensor_(sensor) {}
  SensorType categoryType() const override { return sensor_.type(); }
  double convertedValue() const override {
    if (sensor_.type() == SensorType::kTemperature) return HWValueConverter::convertedTemp(sensor_.value());
    if (sensor_.type() == SensorType::kFan && currentUnitPreferences().fanValueType == 1) {
      const double span = sensor_.maxLimitValue() - sensor_.minLimitValue();
      if (span <= 0) return 0;
      return std::clamp((sensor_.value() - sensor_.minLimitValue()) / span, 0.0, 1.0);
    }
    return sensor_.value();
  }
  double minValue() const override { return sensor_.minLimitValue(); }
  double maxValue() const override { return sensor_.maxLimitValue(); }
  int64_t statusEnum() const override { return 0; }
  bool isCPUProximitySensor() const override { return catalogue::isCPUProximityKey(sensor_.key()); }

 private:
  const HWSensor& sensor_;
};

std::string formatValue(const HWSensor& sensor) {
  if (!std::isfinite(sensor.value())) return "-";
  return HWSensorFormatter::fullStringValueFromSensor(ListedSensor(sensor));
}

nlohmann::ordered_json number(double value) {
  return std::isfinite(value) ? nlohmann::ordered_json(value) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json toJson(const HWSensor& sensor) {
  return {{"key", sensor.key()},
          {"name", sensor.name()},
          {"fullName", sensor.fullName()},
          {"value", number(sensor.value())},
          {"minLimitValue", number(sensor.minLimitValue())},
          {"maxLimitValue", number(sensor.maxLimitValue())},
          {"type", toNumber(sensor.type())},
          {"group", toNumber(sensor.group())},
          {"platform", sensor.platform()},
          {"sourceType", toNumber(sensor.sourceType())},
          {"average", sensor.average()}};
}

// The sensors under a heading per category, in type order; false when there was none to print.
bool printCategories(const SensorList& sensors) {
  std::size_t nameWidth = 4;
  std::size_t keyWidth = 3;
  for (const auto& sensor : sensors) {
    nameWidth = std::max(nameWidth, sensor->name().size());
    keyWidth = std::max(keyWidth, sensor->key().size());
  }
  bool first = true;
  for (const SensorType type : {SensorType::kTemperature, SensorType::kFan, SensorType::kVoltage,
                                SensorType::kCurrent, SensorType::kPower}) {
    bool header = false;
    for (const auto& sensor : sensors) {
      if (sensor->type() != type) continue;
      if (!header) {
        std::printf("%s%.*s\n", first ? "" : "\n", static_cast<int>(sensorTypeName(type).size()),
                    sensorTypeName(type).data());
        header = true;
        first = false;
      }
      std::printf("  %-*s  %-*s  %s\n", static_cast<int>(nameWidth), sensor->name().c_str(),
                  static_cast<int>(keyWidth), sensor->key().c_str(), formatValue(*sensor).c_str());
    }
  }
  return !first;
}

constexpr const char* kHostHeading = "Host sensors";

void printText(const SensorList& sensors, const SensorList& host) {
  printMachineLine();
  if (!printCategories(sensors)) std::printf("No sensors\n");
  // Only a computer with monitors of its own adds the section, so a listing elsewhere stays as it was.
  if (!host.empty()) {
    std::printf("\n%s\n", kHostHeading);
    printCategories(host);
  }
}

nlohmann::ordered_json sensorRows(const SensorList& sensors) {
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  for (const auto& sensor : sensors) rows.push_back(toJson(*sensor));
  return rows;
}

int listHostSensors(Context& context, const SensorOptions& options) {
  if (!context.machine.empty()) {
    std::fprintf(stderr, "corvane: --host lists this computer's own sensors; it takes no --machine\n");
    return kExitBadInput;
  }
  if (!context.installPlatform()) return context.exitCode;
  settings::installUnitPreferencesHook(std::make_shared<HWPrefData>());
  SensorList sensors;
  std::string error;
  if (!readHostSensors(sensors, error, options.configuration)) {
    std::fprintf(stderr, "corvane: cannot read this computer's sensors: %s\n", error.c_str());
    return options.configuration.empty() ? kExitFailure : kExitBadInput;
  }
  if (options.json) {
    std::printf("%s\n", json_text::dump(nlohmann::ordered_json{{"sensors", sensorRows(sensors)}}, 1).c_str());
  } else if (sensors.empty()) {
    std::printf("%s: none, this computer has no hwmon chips\n", kHostHeading);
  } else {
    std::printf("%s\n", kHostHeading);
    printCategories(sensors);
  }
  return kExitOk;
}

int listSensors(Context& context, const SensorOptions& options) {
  if (options.host) return listHostSensors(context, options);
  if (!context.installPlatform()) return context.exitCode;
  settings::installUnitPreferencesHook(std::make_shared<HWPrefData>());

  auto reader = HWSensorReader::create();
  reader->setShowUnknownSensors(options.all);
  reader->setShowHIDSensors(options.all);
  reader->setShowComputedSensors(true);
  auto receiver = std::make_shared<ListReceiver>();
  reader->setDelegate(receiver);
  // The pass runs here; its delivery waits on the main queue, which runs until it arrives.
  reader->read();
  dispatch::runMainQueue();
  if (!receiver->delivered) {
    std::fprintf(stderr, "corvane: the sensor reader delivered nothing\n");
    return kExitFailure;
  }

  SensorList shown;
  for (const auto& sensor : receiver->sensors) {
    if (reader->shouldRefresh(*sensor)) shown.push_back(sensor);
  }
  if (options.json) {
    const nlohmann::ordered_json listing = {{"machine", machineJson()}, {"sensors", sensorRows(shown)}};
    std::printf("%s\n", json_text::dump(listing, 1).c_str());
  } else {
    SensorList host;
    std::string unused;
    readHostSensors(host, unused);
    printText(shown, host);
  }
  return kExitOk;
}

}  // namespace

void registerSensorCommands(CLI::App& app, Context& context) {
  CLI::App* sensors = app.add_subcommand("sensors", "Every sensor of the machine, named and read once");
  sensors->footer("With --json: an object with \"machine\" (its name, and whether it is simulated) and \"sensors\" "
                  "(with --host: \"sensors\" alone, each of source type 3). Without --json, a computer with hwmon "
                  "chips of its own lists them after the Mac's, under \"Host sensors\".");
  auto options = std::make_shared<SensorOptions>();
  sensors->add_flag("--all", options->all, "Also unknown and HID sensors");
  sensors->add_flag("--json", options->json, "Print a JSON array of the sensor records");
  auto* host = sensors->add_flag("--host", options->host,
                                 "This computer's own hardware monitors (Linux hwmon, with the user's sensor "
                                 "configuration) instead of the Mac's sensors");
  sensors->add_option("--config", options->configuration,
                      "With --host: this sensor configuration file instead of the user's own")
      ->type_name("FILE")
      ->needs(host);
  host->excludes("--all");
  sensors->callback([&context, options] { context.exitCode = listSensors(context, *options); });
}

int runSensorListing(Context& context) { return listSensors(context, SensorOptions{}); }

}  // namespace corvane::cli
