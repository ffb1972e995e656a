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

void printText(const SensorList& sensors) {
  printMachineLine();
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
  if (first) std::printf("No sensors\n");
}

int listSensors(Context& context, const SensorOptions& options) {
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
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& sensor : shown) rows.push_back(toJson(*sensor));
    const nlohmann::ordered_json listing = {{"machine", machineJson()}, {"sensors", std::move(rows)}};
    std::printf("%s\n", json_text::dump(listing, 1).c_str());
  } else {
    printText(shown);
  }
  return kExitOk;
}

}  // namespace

void registerSensorCommands(CLI::App& app, Context& context) {
  CLI::App* sensors = app.add_subcommand("sensors", "Every sensor of the machine, named and read once");
  sensors->footer("With --json: an object with \"machine\" (its name, and whether it is simulated) and \"sensors\".");
  auto options = std::make_shared<SensorOptions>();
  sensors->add_flag("--all", options->all, "Also unknown and HID sensors");
  sensors->add_flag("--json", options->json, "Print a JSON array of the sensor records");
  sensors->callback([&context, options] { context.exitCode = listSensors(context, *options); });
}

int runSensorListing(Context& context) { return listSensors(context, SensorOptions{}); }

}  // namespace corvane::cli
