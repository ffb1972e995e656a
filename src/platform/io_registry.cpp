#include "corvane/platform/io_registry.h"

#include "corvane/platform/platform.h"
#include "platform/io_registry_backends.h"

namespace corvane::platform {

std::shared_ptr<IORegistry> IORegistry::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    return sim::ioRegistryFromIoreg(machine != nullptr ? machine->ioreg : nlohmann::json());
  }
  return nativeIORegistry();
}

}  // namespace corvane::platform
