// The backends of HidEventSystem.
#pragma once

#include <memory>

#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/machine_profile.h"

namespace corvane::platform {

class SimSmcDriver;

// The host's event system (defined in the folder of this operating system).
std::shared_ptr<HidEventSystem> nativeHidEventSystem();

namespace sim {

// The services of a recorded machine: its "hid" temperature and voltage lists, in order. A
// machine without "hid" (or null) has no event system at all. Temperatures move with the
// dynamics of `driver` (the same platform's simulated SMC, or null) while they are on.
std::shared_ptr<HidEventSystem> hidEventSystemFromProfile(std::shared_ptr<const MachineProfile> profile,
                                                          const SimSmcDriver* driver = nullptr);

}  // namespace sim
}  // namespace corvane::platform
