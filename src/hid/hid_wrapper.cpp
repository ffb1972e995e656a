#include "corvane/hid/hid_wrapper.h"

#include "corvane/platform/platform.h"

namespace corvane {
namespace {

// Usage page, usage and event type of one class of sensor service.
struct HidClass {
  int usagePage;
  int usage;
  int eventType;
};

constexpr HidClass kTemperatures{platform::kHidTemperatureUsagePage, platform::kHidTemperatureUsage,
                                 platform::kHidTemperatureEventType};
constexpr HidClass kVoltages{platform::kHidVoltageUsagePage, platform::kHidVoltageUsage,
                             platform::kHidVoltageEventType};

// The class of a sensor type and its slot in a pass; nullopt for types without HID sensors.
std::optional<std::size_t> classSlot(SensorType type) {
  if (type == SensorType::kTemperature) return 0;
  if (type == SensorType::kVoltage) return 1;
  return std::nullopt;
}

const HidClass& classAt(std::size_t slot) { return slot == 0 ? kTemperatures : kVoltages; }

bool scan(const HidClass& hidClass, std::vector<platform::HidService>& into) {
  const auto& events = platform::current().service<platform::HidEventSystem>();
  return events.copyServices(hidClass.usagePage, hidClass.usage, hidClass.eventType, into);
}

// The value a dictionary built from `services` holds for `name`: the last service with that
// product and a reading wins, as later services overwrite earlier ones.
std::optional<double> valueNamed(const std::vector<platform::HidService>& services, std::string_view name) {
  for (auto it = services.rbegin(); it != services.rend(); ++it) {
    if (it->product && it->value && *it->product == name) return it->value;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::map<std::string, double>> AppleSiliconSensors(int usagePage, int usage, int eventType) {
  std::vector<platform::HidService> services;
  if (!scan(HidClass{usagePage, usage, eventType}, services)) return std::nullopt;
  std::map<std::string, double> values;
  for (auto& service : services) {
    if (service.product && service.value) values.insert_or_assign(std::move(*service.product), *service.value);
  }
  return values;
}

std::optional<std::map<std::string, double>> HIDWrapper::getSensorsDictByType(SensorType type) const {
  const auto slot = classSlot(type);
  if (!slot) return std::nullopt;
  const HidClass& hidClass = classAt(*slot);
  return AppleSiliconSensors(hidClass.usagePage, hidClass.usage, hidClass.eventType);
}

std::vector<std::shared_ptr<HWSensor>> HIDWrapper::getAllSensors() const {
  std::vector<std::shared_ptr<HWSensor>> sensors;
  for (const SensorType type : {SensorType::kTemperature, SensorType::kVoltage}) {
    const auto values = getSensorsDictByType(type);
    if (!values) continue;
    const double maxLimit = type == SensorType::kTemperature ? 110.0 : 0.0;
    for (const auto& [name, value] : *values) {
      sensors.push_back(HWSensor::instanceWithKey({.key = name,
                                                   .name = name,
                                                   .value = value,
                                                   .maxLimitValue = maxLimit,
                                                   .type = type,
                                                   .sourceType = SourceType::kHID}));
    }
  }
  return sensors;
}

std::optional<double> HIDWrapper::getSensorValueByKey(std::string_view name, SensorType type) {
  const auto slot = classSlot(type);
  if (!slot) return std::nullopt;
  if (!inPass_) {
    if (!scan(classAt(*slot), scratch_)) return std::nullopt;
    return valueNamed(scratch_, name);
  }
  PassScan& pass = passScans_[*slot];
  if (!pass.scanned) {
    pass.found = scan(classAt(*slot), pass.services);
    pass.scanned = true;
  }
  return pass.found ? valueNamed(pass.services, name) : std::nullopt;
}

void HIDWrapper::beginPass() {
  inPass_ = true;
  for (auto& pass : passScans_) pass.scanned = false;
}

void HIDWrapper::endPass() {
  inPass_ = false;
  for (auto& pass : passScans_) pass.scanned = false;
}

}  // namespace corvane
