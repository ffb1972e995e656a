#include "corvane/platform/running_applications.h"

#include "corvane/platform/platform.h"
#include "platform/running_applications_backends.h"
#include "platform/sim/sim_running_applications.h"

namespace corvane::platform {

std::shared_ptr<RunningApplications> RunningApplications::create(const Platform& platform) {
  // A simulated machine must never start or signal the host's processes.
  if (platform.simulated()) return std::make_shared<sim::InMemoryRunningApplications>();
  return nativeRunningApplications();
}

}  // namespace corvane::platform
