// How fast a settings change crosses processes: one process writes the update frequency through
// its settings store (announced on the session bus), a second process's settings store calls
// its delegate, which answers by writing the logged-sensor list (announced back). Measured over
// a private D-Bus session bus, round trip after round trip.
//
//   corvane_settings_bench [ROUND_TRIPS]      (default 1000)
//
// Prints the median and 99th percentile of the one-way time (write in the first process to the
// delegate call in the second; both read the same monotonic clock) and of the round trip.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/settings_data_store.h"

extern char** environ;

namespace {

using namespace corvane;

constexpr int kWarmUp = 20;

std::int64_t monotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// Starts `argv` with its standard output on a pipe; returns the pid and the read end.
std::optional<std::pair<pid_t, int>> spawnWithPipe(std::vector<std::string> argv) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  std::vector<char*> args;
  for (auto& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (spawned != 0) {
    close(fds[0]);
    return std::nullopt;
  }
  return std::make_pair(pid, fds[0]);
}

// Reads `count` lines from `fd` within `timeoutMs`.
std::vector<std::string> readLines(int fd, std::size_t count, int timeoutMs) {
  std::vector<std::string> lines;
  std::string buffer;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (lines.size() < count) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) break;
    char chunk[512];
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got <= 0) break;
    buffer.append(chunk, static_cast<std::size_t>(got));
    for (auto end = buffer.find('\n'); end != std::string::npos && lines.size() < count; end = buffer.find('\n')) {
      lines.push_back(buffer.substr(0, end));
      buffer.erase(0, end + 1);
    }
  }
  return lines;
}

std::shared_ptr<HWSettingsDataStore> openStore() {
  platform::install(platform::native());
  return HWSettingsDataStore::create(std::make_shared<HWPrefData>(), nullptr, [] { return std::string("en"); });
}

// The answering process: each update-frequency change is answered with the time it arrived.
class Pong : public HWSettingsDataStoreDelegate {
 public:
  explicit Pong(std::weak_ptr<HWSettingsDataStore> store) : store_(std::move(store)) {}
  void settingsDataStoreUpdateFrequencyDidChange(std::int64_t) override {
    const std::int64_t arrived = monotonicNs();
    if (auto store = store_.lock()) store->setFileLoggingSensorKeys(std::vector<std::string>{std::to_string(arrived)});
  }

 private:
  std::weak_ptr<HWSettingsDataStore> store_;
};

int runPong() {
  auto store = openStore();
  auto pong = std::make_shared<Pong>(store);
  store->addDelegate(pong);
  std::printf("ready\n");
  std::fflush(stdout);
  dispatch::runMainQueue();  // until killed
  return 0;
}

// The measuring process.
class Ping : public HWSettingsDataStoreDelegate {
 public:
  Ping(std::weak_ptr<HWSettingsDataStore> store, int roundTrips) : store_(std::move(store)), roundTrips_(roundTrips) {}

  void send() {
    auto store = store_.lock();
    if (!store) return;
    ++sent_;
    sentAt_ = monotonicNs();
    store->setUpdateFrequency(sent_ % 2 == 0 ? 1 : 2);
  }

  void settingsDataStoreFileLoggingSensorKeysDidChange(const std::optional<std::vector<std::string>>& keys) override {
    if (!keys || keys->size() != 1) return;
    const std::int64_t now = monotonicNs();
    const std::int64_t arrived = std::atoll((*keys)[0].c_str());
    if (arrived < sentAt_) return;  // an answer to an earlier write
    if (sent_ > kWarmUp) {
      oneWay_.push_back(static_cast<double>(arrived - sentAt_) / 1e6);
      roundTrip_.push_back(static_cast<double>(now - sentAt_) / 1e6);
    }
    if (sent_ >= roundTrips_ + kWarmUp) {
      dispatch::stopMainQueue();
      return;
    }
    send();
  }

  std::vector<double>& oneWay() { return oneWay_; }
  std::vector<double>& roundTrip() { return roundTrip_; }

 private:
  std::weak_ptr<HWSettingsDataStore> store_;
  int roundTrips_;
  int sent_ = 0;
  std::int64_t sentAt_ = 0;
  std::vector<double> oneWay_;
  std::vector<double> roundTrip_;
};

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
  return values[std::min(index, values.size() - 1)];
}

int runPing(int roundTrips) {
  // A private bus and settings folder, handed to the answering process through the environment.
  auto daemon = spawnWithPipe({"dbus-daemon", "--session", "--fork", "--print-address=1", "--print-pid=1"});
  if (!daemon) {
    std::fprintf(stderr, "cannot start dbus-daemon\n");
    return 1;
  }
  const auto busLines = readLines(daemon->second, 2, 10'000);
  close(daemon->second);
  waitpid(daemon->first, nullptr, 0);
  if (busLines.size() != 2) {
    std::fprintf(stderr, "dbus-daemon printed no address\n");
    return 1;
  }
  const pid_t busPid = static_cast<pid_t>(std::atol(busLines[1].c_str()));
  char folder[] = "/tmp/corvane-settings-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  setenv("DBUS_SESSION_BUS_ADDRESS", busLines[0].c_str(), 1);
  setenv("XDG_DATA_HOME", folder, 1);

  std::error_code ec;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe", ec).string();
  auto pong = spawnWithPipe({self, "--pong"});
  int status = 1;
  if (pong && readLines(pong->second, 1, 10'000) == std::vector<std::string>{"ready"}) {
    auto store = openStore();
    auto ping = std::make_shared<Ping>(store, roundTrips);
    store->addDelegate(ping);
    auto queue = dispatch::mainQueue();
    queue->async([ping] { ping->send(); });
    queue->asyncAfter(std::chrono::seconds(120), [] { dispatch::stopMainQueue(); });
    dispatch::runMainQueue();

    const auto& oneWay = ping->oneWay();
    std::printf("settings change across processes over a private D-Bus session bus, %zu round trips\n",
                oneWay.size());
    std::printf("  write -> delegate in the other process: median %.3f ms, p99 %.3f ms, max %.3f ms\n",
                percentile(oneWay, 0.5), percentile(oneWay, 0.99), percentile(oneWay, 1.0));
    std::printf("  round trip (write, answer written back): median %.3f ms, p99 %.3f ms\n",
                percentile(ping->roundTrip(), 0.5), percentile(ping->roundTrip(), 0.99));
    const bool complete = oneWay.size() == static_cast<std::size_t>(roundTrips);
    const bool fast = percentile(oneWay, 0.5) < 10.0;
    std::printf("  target: median under 10 ms: %s\n", complete && fast ? "met" : "NOT met");
    status = complete && fast ? 0 : 1;
  } else {
    std::fprintf(stderr, "the answering process did not start\n");
  }
  if (pong) {
    kill(pong->first, SIGTERM);
    waitpid(pong->first, nullptr, 0);
    close(pong->second);
  }
  kill(busPid, SIGTERM);
  std::filesystem::remove_all(folder, ec);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--pong") return runPong();
  const int roundTrips = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1000;
  return runPing(roundTrips);
}
