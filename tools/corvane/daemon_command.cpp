// `corvane daemon`: the writing process. It keeps the store's sensors and graph history up to
// date at the user's update interval, and announces every save, until Ctrl-C or SIGTERM.
#include <fcntl.h>
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

#include "commands.h"
#include "stop_on_signal.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/fan/fan_controller.h"
#include "corvane/fan/fan_hand_back.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
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
  StoreKeeper(std::shared_ptr<HWDataManager> manager, std::weak_ptr<HWSensorMonitor> monitor)
      : manager_(std::move(manager)), monitor_(std::move(monitor)) {}

  long readings() const { return readings_; }

  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& /*sensors*/) override {
    ++readings_;
    const auto& stack = manager_->sensorDataStore()->coreDataStack();
    if (!stack->reopenIfStoreFileMoved()) return;
    std::fprintf(stderr, "corvane: the store %s was removed; writing a fresh one\n", stack->storeURL().c_str());
    // Later on the main queue, not inside the monitor's own call to its listeners: start()
    // resets the monitor's counters and reads again.
    dispatch::mainQueue()->async([manager = manager_, weak = monitor_] {
      if (!manager->buildDataSetNow()) {
        std::fprintf(stderr, "corvane: the fresh store %s could not be written\n",
                     manager->sensorDataStore()->coreDataStack()->storeURL().c_str());
      }
      if (auto monitor = weak.lock()) monitor->start();
    });
  }

 private:
  std::shared_ptr<HWDataManager> manager_;
  std::weak_ptr<HWSensorMonitor> monitor_;
  long readings_ = 0;
};

int runDaemon(Context& context) {
  StopOnSignal stop;
  if (!context.installPlatform()) return context.exitCode;

  DaemonLock lock;
  long holder = 0;
  std::string error;
  const auto lockPath = files::appGroupURL() / "daemon.lock";
  if (!lock.acquire(lockPath, &holder, &error)) {
    if (!error.empty()) {
      std::fprintf(stderr, "corvane: cannot lock %s: %s\n", lockPath.c_str(), error.c_str());
    } else if (holder > 0) {
      std::fprintf(stderr, "corvane: a daemon is already running (pid %ld)\n", holder);
    } else {
      std::fprintf(stderr, "corvane: a daemon is already running\n");
    }
    return kExitFailure;
  }

  // Fans an earlier daemon forced and could not hand back (it was killed, or the machine lost
  // power) go back to the system before anything else happens.
  auto handBack = std::make_shared<HWFanHandBack>(files::appGroupURL() / "fans-taken.json");
  {
    HWSensorWriter writer;
    if (const auto handed = handBack->handBackAll(writer); handed > 0) {
      std::printf("corvane: handed %zu fan%s back to the system that an earlier daemon had left forced\n", handed,
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
    std::fprintf(stderr, "corvane: the store %s cannot be written\n", stack->storeURL().c_str());
    return kExitFailure;
  }

  auto monitor = HWSensorMonitor::shared();
  auto keeper = std::make_shared<StoreKeeper>(manager, monitor);
  monitor->addDelegate(keeper);
  monitor->setup();
  auto controller = HWFanController::create(manager, monitor);
  controller->setHandBack(handBack);
  controller->setup();
  monitor->start();
  controller->start();
  std::printf("corvane: daemon %ld writing %s every %lld s\n", static_cast<long>(::getpid()),
              stack->storeURL().c_str(), static_cast<long long>(manager->settingsDataStore()->updateInterval()));
  std::fflush(stdout);

  dispatch::runMainQueue();

  // Stopped between two items of the main queue, so no save is half done; this one commits
  // whatever a listener left pending.
  monitor->sensorTimer()->stop();
  manager->sensorDataStore()->save();
  // The fan policy ends with the daemon: every fan it forced goes back to the system.
  handBack->handBackAll(controller->sensorWriter());
  std::printf("corvane: daemon stopped after %ld readings\n", keeper->readings());
  return kExitOk;
}

}  // namespace

bool daemonIsRunning() {
  const auto path = files::appGroupURL() / "daemon.lock";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;  // no daemon ever ran here
  // Taken and let go at once: only a daemon holds it for longer.
  const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return held;
}

void registerDaemonCommands(CLI::App& app, Context& context) {
  auto* daemon = app.add_subcommand(
      "daemon",
      "Run as the process that reads the sensors and writes the store: values, extremes and graph "
      "history at the update interval, each save announced to the other processes, and the fan control "
      "mode in force (auto boost watches the fan conditions), until Ctrl-C or SIGTERM (the last save is "
      "committed and every fan it forced goes back to the system). One daemon at a time: another one is "
      "refused and names the running one's pid");
  daemon->footer(
      "Exit status: 0 after Ctrl-C or SIGTERM; 1 when a daemon already runs or the store cannot be "
      "written; 2 for a wrong invocation. A store file deleted under the daemon is noted in one line on "
      "standard error and written afresh. Fans a killed daemon left forced are handed back when the next "
      "one starts.");
  daemon->callback([&context] { context.exitCode = runDaemon(context); });
}

}  // namespace corvane::cli
