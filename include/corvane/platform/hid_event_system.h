// The HID event system: the temperature and voltage services of an Apple-silicon Mac.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// Usage page, usage and event type of the two classes of sensor services.
inline constexpr int kHidTemperatureUsagePage = 0xFF00;
inline constexpr int kHidTemperatureUsage = 5;
inline constexpr int kHidTemperatureEventType = 15;
inline constexpr int kHidVoltageUsagePage = 0xFF08;
inline constexpr int kHidVoltageUsage = 3;
inline constexpr int kHidVoltageEventType = 25;

// One matching service as the event system describes it at the moment of the query.
struct HidService {
  // The service's "Product" property; absent when the service has none.
  std::optional<std::string> product;
  // The floating-point field (eventType << 16) of the service's current event of the queried
  // type; absent when the service has no such event.
  std::optional<double> value;
};

// Lists the sensor services that match a usage page and usage, each with its product name and
// its current reading. Every query is a fresh look at the hardware. Thread-safe.
class HidEventSystem {
 public:
  virtual ~HidEventSystem() = default;

  // Makes the service for `platform`: the recorded machine's HID lists when the platform has a
  // recorded machine (simulated, or a host without an SMC of its own), else the host's event
  // system (on a Mac; elsewhere an event system without services).
  static std::shared_ptr<HidEventSystem> create(const Platform& platform);

  // True when this machine has sensor services at all (an Apple-silicon Mac).
  virtual bool present() const = 0;

  // Copies the services matching `usagePage` and `usage` into `into` (replacing its contents,
  // reusing its storage), each with its current event of `eventType`. False, with `into`
  // emptied, when the event system lists no matching services.
  virtual bool copyServices(int usagePage, int usage, int eventType, std::vector<HidService>& into) const = 0;

  // The same as a new list: nullopt when no services match.
  std::optional<std::vector<HidService>> services(int usagePage, int usage, int eventType) const;
};

}  // namespace corvane::platform
