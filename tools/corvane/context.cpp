// What every command shares, apart from the command line: the machine a command runs on, and the
// listing lines that name it. Both programs, corvane and its daemon, build this file.
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/sim_dynamics.h"
#include "corvane/smc/smc_value.h"

namespace corvane::cli {

namespace {

bool startDynamics(Context& context) {
  platform::SimDynamicsOptions options;
  options.clock = [] { return dispatch::now(); };
  options.codec = smc::simValueCodec();
  if (platform::enableSimDynamics(platform::current(), std::move(options))) return true;
  std::fprintf(stderr, "%s: --dynamics needs a simulated machine, and this host's SMC is real\n",
               context.program.c_str());
  context.exitCode = kExitBadInput;
  return false;
}

}  // namespace

bool Context::installPlatform() {
  if (machine.empty()) {
    platform::NativeOptions options;
    if (!applesmc.empty()) {
      // Named on purpose: a folder without the driver's files is a mistake, not a reason to
      // fall back to the simulated machine.
      std::error_code ec;
      if (!std::filesystem::is_regular_file(std::filesystem::path(applesmc) / "key_count", ec)) {
        std::fprintf(stderr, "%s: no applesmc driver files in '%s' (key_count is missing)\n", program.c_str(),
                     applesmc.c_str());
        exitCode = kExitBadInput;
        return false;
      }
      options.applesmcRoot = applesmc;
    }
    platform::install(platform::native(options));
    return !dynamics || startDynamics(*this);
  }
  std::string error;
  auto profile = platform::resolveMachine(machine, &error);
  if (!profile) {
    std::fprintf(stderr, "%s: %s\n", program.c_str(), error.c_str());
    exitCode = kExitBadInput;
    return false;
  }
  platform::SimulatedOptions options;
  // Recorded for the helper tool only when this process writes through it: a listing leaves
  // no files behind.
  options.announce = false;
  // A profile file is recorded by its absolute path, so the helper tool finds it from anywhere;
  // a built-in machine by its own spelling of the name.
  std::error_code ec;
  options.source = platform::isProfileFileName(machine) ? std::filesystem::absolute(machine, ec).string()
                                                        : profile->name;
  platform::install(platform::simulated(std::move(profile), options));
  return !dynamics || startDynamics(*this);
}

void useSessionBus() {
  platform::Platform& installed = platform::current();
  if (!installed.simulated()) return;
  auto host = platform::native();
  installed.provide<platform::GlobalNotifications>(
      host->service<platform::GlobalNotifications>().shared_from_this());
}

nlohmann::ordered_json machineJson() {
  const platform::Platform& installed = platform::current();
  if (const auto& machine = installed.machine()) return {{"name", machine->name}, {"simulated", true}};
  std::string model = installed.service<platform::KernelValues>().valueByName("hw.model").value_or("");
  while (!model.empty() && model.back() == '\0') model.pop_back();
  return {{"name", model}, {"simulated", false}};
}

void printMachineLine() {
  const auto& machine = platform::current().machine();
  if (!machine) return;
  std::printf("Simulated machine: %s%s\n", machine->name.c_str(),
              platform::current().simulated() ? "" : " (this host has no SMC)");
}

}  // namespace corvane::cli
