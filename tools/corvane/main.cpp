// corvane: the command-line face of the core library.
#include <cstdio>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/sim_dynamics.h"
#include "corvane/smc/smc_value.h"
#include "corvane/util/error.h"

namespace corvane::cli {

namespace {

bool startDynamics(Context& context) {
  platform::SimDynamicsOptions options;
  options.clock = [] { return dispatch::now(); };
  options.codec = smc::simValueCodec();
  if (platform::enableSimDynamics(platform::current(), std::move(options))) return true;
  std::fprintf(stderr, "corvane: --dynamics needs a simulated machine, and this host's SMC is real\n");
  context.exitCode = kExitBadInput;
  return false;
}

}  // namespace

bool Context::installPlatform() {
  if (machine.empty()) {
    platform::install(platform::native());
    return !dynamics || startDynamics(*this);
  }
  std::string error;
  auto profile = platform::resolveMachine(machine, &error);
  if (!profile) {
    std::fprintf(stderr, "corvane: %s\n", error.c_str());
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

namespace {

int run(int argc, char** argv) {
  using namespace corvane::cli;
  CLI::App app{"Corvane: sensors, fans and the SMC of a Mac, or of a recorded one"};
  app.require_subcommand(0, 1);
  app.footer("Alone in a terminal, corvane shows a live view of the sensors and fans (arrows scroll, q quits); "
             "piped, it prints them once.");
  app.fallthrough();  // "corvane smc list --machine X" as well as "corvane --machine X smc list"
  Context context;
  app.set_version_flag("--version", "corvane " CORVANE_VERSION, "Print the version and exit");
  app.add_option("--machine", context.machine,
                 "Simulate a recorded machine. NAME is a built-in machine (letter case ignored; "
                 "`corvane profile list` shows them); a value with a '/' or ending in .json is a "
                 "profile FILE (./NAME for a file in this folder)")
      ->type_name("NAME|FILE");
  app.add_flag("--dynamics", context.dynamics,
               "Let the simulated machine move: temperatures follow this host's CPU load with a lag, fans "
               "ramp toward their targets (without it every read gives the recorded value)");
  registerSmcCommands(app, context);
  registerProfileCommands(app, context);
  registerSensorCommands(app, context);
  registerSettingsCommands(app, context);
  registerDbCommands(app, context);
  registerGraphCommand(app, context);
  registerSimulateCommand(app, context);
  registerDaemonCommands(app, context);
  registerInfoCommand(app, context);
  registerCpuCommand(app, context);
  registerFanCommands(app, context);
  registerHelperCommand(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help and --version
    std::fprintf(stderr, "corvane: %s (see corvane --help)\n", e.what());
    return kExitBadInput;
  }
  if (app.get_subcommands().empty()) {
    return runDefaultView(context);
  }
  return context.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  corvane::errors::installLastResortHandler("corvane");
  try {
    return run(argc, argv);
  } catch (...) {
    return corvane::errors::reportInternalError("corvane");
  }
}
