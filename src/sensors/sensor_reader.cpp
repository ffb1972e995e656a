#include "corvane/sensors/sensor_reader.h"

#include <algorithm>
#include <limits>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/platform.h"
#include "corvane/sensors/sensor_catalogue.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/strings.h"

namespace corvane {
namespace {

// What a computed CPU or GPU figure reads when no sensor contributes to it.
constexpr double kNoContributor = -1.0;
constexpr int kPatternNumbers = 64;  // a "%" in a catalogue key stands for 0 … 63

constexpr std::string_view kAverageCPU = "AverageCPU";
constexpr std::string_view kHottestCPU = "HottestCPU";
constexpr std::string_view kAverageGPU = "AverageGPU";
constexpr std::string_view kHottestGPU = "HottestGPU";
constexpr std::string_view kFastestFan = "FastestFan";

// Sort position of a group: unknown sensors after every known group.
std::uint64_t sortRank(SensorGroup group) {
  return group == SensorGroup::kUnknown ? std::numeric_limits<std::uint64_t>::max() : toNumber(group);
}

// Copies what the catalogue knows about a sensor onto a discovered record.
void applyEntry(HWSensor& sensor, const HWSensor& entry, std::string name, std::string fullName) {
  sensor.setName(std::move(name));
  sensor.setFullName(std::move(fullName));
  sensor.setGroup(entry.group());
  sensor.setAverage(entry.average());
}

struct Contributors {
  double sum = 0;
  std::uint64_t count = 0;
  // Starts at the no-contributor value and is replaced while it still holds it, so a first
  // contributor reading -1 does not stick: later, colder contributors replace it.
  double hottest = -1.0;
};

// The averaged temperatures of one group (CPU or GPU) as they stand in `sensors`.
Contributors contributors(const HWSensorReader::SensorList& sensors, SensorGroup group) {
  Contributors found;
  for (const auto& sensor : sensors) {
    if (sensor->group() != group || sensor->type() != SensorType::kTemperature || !sensor->average()) continue;
    const double value = sensor->value();
    found.sum += value;
    ++found.count;
    if (found.hottest == -1.0 || value > found.hottest) found.hottest = value;
  }
  return found;
}

std::shared_ptr<HWSensor> computedTemperature(std::string_view key, const char* label, SensorGroup group,
                                              double value) {
  return HWSensor::instanceWithKey({.key = std::string(key),
                                    .name = label,
                                    .value = value,
                                    .maxLimitValue = 110.0,
                                    .type = SensorType::kTemperature,
                                    .group = group,
                                    .sourceType = SourceType::kComputed});
}

}  // namespace

std::shared_ptr<HWSensorReader> HWSensorReader::create() {
  std::shared_ptr<HWSensorReader> reader(new HWSensorReader());
  reader->smc_->setDelegate(reader);
  return reader;
}

HWSensorReader::HWSensorReader() : smc_(std::make_shared<SMCWrapper>()) {
  // HID sensor services exist only on Apple silicon; elsewhere the reader never touches them.
  if (platform::current().service<platform::HidEventSystem>().present()) hid_ = std::make_unique<HIDWrapper>();
}

void HWSensorReader::smcReadValueFailedWithError(const HWError&) {}

const HWSensorReader::SensorList& HWSensorReader::getAllSensors() {
  if (!allSensors_) allSensors_ = buildList();
  return *allSensors_;
}

HWSensorReader::SensorList HWSensorReader::buildList() {
  SensorList discovered = smc_->getAllSensors();
  const auto device = HWSystemDevice::device();
  const std::uint64_t machinePlatform = device->cpuInfo().platform();
  const auto& gpus = device->gpuInfos();
  const std::vector<HWGPUInfo> noGPUs;
  const auto& gpuList = gpus ? *gpus : noGPUs;
  SensorList entries = catalogue::getDefaultSMCSensors(machinePlatform, catalogue::dedicatedGPUName(gpuList),
                                                       catalogue::dedicatedGPUShortName(gpuList));
  if (hid_) {
    SensorList hidSensors = hid_->getAllSensors();
    discovered.insert(discovered.end(), hidSensors.begin(), hidSensors.end());
    SensorList hidEntries = catalogue::getDefaultHIDSensors();
    entries.insert(entries.end(), hidEntries.begin(), hidEntries.end());
  }

  // Discovered records by key, each key's records in discovery order.
  std::unordered_map<std::string_view, SensorList> byKey;
  for (const auto& sensor : discovered) byKey[sensor->key()].push_back(sensor);
  auto withKey = [&](std::string_view key) -> const SensorList* {
    const auto found = byKey.find(key);
    return found == byKey.end() ? nullptr : &found->second;
  };

  SensorList result;
  // Records compare by identity: a record is in the result, not one equal to it.
  std::unordered_set<const HWSensor*> taken;
  auto take = [&](const std::shared_ptr<HWSensor>& sensor) {
    result.push_back(sensor);
    taken.insert(sensor.get());
  };

  // Exact keys, in catalogue order. A record matched by two entries of one key is taken twice;
  // the catalogue keeps keys unique within a platform.
  for (const auto& entry : entries) {
    const auto* candidates = withKey(entry->key());
    if (candidates == nullptr) continue;
    const auto found = std::find_if(candidates->begin(), candidates->end(),
                                    [](const auto& sensor) { return sensor->isValidValue(); });
    if (found == candidates->end()) continue;
    applyEntry(**found, *entry, entry->name(), entry->fullName());
    take(*found);
  }

  // Patterns, numbered densely over the keys found rather than by the digits in the key.
  for (const auto& entry : entries) {
    if (entry->key().find('%') == std::string::npos) continue;
    int count = 1;
    for (int i = 0; i < kPatternNumbers; ++i) {
      const auto* candidates = withKey(strings::replace(entry->key(), "%", std::to_string(i)));
      if (candidates == nullptr) continue;
      for (const auto& sensor : *candidates) {
        if (taken.count(sensor.get()) != 0 || !sensor->isValidValue()) continue;
        const std::string label = strings::replace(entry->name(), "%", std::to_string(count));
        applyEntry(*sensor, *entry, label, label);
        take(sensor);
        ++count;
      }
    }
  }

  // Whatever the catalogue does not name stays under its key, in group 0.
  for (const auto& sensor : discovered) {
    if (taken.count(sensor.get()) == 0 && sensor->isValidValue()) take(sensor);
  }

  SensorList computed = buildComputedSensorsInSensors(result);
  result.insert(result.end(), computed.begin(), computed.end());

  std::stable_sort(result.begin(), result.end(), [](const auto& a, const auto& b) {
    return sortRank(a->group()) < sortRank(b->group());
  });
  return result;
}

HWSensorReader::SensorList HWSensorReader::buildComputedSensorsInSensors(const SensorList& sensors) {
  SensorList computed;
  const struct {
    std::string_view key;
    const char* label;
    SensorGroup group;
  } temperatures[] = {{kAverageCPU, "Average CPU", SensorGroup::kCPU},
                      {kHottestCPU, "Hottest CPU", SensorGroup::kCPU},
                      {kAverageGPU, "Average GPU", SensorGroup::kGPU},
                      {kHottestGPU, "Hottest GPU", SensorGroup::kGPU}};
  for (const auto& figure : temperatures) {
    const double value = getSensorValueByKey(figure.key, SensorType::kTemperature, SourceType::kComputed, sensors);
    if (value > 0) computed.push_back(computedTemperature(figure.key, figure.label, figure.group, value));
  }

  std::size_t fans = 0;
  std::shared_ptr<HWSensor> fastest;
  for (const auto& sensor : sensors) {
    if (sensor->type() != SensorType::kFan) continue;
    ++fans;
    if (sensor->sourceType() == SourceType::kComputed) continue;
    if (!fastest || sensor->value() > fastest->value()) fastest = sensor;
  }
  if (fans >= 2 && fastest && fastest->value() > 0) {
    computed.push_back(HWSensor::instanceWithKey({.key = std::string(kFastestFan),
                                                  .name = "Fastest Fan",
                                                  .value = fastest->value(),
                                                  .minLimitValue = fastest->minLimitValue(),
                                                  .maxLimitValue = fastest->maxLimitValue(),
                                                  .type = SensorType::kFan,
                                                  .group = SensorGroup::kFans,
                                                  .platform = fastest->platform(),
                                                  .sourceType = SourceType::kComputed}));
  }
  return computed;
}

double HWSensorReader::getSensorValueByKey(std::string_view key, SensorType type, SourceType sourceType,
                                           const SensorList& sensors) {
  return readValueByKey(key, type, sourceType, sensors).value_or(0.0);
}

std::optional<double> HWSensorReader::readValueByKey(std::string_view key, SensorType type, SourceType sourceType,
                                                     const SensorList& sensors) {
  if (sourceType == SourceType::kSMC) return smc_->getSensorValueByKey(key, type);
  if (sourceType == SourceType::kHID) {
    if (!hid_) return std::nullopt;
    return hid_->getSensorValueByKey(key, type);
  }
  if (sourceType != SourceType::kComputed) return 0.0;

  if (type == SensorType::kTemperature) {
    const bool cpu = key == kAverageCPU || key == kHottestCPU;
    const bool gpu = key == kAverageGPU || key == kHottestGPU;
    if (!cpu && !gpu) return kNoContributor;
    const Contributors found = contributors(sensors, cpu ? SensorGroup::kCPU : SensorGroup::kGPU);
    if (key == kHottestCPU || key == kHottestGPU) return found.hottest;
    return found.count >= 1 ? found.sum / static_cast<double>(found.count) : kNoContributor;
  }
  if (type == SensorType::kFan && key == kFastestFan) {
    double fastest = 0.0;
    for (const auto& sensor : sensors) {
      if (sensor->type() == SensorType::kFan && sensor->sourceType() != SourceType::kComputed &&
          sensor->value() > fastest) {
        fastest = sensor->value();
      }
    }
    return fastest;
  }
  return 0.0;
}

bool HWSensorReader::shouldRefresh(const HWSensor& sensor) const {
  if (sensor.sourceType() == SourceType::kHID && !showHIDSensors_) return false;
  if (sensor.sourceType() == SourceType::kComputed && !showComputedSensors_) return false;
  if (sensor.isUnknownSensor() && !showUnknownSensors_) return false;
  return true;
}

void HWSensorReader::refreshValues() {
  const SensorList& sensors = getAllSensors();
  // One scan of the HID services serves the whole pass; the next pass scans afresh.
  if (hid_) hid_->beginPass();
  for (const auto& sensor : sensors) {
    if (!shouldRefresh(*sensor)) continue;
    const auto value = readValueByKey(sensor->key(), sensor->type(), sensor->sourceType(), sensors);
    sensor->setValue(value.value_or(0.0));
    sensor->noteRead(value.has_value());
  }
  if (hid_) hid_->endPass();
}

void HWSensorReader::read() {
  refreshValues();
  dispatch::mainQueue()->async([self = shared_from_this()] {
    self->deliverResult(self->allSensors_.value_or(SensorList()));
  });
}

}  // namespace corvane
