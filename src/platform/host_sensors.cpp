#include "corvane/platform/host_sensors.h"

#include "corvane/platform/platform.h"
#include "platform/host_sensors_backends.h"

namespace corvane::platform {

std::shared_ptr<HostSensors> HostSensors::create(const Platform& platform) {
  // A recorded Mac is not the computer running the program: its own chips are not part of it.
  if (platform.simulated()) return sim::noHostSensors();
  return nativeHostSensors();
}

}  // namespace corvane::platform
