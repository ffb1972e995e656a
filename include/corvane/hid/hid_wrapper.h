// The HID temperature and voltage sensors of Apple-silicon Macs, as product name → value
// dictionaries and as raw sensor records.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/hid_event_system.h"
#include "corvane/sensors/hw_sensor.h"

namespace corvane {

// Product name → current value of every service of one class (usage page, usage), read from
// events of `eventType`; a later service with the same product overwrites an earlier one, and
// services without a product or an event are left out. Nullopt when no service matches.
// Each call is a fresh scan of the installed platform's event system.
std::optional<std::map<std::string, double>> AppleSiliconSensors(int usagePage, int usage, int eventType);

// Raw HID sensor records and single values for the sensor reader. One wrapper is used from one
// queue at a time. Every lookup scans the event system afresh, except inside a pass
// (beginPass … endPass), where each class of sensor is scanned once on first use, so a refresh
// of n sensors costs one scan per class instead of n.
class HIDWrapper {
 public:
  HIDWrapper() = default;
  HIDWrapper(const HIDWrapper&) = delete;
  HIDWrapper& operator=(const HIDWrapper&) = delete;

  // The dictionary of temperatures or voltages; nullopt for any other type and when the event
  // system lists no services of the class.
  std::optional<std::map<std::string, double>> getSensorsDictByType(SensorType type) const;

  // One record per temperature sensor and then per voltage sensor, in dictionary order: key,
  // name and full name the product name, limits 0 … 110 for temperatures (0 … 0 otherwise),
  // group unknown, every platform, source HID.
  std::vector<std::shared_ptr<HWSensor>> getAllSensors() const;

  // The current value of the sensor named `name` of sensor type `type`; nullopt when it is not
  // there (any more) or the type has no HID class.
  std::optional<double> getSensorValueByKey(std::string_view name, SensorType type);

  // Starts a read pass: from now until endPass each class is scanned at most once. Calling it
  // again starts a new pass (values are read afresh).
  void beginPass();
  // Ends the pass; lookups scan afresh again.
  void endPass();

 private:
  struct PassScan {
    bool scanned = false;
    bool found = false;
    std::vector<platform::HidService> services;  // kept between passes for its storage
  };

  bool inPass_ = false;
  std::array<PassScan, 2> passScans_;  // temperatures, voltages
  std::vector<platform::HidService> scratch_;
};

}  // namespace corvane
