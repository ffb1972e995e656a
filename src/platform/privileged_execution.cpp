#include "corvane/platform/privileged_execution.h"

#include "corvane/platform/platform.h"
#include "platform/privileged_execution_backends.h"
#include "platform/sim/recorded_privileged_execution.h"

namespace corvane::platform {

std::shared_ptr<PrivilegedExecution> PrivilegedExecution::create(const Platform& platform) {
  if (platform.simulated()) return std::make_shared<sim::RecordedPrivilegedExecution>();
  return nativePrivilegedExecution();
}

}  // namespace corvane::platform
