// corvane: the command-line face of the core library.
#include <cstdio>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "corvane/util/error.h"

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
  app.add_option("--applesmc", context.applesmc,
                 "On Linux, read the SMC through the applesmc driver's files in ROOT rather than at their own "
                 "place (fan changes still go through corvane-smc, which only ever uses the driver's own place)")
      ->type_name("ROOT")
      ->excludes("--machine");
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
  registerMenuCommand(app, context);
  registerBarCommand(app, context);
  registerAlertsCommands(app, context);
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
