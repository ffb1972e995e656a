#include "corvane/platform/displays.h"

#include "corvane/platform/platform.h"
#include "platform/displays_backends.h"

namespace corvane::platform {

std::shared_ptr<Displays> Displays::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    std::string model;
    if (machine != nullptr) {
      if (auto found = machine->sysctl.find("hw.model"); found != machine->sysctl.end() && found->is_string()) {
        model = found->get<std::string>();
      }
    }
    // A profile without a display list gets the default of its kind.
    return sim::fixedDisplays(sim::displaysOfMachine(machine != nullptr ? machine->displays : nlohmann::json(), model));
  }
  return nativeDisplays();
}

}  // namespace corvane::platform
