#include "corvane/platform/power_sources.h"

#include "corvane/platform/platform.h"
#include "platform/power_sources_backends.h"

namespace corvane::platform {

std::shared_ptr<PowerSources> PowerSources::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    std::string model;
    if (machine != nullptr) {
      if (auto found = machine->sysctl.find("hw.model"); found != machine->sysctl.end() && found->is_string()) {
        model = found->get<std::string>();
      }
    }
    return sim::fixedPowerSources(
        sim::powerSourcesOfMachine(machine != nullptr ? machine->powerSources : nlohmann::json(), model));
  }
  return nativePowerSources();
}

}  // namespace corvane::platform
