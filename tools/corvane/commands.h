// The subcommands of `corvane`, each family in its own file.
#pragma once

#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "corvane/platform/machine_profile.h"

namespace corvane {
class HWDataManager;
}

namespace corvane::cli {

// Exit codes of the program.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the machine answered, but not as asked
inline constexpr int kExitBadInput = 2; // malformed arguments, profiles or dumps

// What every command shares: the chosen machine and where the result goes.
struct Context {
  std::string machine;   // --machine NAME|FILE; empty for the host (or the embedded default)
  bool dynamics = false;  // --dynamics: a simulated machine's temperatures and fans move
  std::string applesmc;   // --applesmc ROOT: the applesmc driver's files elsewhere than their own place
  int exitCode = kExitOk;
  std::string program = "corvane";  // what the messages of installPlatform() begin with

  // Installs the platform for the chosen machine, with dynamics driven by the dispatch clock and
  // the host's CPU load when asked; false (with a message on stderr) when the machine cannot be
  // loaded or cannot move, and then exitCode is kExitBadInput.
  bool installPlatform();
};

// A recorded machine keeps its announcements inside the process, so that a listing needs no bus.
// The commands that talk to other processes (the daemon and those who follow it) call this after
// installPlatform(): they then announce and hear over the host's session bus, as on a real Mac.
void useSessionBus();

// The installed machine for JSON listings: {"name": ..., "simulated": true|false}. Simulated
// means the SMC answers from a recorded machine (always so on Linux).
nlohmann::ordered_json machineJson();

// The first line of a text listing when the SMC is simulated ("Simulated machine: NAME");
// nothing for a real SMC.
void printMachineLine();

void registerSmcCommands(CLI::App& app, Context& context);
void registerProfileCommands(CLI::App& app, Context& context);
void registerSensorCommands(CLI::App& app, Context& context);
void registerSettingsCommands(CLI::App& app, Context& context);
void registerDbCommands(CLI::App& app, Context& context);
void registerGraphCommand(CLI::App& app, Context& context);
void registerSimulateCommand(CLI::App& app, Context& context);
void registerDaemonCommands(CLI::App& app, Context& context);
// What `corvane daemon --help` and the daemon program's own --help say.
inline constexpr const char* kDaemonDescription =
    "Run as the process that reads the sensors and writes the store: values, extremes and graph "
    "history at the update interval, each save announced to the other processes, and the fan control "
    "mode in force (auto boost watches the fan conditions), the alert rules fired as desktop notifications, until Ctrl-C or SIGTERM (the last save is "
    "committed and every fan it forced goes back to the system). One daemon at a time: another one is "
    "refused and names the running one's pid";
inline constexpr const char* kDaemonFooter =
    "Exit status: 0 after Ctrl-C or SIGTERM; 1 when a daemon already runs or the store cannot be "
    "written; 2 for a wrong invocation. A store file deleted under the daemon is noted in one line on "
    "standard error and written afresh. Fans a killed daemon left forced are handed back when the next "
    "one starts.";
inline constexpr const char* kDaemonMetricsHelp =
    "Also serve /metrics for Prometheus at this address (IPv4; a bare port or localhost means the "
    "loopback interface, port 0 any free port, printed at start): the latest reading of every sensor, "
    "the processor's load, the fan control mode and the daemon's own counters";
// The daemon's own program, installed beside corvane.
inline constexpr const char* kDaemonProgram = "corvane-daemon";
void registerInfoCommand(CLI::App& app, Context& context);
void registerCpuCommand(CLI::App& app, Context& context);
void registerFanCommands(CLI::App& app, Context& context);

// True while a daemon holds its lock (nobody can take it); the fan commands leave the policy to
// it then. Needs the platform installed.
bool daemonIsRunning();
void registerHelperCommand(CLI::App& app, Context& context);
void registerMenuCommand(CLI::App& app, Context& context);
void registerBarCommand(CLI::App& app, Context& context);

// The process's data manager for the menu strips; with `sensors`, its store holds the machine's
// sensors (filled now when nobody has yet). Null after a one-line message on stderr.
std::shared_ptr<HWDataManager> openMenuManager(bool sensors);
void registerAlertsCommands(CLI::App& app, Context& context);

// The sensor list with the default switches (named and computed sensors), as `corvane sensors`.
int runSensorListing(Context& context);

// What `corvane` alone shows: the live view in a terminal, else the sensor listing once.
int runDefaultView(Context& context);
// The live view of the sensors and fans in this terminal, until the user quits.
int runLiveView(Context& context);

}  // namespace corvane::cli
