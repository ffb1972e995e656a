// corvane: the command-line face of the core library.
#include <cstdio>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "corvane/platform/platform.h"

namespace corvane::cli {

bool Context::installPlatform() {
  if (machine.empty()) {
    platform::install(platform::native());
    return true;
  }
  std::string error;
  auto profile = platform::resolveMachine(machine, &error);
  if (!profile) {
    std::fprintf(stderr, "corvane: %s\n", error.c_str());
    exitCode = kExitBadInput;
    return false;
  }
  platform::SimulatedOptions options;
  // A profile file is announced by its absolute path, so the helper tool finds it from anywhere.
  std::error_code ec;
  if (profile->name != machine && std::filesystem::is_regular_file(machine, ec)) {
    options.source = std::filesystem::absolute(machine, ec).string();
  }
  platform::install(platform::simulated(std::move(profile), options));
  return true;
}

}  // namespace corvane::cli

int main(int argc, char** argv) {
  using namespace corvane::cli;
  CLI::App app{"Corvane: sensors, fans and the SMC of a Mac, or of a recorded one"};
  app.require_subcommand(0, 1);
  app.fallthrough();  // "corvane smc list --machine X" as well as "corvane --machine X smc list"
  Context context;
  app.add_option("--machine", context.machine,
                 "Simulate a recorded machine: a built-in profile name or a profile file");
  registerSmcCommands(app, context);
  registerProfileCommands(app, context);
  registerSensorCommands(app, context);
  registerSettingsCommands(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int code = app.exit(e);
    return code == 0 ? 0 : kExitBadInput;
  }
  if (app.get_subcommands().empty()) {
    return runDefaultView(context);
  }
  return context.exitCode;
}
