#include "corvane/platform/hid_event_system.h"

#include "corvane/platform/platform.h"
#include "platform/hid_event_system_backends.h"
#include "platform/sim/sim_smc_driver.h"

namespace corvane::platform {

std::shared_ptr<HidEventSystem> HidEventSystem::create(const Platform& platform) {
  // A recorded machine answers for HID wherever it answers for the SMC: a Linux host has
  // neither, and the two must describe the same machine.
  if (platform.machine() != nullptr) {
    return sim::hidEventSystemFromProfile(platform.machine(), dynamic_cast<const SimSmcDriver*>(&platform.smc()));
  }
  return nativeHidEventSystem();
}

std::optional<std::vector<HidService>> HidEventSystem::services(int usagePage, int usage, int eventType) const {
  std::vector<HidService> list;
  if (!copyServices(usagePage, usage, eventType, list)) return std::nullopt;
  return list;
}

}  // namespace corvane::platform
