// The HID event system of a recorded machine.
#pragma once

#include <memory>
#include <vector>

#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/machine_profile.h"

namespace corvane::platform {
class SimSmcDriver;
}

namespace corvane::platform::sim {

// Answers the two sensor classes from the profile's "hid" lists: temperatures for usage page
// 0xFF00 / usage 5 with event type 15, voltages for 0xFF08 / 3 with event type 25. A list that
// is empty, an unknown class, or a machine without "hid" lists no services. A service asked for
// another event type has a product but no value, as a real service without such an event.
class SimHidEventSystem final : public HidEventSystem {
 public:
  // `driver`: the simulated SMC whose dynamics move the temperatures (null: none). It belongs
  // to the same platform, which outlives its services.
  explicit SimHidEventSystem(std::shared_ptr<const MachineProfile> profile, const SimSmcDriver* driver = nullptr);

  bool present() const override;
  bool copyServices(int usagePage, int usage, int eventType, std::vector<HidService>& into) const override;

 private:
  std::shared_ptr<const MachineProfile> profile_;
  const SimSmcDriver* driver_;
};

}  // namespace corvane::platform::sim
