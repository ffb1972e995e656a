#include "platform/sim/sim_hid_event_system.h"

#include "platform/hid_event_system_backends.h"
#include "platform/sim/sim_dynamics.h"
#include "platform/sim/sim_smc_driver.h"

namespace corvane::platform::sim {

SimHidEventSystem::SimHidEventSystem(std::shared_ptr<const MachineProfile> profile, const SimSmcDriver* driver)
    : profile_(std::move(profile)), driver_(driver) {}

bool SimHidEventSystem::present() const { return profile_ != nullptr && profile_->hasHid; }

bool SimHidEventSystem::copyServices(int usagePage, int usage, int eventType, std::vector<HidService>& into) const {
  const std::vector<HidReading>* readings = nullptr;
  int recordedEventType = 0;
  if (present()) {
    if (usagePage == kHidTemperatureUsagePage && usage == kHidTemperatureUsage) {
      readings = &profile_->hidTemperature;
      recordedEventType = kHidTemperatureEventType;
    } else if (usagePage == kHidVoltageUsagePage && usage == kHidVoltageUsage) {
      readings = &profile_->hidVoltage;
      recordedEventType = kHidVoltageEventType;
    }
  }
  if (readings == nullptr || readings->empty()) {
    into.clear();
    return false;
  }
  // Assigning over the previous entries keeps their string storage, so a caller that reuses
  // its list scans without allocating.
  into.resize(readings->size());
  SimDynamics* dynamics = driver_ != nullptr && readings == &profile_->hidTemperature ? driver_->dynamics() : nullptr;
  for (std::size_t i = 0; i < readings->size(); ++i) {
    HidService& service = into[i];
    if (!service.product) service.product.emplace();
    service.product->assign((*readings)[i].name);
    if (eventType == recordedEventType) {
      const double recorded = (*readings)[i].value;
      service.value = dynamics != nullptr ? dynamics->temperature("hid " + (*readings)[i].name, recorded) : recorded;
    } else {
      service.value.reset();
    }
  }
  return true;
}

std::shared_ptr<HidEventSystem> hidEventSystemFromProfile(std::shared_ptr<const MachineProfile> profile,
                                                          const SimSmcDriver* driver) {
  return std::make_shared<SimHidEventSystem>(std::move(profile), driver);
}

}  // namespace corvane::platform::sim
