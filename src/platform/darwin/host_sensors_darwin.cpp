// A Mac reports its sensors through the SMC and HID services; it has no second monitor interface.
#include "platform/host_sensors_backends.h"

namespace corvane::platform {

std::shared_ptr<HostSensors> nativeHostSensors() {
  return sim::unsupportedHostSensors("this system reports its sensors through the SMC only");
}

}  // namespace corvane::platform
