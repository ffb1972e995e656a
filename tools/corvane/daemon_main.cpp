// corvane-daemon: the writing process, which `corvane daemon` becomes. It keeps the store's
// sensors and graph history up to date at the user's update interval, and announces every save,
// until Ctrl-C or SIGTERM.
//
// A program of its own because it runs for weeks: it maps only the library parts it reaches (no
// terminal drawing, no image library, no locale formatting), which is most of what its resident
// memory would otherwise be.
#include <fcntl.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "daemon_alerts.h"
#include "daemon_metrics.h"
#include "metrics_server.h"
#include "stop_on_signal.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/fan/fan_controller.h"
#include "corvane/fan/fan_hand_back.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/platform/desktop_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/error.h"
#include "corvane/util/install_paths.h"

namespace corvane::cli {
namespace {

// One daemon per user: two writers would each sample every sensor, doubling the history.
// flock rather than a pid file alone: the kernel lets go however the holder ends, so a daemon
// killed with SIGKILL never keeps the next one out. The holder's pid is in the file for the
// message of the one refused.
class DaemonLock {
 public:
  DaemonLock() = default;
  ~DaemonLock() {
    if (fd_ < 0) return;
    // The lock file stays (unlinking a locked file lets a third process lock a new one beside
    // it); an empty one says nobody holds it.
    if (::ftruncate(fd_, 0) != 0) {
      // Nothing to do: the next holder overwrites the pid anyway.
    }
    ::close(fd_);
  }
  DaemonLock(const DaemonLock&) = delete;
  DaemonLock& operator=(const DaemonLock&) = delete;

  // Takes the lock at `path`. When another process holds it, `holder` gets its pid (0 when it
  // has not written it yet); on any other failure, `error` says why.
  bool acquire(const std::filesystem::path& path, long* holder, std::string* error) {
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
      *error = std::strerror(errno);
      return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int reason = errno;
      if (reason == EWOULDBLOCK) {
        char text[32] = {};
        const ssize_t got = ::pread(fd, text, sizeof text - 1, 0);
        *holder = got > 0 ? std::strtol(text, nullptr, 10) : 0;
      } else {
        *error = std::strerror(reason);
      }
      ::close(fd);
      return false;
    }
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
      // The lock holds all the same; only the refusal message of another daemon loses the pid.
    }
    fd_ = fd;
    return true;
  }

 private:
  int fd_ = -1;
};

// After each reading: counts it, and notices a store file deleted under the daemon. SQLite would
// go on writing into the deleted file, so the history would silently end there; instead the
// stack reopens a fresh file, the data set is built into it and the monitor starts over.
class StoreKeeper final : public HWSensorMonitorDelegate {
 public:
  StoreKeeper(std::shared_ptr<HWDataManager> manager, std::weak_ptr<HWSensorMonitor> monitor, std::string program)
      : manager_(std::move(manager)), monitor_(std::move(monitor)), program_(std::move(program)) {}

  long readings() const { return readings_; }

  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& /*sensors*/) override {
    ++readings_;
    const auto& stack = manager_->sensorDataStore()->coreDataStack();
    if (!stack->reopenIfStoreFileMoved()) return;
    std::fprintf(stderr, "%s: the store %s was removed; writing a fresh one\n", program_.c_str(),
                 stack->storeURL().c_str());
    // Later on the main queue, not inside the monitor's own call to its listeners: start()
    // resets the monitor's counters and reads again.
    dispatch::mainQueue()->async([manager = manager_, weak = monitor_, program = program_] {
      if (!manager->buildDataSetNow()) {
        std::fprintf(stderr, "%s: the fresh store %s could not be written\n", program.c_str(),
                     manager->sensorDataStore()->coreDataStack()->storeURL().c_str());
      }
      if (auto monitor = weak.lock()) monitor->start();
    });
  }

 private:
  std::shared_ptr<HWDataManager> manager_;
  std::weak_ptr<HWSensorMonitor> monitor_;
  std::string program_;
  long readings_ = 0;
};

// SQLite's page caches may hold the whole store (opening checks every page): capped, they
// recycle their pages instead. A tick touches a few pages per sensor, which the system's file
// cache serves as fast as SQLite's own would.
constexpr sqlite3_int64 kSqliteHeapLimit = 256 * 1024;

// What starting left free (the profile's text, the data set built) goes back to the system once
// the monitor runs: the daemon's heap then stays at what it keeps.
void releaseStartupMemory() {
#if defined(__GLIBC__)
  ::malloc_trim(0);
#endif
}

// `listen`: where to serve metrics (as parseMetricsAddress gives it); empty for nowhere.
int runDaemon(Context& context, const std::string& listen) {
  const char* name = context.program.c_str();
  StopOnSignal stop;
  if (!context.installPlatform()) return context.exitCode;
  sqlite3_soft_heap_limit64(kSqliteHeapLimit);

  DaemonLock lock;
  long holder = 0;
  std::string error;
  const auto lockPath = files::appGroupURL() / "daemon.lock";
  if (!lock.acquire(lockPath, &holder, &error)) {
    if (!error.empty()) {
      std::fprintf(stderr, "%s: cannot lock %s: %s\n", name, lockPath.c_str(), error.c_str());
    } else if (holder > 0) {
      std::fprintf(stderr, "%s: a daemon is already running (pid %ld)\n", name, holder);
    } else {
      std::fprintf(stderr, "%s: a daemon is already running\n", name);
    }
    return kExitFailure;
  }

  // Fans an earlier daemon forced and could not hand back (it was killed, or the machine lost
  // power) go back to the system before anything else happens.
  auto handBack = std::make_shared<HWFanHandBack>(files::appGroupURL() / "fans-taken.json");
  {
    HWSensorWriter writer;
    if (const auto handed = handBack->handBackAll(writer); handed > 0) {
      std::printf("%s: handed %zu fan%s back to the system that an earlier daemon had left forced\n", name, handed,
                  handed == 1 ? "" : "s");
    }
  }

  useSessionBus();
  HWDataManager::setAppMode(1);
  auto manager = HWDataManager::shared();
  settings::installHooks(manager->settingsDataStore());
  manager->backwardCompability();
  const auto& stack = manager->sensorDataStore()->coreDataStack();
  if (!stack->hasStore() || stack->isReadOnly() || !manager->buildDataSetNow()) {
    std::fprintf(stderr, "%s: the store %s cannot be written\n", name, stack->storeURL().c_str());
    return kExitFailure;
  }

  auto monitor = HWSensorMonitor::shared();
  auto keeper = std::make_shared<StoreKeeper>(manager, monitor, context.program);
  monitor->addDelegate(keeper);
  monitor->setup();
  auto controller = HWFanController::create(manager, monitor);
  controller->setHandBack(handBack);
  controller->setup();
  // The alert rules fire on the host's desktop, also for a simulated machine.
  auto alerts = std::make_shared<SensorAlerts>(manager, platform::DesktopNotifications::create(platform::current()),
                                               context.program);
  monitor->addDelegate(alerts);
  std::unique_ptr<MetricsServer> metrics;
  if (!listen.empty()) {
    metrics = startMetricsServer(listen, machineJson()["name"].get<std::string>(), manager, monitor, controller, &error);
    if (!metrics) {
      std::fprintf(stderr, "%s: metrics: %s\n", name, error.c_str());
      return kExitFailure;
    }
  }
  monitor->start();
  controller->start();
  releaseStartupMemory();
  std::printf("%s: daemon %ld writing %s every %lld s\n", name, static_cast<long>(::getpid()),
              stack->storeURL().c_str(), static_cast<long long>(manager->settingsDataStore()->updateInterval()));
  if (metrics) {
    std::printf("%s: metrics at http://%s:%d/metrics\n", name, listen.substr(0, listen.rfind(':')).c_str(),
                metrics->port());
  }
  std::fflush(stdout);

  dispatch::runMainQueue();

  // Stopped between two items of the main queue, so no save is half done; this one commits
  // whatever a listener left pending.
  monitor->sensorTimer()->stop();
  manager->sensorDataStore()->save();
  // The fan policy ends with the daemon: every fan it forced goes back to the system.
  handBack->handBackAll(controller->sensorWriter());
  std::printf("%s: daemon stopped after %ld readings\n", name, keeper->readings());
  return kExitOk;
}

}  // namespace
}  // namespace corvane::cli

namespace {

// Messages begin with the name the program was started under: `corvane daemon` starts it as
// "corvane", so its user reads the same program name throughout.
// The text stays in argv for the life of the process, as the last-resort handler needs.
const char* programName(const char* argv0) {
  const char* slash = argv0 != nullptr ? std::strrchr(argv0, '/') : nullptr;
  const char* name = slash != nullptr ? slash + 1 : argv0;
  return name != nullptr && *name != '\0' ? name : "corvane-daemon";
}

int run(int argc, char** argv, const std::string& name) {
  using namespace corvane::cli;
  CLI::App app{kDaemonDescription, name};
  Context context;
  context.program = name;
  app.add_option("--machine", context.machine, "Simulate a recorded machine (as corvane --machine)")
      ->type_name("NAME|FILE");
  app.add_flag("--dynamics", context.dynamics, "Let the simulated machine move (as corvane --dynamics)");
  std::string metrics;
  app.add_option("--metrics", metrics, kDaemonMetricsHelp)->type_name("ADDRESS:PORT");
  app.footer(kDaemonFooter);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help
    std::fprintf(stderr, "%s: %s (see %s --help)\n", name.c_str(), e.what(), name.c_str());
    return kExitBadInput;
  }
  std::string listen;
  if (app.count("--metrics") > 0) {
    std::string error;
    const auto parsed = parseMetricsAddress(metrics, &error);
    if (!parsed) {
      std::fprintf(stderr, "%s: %s\n", name.c_str(), error.c_str());
      return kExitBadInput;
    }
    listen = *parsed;
  }
  return runDaemon(context, listen);
}

}  // namespace

int main(int argc, char** argv) {
  const char* name = programName(argc > 0 ? argv[0] : nullptr);
  corvane::errors::installLastResortHandler(name);
  try {
    return run(argc, argv, name);
  } catch (...) {
    return corvane::errors::reportInternalError(name);
  }
}
