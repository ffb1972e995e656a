// `corvane simulate --machine NAME --hours H | --days D [--interval 2|5|10] [--store FILE] [--json]`:
// the writing process's own loop (data set, sensor monitor, store, pruning) run on a virtual clock
// against a simulated machine, with what it cost: hours or days of history in seconds or minutes.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <numbers>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/sim_dynamics.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

namespace fs = std::filesystem;

struct SimulateOptions {
  std::optional<double> hours;
  std::optional<double> days;
  int interval = 2;
  std::string store;  // empty: a fresh store in a new temporary folder
  bool json = false;
};

// Counts the readings the monitor hands out.
class ReadingCounter : public HWSensorMonitorDelegate {
 public:
  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>&) override { ++readings; }
  long readings = 0;
};

double processCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::uintmax_t fileSize(const fs::path& path) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  return ec ? 0 : size;
}

// A new folder under the system's temporary folder; empty when none could be made.
fs::path newTemporaryFolder() {
  std::string pattern = (fs::temp_directory_path() / "corvane-simulate-XXXXXX").string();
  return ::mkdtemp(pattern.data()) != nullptr ? fs::path(pattern) : fs::path();
}

// CPU seconds spent and readings made over one stretch of simulated time.
struct Stretch {
  double cpu = 0;
  long readings = 0;
  double microsPerReading() const { return readings > 0 ? cpu * 1e6 / static_cast<double>(readings) : 0; }
};

int simulate(Context& context, const SimulateOptions& options) {
  if (context.machine.empty()) {
    std::fprintf(stderr, "corvane: simulate needs --machine NAME|FILE (corvane profile list shows the machines)\n");
    return kExitBadInput;
  }
  if (options.hours.has_value() == options.days.has_value()) {
    std::fprintf(stderr, "corvane: simulate needs either --hours H or --days D\n");
    return kExitBadInput;
  }
  const double span = options.hours ? *options.hours * 3600 : *options.days * 86400;
  if (!(span >= 1) || span > 366 * 86400.0) {
    std::fprintf(stderr, "corvane: the simulated time must be above 0 and at most a year\n");
    return kExitBadInput;
  }
  std::string error;
  auto profile = platform::resolveMachine(context.machine, &error);
  if (!profile) {
    std::fprintf(stderr, "corvane: %s\n", error.c_str());
    return kExitBadInput;
  }

  // Every file of the product (settings, app group) lives in the temporary folder, so the run
  // never touches the user's own; the store too unless --store names one.
  const fs::path folder = newTemporaryFolder();
  if (folder.empty()) {
    std::fprintf(stderr, "corvane: cannot make a temporary folder\n");
    return kExitFailure;
  }
  const bool ownStore = options.store.empty();
  std::error_code ec;
  const fs::path storePath = ownStore ? folder / "Database.sqlite" : fs::absolute(options.store, ec);
  platform::SimulatedOptions simulated;
  simulated.root = folder;
  simulated.announce = false;
  const std::string machineName = profile->name;
  platform::install(platform::simulated(std::move(profile), simulated));
  const auto wallStart = std::chrono::steady_clock::now();
  auto clock = dispatch::installVirtualTime(static_cast<double>(std::time(nullptr)));
  if (context.dynamics) {
    platform::SimDynamicsOptions dynamics;
    dynamics.clock = [] { return dispatch::now(); };
    // The host's own load says nothing of simulated time: a scripted one, busy and idle by
    // turns every half hour, keeps the temperatures and fans moving over the whole run.
    dynamics.load = [] { return 0.5 + 0.5 * std::sin(dispatch::now() * 2 * std::numbers::pi / 1800); };
    dynamics.codec = smc::simValueCodec();
    platform::enableSimDynamics(platform::current(), std::move(dynamics));
  }
  SMCOpen();
  HWDataManager::setAppMode(1);  // the process that reads the hardware and writes the store
  auto manager = HWDataManager::create(storePath);
  settings::installHooks(manager->settingsDataStore());
  manager->settingsDataStore()->setUpdateFrequency(options.interval == 10 ? 2 : options.interval == 5 ? 1 : 0);
  const auto& stack = manager->sensorDataStore()->coreDataStack();
  if (!stack->hasStore() || stack->isReadOnly()) {
    std::fprintf(stderr, "corvane: the store %s cannot be written\n", storePath.string().c_str());
    return kExitFailure;
  }
  manager->buildDatabase();
  for (int waited = 0; !manager->dataSetReady() && waited < 10; ++waited) clock->advance(std::chrono::seconds(1));
  if (!manager->dataSetReady()) {
    std::fprintf(stderr, "corvane: the data set of %s was not built\n", machineName.c_str());
    return kExitFailure;
  }

  auto monitor = HWSensorMonitor::create(manager);
  auto counter = std::make_shared<ReadingCounter>();
  monitor->addDelegate(counter);
  monitor->setup();
  monitor->start();

  // Hour by hour, so that the cost of a reading early on can be set against the cost late on.
  Stretch first, last;
  for (double done = 0; done < span;) {
    const double step = std::min(3600.0, span - done);
    const double cpuBefore = processCpuSeconds();
    const long readingsBefore = counter->readings;
    clock->advance(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(step)));
    last = {processCpuSeconds() - cpuBefore, counter->readings - readingsBefore};
    if (done == 0) first = last;
    done += step;
  }
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();

  long points[3] = {0, 0, 0};
  for (const auto& sensor : manager->sensorDataStore()->allSensors()) {
    for (int range = 0; range < 3; ++range) points[range] += sensor->graphPointCount(static_cast<HWTimeRange>(range));
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const long maxResidentKB = usage.ru_maxrss;
  const std::size_t sensors = monitor->allSensors().size();

  monitor.reset();
  manager.reset();
  clock.reset();
  SMCClose();
  // Measured once the store is closed: what the run leaves on disk, the journal folded in.
  const std::uintmax_t file = fileSize(storePath);
  const std::uintmax_t journal = fileSize(storePath.string() + "-wal") + fileSize(storePath.string() + "-shm");
  if (!ownStore) fs::remove_all(folder, ec);

  if (options.json) {
    nlohmann::ordered_json out = {
        {"machine", machineName},
        {"dynamics", context.dynamics},
        {"sensors", sensors},
        {"interval", options.interval},
        {"simulatedSeconds", span},
        {"readings", counter->readings},
        {"wallSeconds", wall},
        {"cpuMicrosPerReading", {{"firstHour", first.microsPerReading()}, {"lastHour", last.microsPerReading()}}},
        {"store", storePath.string()},
        {"storeBytes", file + journal},
        {"storeFileBytes", file},
        {"journalBytes", journal},
        {"graphPoints", {{"hour", points[0]}, {"day", points[1]}, {"week", points[2]}}},
        {"maxResidentKB", maxResidentKB},
    };
    std::printf("%s\n", json_text::dump(out, 2).c_str());
    return kExitOk;
  }
  std::printf("Simulated machine: %s%s, %zu sensors, a reading every %d s for %.0f s of virtual time\n",
              machineName.c_str(), context.dynamics ? " (moving)" : "", sensors, options.interval, span);
  std::printf("Store:             %s%s\n", storePath.string().c_str(), ownStore ? " (new, in a temporary folder)" : "");
  std::printf("Readings:          %ld\n", counter->readings);
  std::printf("Wall time:         %.2f s\n", wall);
  std::printf("CPU per reading:   %.1f us in the first hour, %.1f us in the last (%.2fx)\n", first.microsPerReading(),
              last.microsPerReading(),
              first.microsPerReading() > 0 ? last.microsPerReading() / first.microsPerReading() : 0.0);
  std::printf("Store size:        %.2f MB (file %.2f MB, journal %.2f MB)\n", static_cast<double>(file + journal) / 1e6,
              static_cast<double>(file) / 1e6, static_cast<double>(journal) / 1e6);
  std::printf("Graph points:      hour %ld, day %ld, week %ld\n", points[0], points[1], points[2]);
  std::printf("Peak memory:       %.1f MB resident\n", static_cast<double>(maxResidentKB) / 1024);
  return kExitOk;
}

}  // namespace

void registerSimulateCommand(CLI::App& app, Context& context) {
  auto options = std::make_shared<SimulateOptions>();
  auto* command = app.add_subcommand(
      "simulate",
      "Run the writing process's loop (data set, sensor monitor, store, pruning) on a virtual clock against "
      "a simulated machine (--machine; with --dynamics its temperatures and fans move under a scripted load), "
      "and report readings, wall time, CPU time per reading early and late, store size and graph points per range");
  command->add_option("--hours", options->hours, "Simulate this many hours")->type_name("H");
  command->add_option("--days", options->days, "Simulate this many days")->type_name("D");
  command->add_option("--interval", options->interval, "Seconds between readings: 2 (default), 5 or 10")
      ->type_name("SECONDS")
      ->check(CLI::IsMember({2, 5, 10}));
  command
      ->add_option("--store", options->store,
                   "Write this store file (made if missing) instead of a fresh one in a new temporary folder")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "Print the figures as JSON");
  command->callback([&context, options] { context.exitCode = simulate(context, *options); });
}

}  // namespace corvane::cli
