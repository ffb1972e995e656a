#include "corvane/platform/kernel_values.h"

#include "corvane/platform/platform.h"
#include "platform/kernel_values_backends.h"

namespace corvane::platform {

std::shared_ptr<KernelValues> KernelValues::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    return sim::kernelValuesFromSysctl(machine != nullptr ? machine->sysctl : nlohmann::json::object());
  }
  return nativeKernelValues();
}

std::shared_ptr<KernelValues> KernelValues::host() { return nativeKernelValues(); }

}  // namespace corvane::platform
