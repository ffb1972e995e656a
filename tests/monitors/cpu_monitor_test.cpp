// The CPU monitor on the virtual clock over a simulated machine, with scripted processor ticks,
// process lists and load averages.

#include "corvane/monitors/cpu_monitor.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <tuple>

#include "corvane/dispatch/dispatch.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_keys.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using std::chrono::seconds;

// Every look adds the same ticks to each of two processors: a steady 20% user, 10% system.
class SteadyTicks final : public platform::ProcessorLoad {
 public:
  bool sample(platform::ProcessorTickSample& out) const override {
    const std::uint32_t n = ++looks_;
    out.machine = std::array<std::uint32_t, 4>{40 * n, 20 * n, 140 * n, 0};
    out.processors = {20 * n, 10 * n, 70 * n, 0, 20 * n, 10 * n, 70 * n, 0};
    return true;
  }
  std::optional<std::vector<platform::ProcessorCore>> cores() const override { return std::nullopt; }

 private:
  mutable std::atomic<std::uint32_t> looks_{0};
};

// A process list of 25 busy processes, with the runs of ps counted.
std::string processList() {
  std::string text = "  PID  %CPU COMM\n";
  for (int pid = 25; pid >= 1; --pid) text += "  " + std::to_string(pid) + "  " + std::to_string(pid) + ",5 cmd\n";
  return text;
}

class Listener : public HWCPUMonitorDelegate {
 public:
  void cpuMonitorDidReadLoadInfo(const HWCPULoadInfo& info) override {
    ++loadReadings;
    lastTotal = info.totalUsage;
  }
  void cpuMonitorDidReadTopProcesses(const std::vector<HWCPUProcess>& processes) override {
    lastProcessCount = processes.size();
  }
  void cpuMonitorDidReadLoadAverage(const HWLoadAverages& values) override { lastAverages = values; }
  int loadReadings = 0;
  double lastTotal = -1;
  std::size_t lastProcessCount = 0;
  HWLoadAverages lastAverages{};
};

class CPUMonitorTest : public ::testing::Test {
 protected:
  void open(std::uint64_t frequency = 0) {
    testing::installMachine(testing::builtinMachine(), dir.path());
    manager = HWDataManager::create(dir.path() / "group" / "Database.sqlite");
    manager->settingsDataStore()->setUpdateFrequency(frequency);
    clock->runUntilIdle();  // the frequency's announcement goes before the monitor listens
    HWCPUMonitor::Readers readers;
    readers.load = std::make_shared<HWCPULoadReader>(std::make_shared<SteadyTicks>(), std::nullopt, false);
    readers.process = std::make_shared<HWCPUProcessReader>([this](std::int64_t count) {
      ++psRuns;
      return std::optional(cpu_text::processesFromList(processList(), count));
    });
    readers.average = std::make_shared<HWCPUAverageReader>([this] {
      ++averageRuns;
      return std::optional<HWLoadAverages>(HWLoadAverages{1.5, 1.25, 1.0});
    });
    monitor = HWCPUMonitor::create(manager, readers);
    monitor->addDelegate(bystander);  // listens to no message of this monitor: never called
    monitor->addDelegate(listener);
    monitor->setup();
  }

  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock = dispatch::installVirtualTime(1'700'000'000);
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWCPUMonitor> monitor;
  std::shared_ptr<HWMonitorDelegate> bystander = std::make_shared<HWMonitorDelegate>();
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  int psRuns = 0;
  int averageRuns = 0;
};

TEST_F(CPUMonitorTest, TimersReadAtTheUpdateIntervalAndTheSeriesHoldsAMinute) {
  // Update frequency; load readings, ps runs and average readings after 120 s (the one at start,
  // then each timer's ticks from 0 to 120 s, the first at once); series length.
  const std::array<int, 5> cases[] = {{0, 62, 62, 4, 31}, {1, 26, 26, 4, 13}, {2, 14, 14, 4, 7}};
  for (const auto& [frequency, loads, ps, averages, series] : cases) {
    SCOPED_TRACE(frequency);
    psRuns = averageRuns = 0;
    listener = std::make_shared<Listener>();
    open(static_cast<std::uint64_t>(frequency));
    monitor->start();
    clock->advance(seconds(120));
    clock->runUntilIdle();
    const auto items = monitor->loadInfoItems();
    EXPECT_EQ((std::array{listener->loadReadings, psRuns, averageRuns, static_cast<int>(items.size())}),
              (std::array{loads, ps, averages, series}));
    EXPECT_GE(items.front().timeInterval, clock->now() - 60 - 0.5 * monitor->loadTimer()->interval());
    // Two steady processors: the first reading is the load since boot, as is every later one.
    EXPECT_NEAR(listener->lastTotal, 0.3, 1e-12);
    EXPECT_EQ(listener->lastProcessCount, 12u);  // the store's default count
    EXPECT_EQ(listener->lastAverages, (HWLoadAverages{1.5, 1.25, 1.0}));
    monitor->stop();
    clock->advance(seconds(120));
    EXPECT_EQ(psRuns, ps) << "a stopped monitor runs nothing";
    monitor.reset();
  }
}

TEST_F(CPUMonitorTest, SeriesKeepsHalfAnIntervalOfSlackBeyondTheMinute) {
  // Update frequency (interval 2, 5, 10 s); age of an old reading; whether it is kept.
  const std::array<double, 3> cases[] = {{0, 60.9, 1}, {0, 61.0, 1}, {0, 61.1, 0},
                                         {1, 62.5, 1}, {1, 62.6, 0}, {2, 65.0, 1}, {2, 66.0, 0}};
  for (const auto& [frequency, age, kept] : cases) {
    open(static_cast<std::uint64_t>(frequency));
    monitor->processLoadInfo({});
    clock->advance(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(age)));
    monitor->processLoadInfo({});
    EXPECT_EQ(monitor->loadInfoItems().size(), kept != 0 ? 2u : 1u) << frequency << " " << age;
    monitor.reset();
  }
}

TEST_F(CPUMonitorTest, ChangesOfSettingsReachTheRightTimers) {
  open();
  monitor->start();
  clock->advance(seconds(30));  // on the minute's half: the average timer is mid-period
  clock->runUntilIdle();
  const int psBefore = psRuns;

  manager->cpuDataStore()->setNumOfTopProcesses(20);
  clock->runUntilIdle();
  EXPECT_EQ((std::array{psRuns - psBefore, static_cast<int>(listener->lastProcessCount)}), (std::array{1, 20}))
      << "one ps run at once, outside the timer";
  manager->cpuDataStore()->setNumOfTopProcesses(0);
  clock->runUntilIdle();
  EXPECT_EQ(psRuns - psBefore, 1) << "a count of 0 runs nothing";
  manager->cpuDataStore()->setNumOfTopProcesses(5);
  clock->runUntilIdle();

  manager->settingsDataStore()->setUpdateFrequency(2);  // every 10 s
  clock->runUntilIdle();
  const int loads = listener->loadReadings, averages = averageRuns;
  clock->advance(seconds(60));
  clock->runUntilIdle();
  EXPECT_EQ((std::array{monitor->loadTimer()->interval(), monitor->processTimer()->interval(),
                        monitor->averageTimer()->interval()}),
            (std::array{10.0, 10.0, 60.0}));
  // Restarting ticks at once, then every 10 s; the averages keep their phase, once a minute.
  EXPECT_EQ((std::array{listener->loadReadings - loads, averageRuns - averages}), (std::array{6, 1}));
  EXPECT_EQ(listener->lastProcessCount, 5u);
}

TEST_F(CPUMonitorTest, StoredCountReadsAsTheDefaultUnlessAWholeNumber) {
  open();
  const auto& store = manager->cpuDataStore();
  const std::pair<nlohmann::json, std::int64_t> cases[] = {
      {nullptr, 12}, {15, 15}, {0, 0}, {-3, 12}, {7.5, 12}, {"20", 12}, {true, 12}};
  for (const auto& [stored, count] : cases) {
    store->prefData()->setObject(stored.is_null() ? std::nullopt : std::optional(stored),
                                 std::string(settings::kNumOfTopProcessesKey));
    EXPECT_EQ(store->numOfTopProcesses(), count) << stored.dump();
  }
  store->setNumOfTopProcesses(15);
  clock->runUntilIdle();
  monitor->start();
  store->clearData();
  clock->runUntilIdle();
  EXPECT_EQ((std::array<std::int64_t, 2>{monitor->processReader()->numberOfProcesses(),
                                         static_cast<std::int64_t>(listener->lastProcessCount)}),
            (std::array<std::int64_t, 2>{12, 12}))
      << "a cleared count is announced and lists the default again";
}

#ifdef __linux__
TEST(CPUSources, LoadAveragesComeFromTheKernelFileUnderTheRoot) {
  const std::pair<const char*, std::optional<HWLoadAverages>> cases[] = {
      {"0.52 0.58 0.59 2/1285 94412\n", HWLoadAverages{0.52, 0.58, 0.59}},
      {"0.52 0.58\n", std::nullopt},
      {"0.52 x 0.59 1/2 3", std::nullopt},
      {nullptr, std::nullopt}};  // no file at all
  for (const auto& [text, expected] : cases) {
    testing::TempDir root;
    if (text != nullptr) testing::writeFile(root.path() / "loadavg", text);
    EXPECT_EQ(cpu_sources::hostLoadAverages(root.path()), expected) << (text ? text : "missing");
  }
}
#endif

// A /proc/<pid>/stat line with the user time `ticks` (system time 0) and start time `start`.
std::string statLine(int pid, const std::string& command, std::uint64_t ticks, std::uint64_t start) {
  return std::to_string(pid) + " (" + command + ") S 1 1 1 0 -1 4194304 100 0 0 0 " + std::to_string(ticks) +
         " 0 0 0 20 0 1 0 " + std::to_string(start) + " 3133440 388\n";
}

TEST(CPUSources, ProcessListMeasuresEachIntervalOnTheVirtualClock) {
  struct Step {
    double uptime;
    std::vector<std::pair<int, std::string>> stats;  // pid folder and its stat (-pid: schedstat)
    std::int64_t count;
    std::vector<std::tuple<std::int64_t, std::string, double>> busiest;
  };
  const Step steps[] = {
      // First look: each process over its life; a file cut short and a non-pid folder are left out.
      {1000, {{1, statLine(1, "init", 500, 0)}, {42, statLine(42, "a ) b", 1000, 90000)},
              {7, statLine(7, "", 0, 100)}, {9, "9 (cut) S 1 1"}, {0, "self"}},
       10, {{42, "a ) b", 10.0}, {1, "init", 0.5}, {7, "", 0.0}}},
      // 2 s later: over the interval; a counter that went back counts 0; pid 7 is a new process
      // (another start time), measured over its own life; ñ passes through.
      {1002, {{1, statLine(1, "init", 400, 0)}, {42, statLine(42, "a ) b", 1100, 90000)},
              {7, statLine(7, "ñame", 30, 99900)}, {-1, "500000000 0 1"}, {-42, "1000000000 7 3"}},
       2, {{42, "a ) b", 50.0}, {7, "ñame", 10.0}}},
      // 2 s later, from the run times alone; the ones shown are checked: 42 ran another program,
      // pid 1 is now another process (its second of run time is not its own, so 0 this time).
      {1004, {{1, statLine(1, "login", 5, 100300)}, {42, statLine(42, "renamed", 1100, 90000)},
              {-1, "1500000000 0 9"}, {-42, "2000000000 7 3"}},
       2, {{42, "renamed", 50.0}, {1, "init", 0.0}}},
  };
  testing::TempDir root;
  auto clock = dispatch::installVirtualTime(1'700'000'000);
  cpu_sources::ProcProcessList list(root.path(), 100);
  for (const auto& step : steps) {
    std::filesystem::remove_all(root.path());
    testing::writeFile(root.path() / "uptime", std::to_string(step.uptime) + " 12.5\n");
    for (const auto& [pid, text] : step.stats) {
      if (pid == 0) std::filesystem::create_directories(root.path() / text);
      else if (pid < 0) testing::writeFile(root.path() / std::to_string(-pid) / "schedstat", text);
      else testing::writeFile(root.path() / std::to_string(pid) / "stat", text);
    }
    const auto found = list.busiest(step.count);
    ASSERT_TRUE(found);
    std::vector<std::tuple<std::int64_t, std::string, double>> seen;
    for (const auto& process : *found) seen.emplace_back(process.pid, process.command, process.usage);
    EXPECT_EQ(seen, step.busiest);
    clock->advance(seconds(2));
  }
  EXPECT_FALSE(cpu_sources::ProcProcessList(root.path() / "missing").busiest(5)) << "no folder, no list";
}

}  // namespace
}  // namespace corvane
