// One monitoring tick of the sensor monitor on a simulated machine of about 150 sensors: the read
// pass, the store update with the graph points that fall due, and the save. CPU time per tick.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"

namespace {

using namespace corvane;

struct Loop {
  ~Loop() {
    monitor.reset();
    manager.reset();
    SMCClose();
    std::error_code ignored;
    if (!root.empty()) std::filesystem::remove_all(root, ignored);
  }
  std::filesystem::path root;
  std::shared_ptr<dispatch::VirtualTime> clock;
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWSensorMonitor> monitor;
};

// A fresh folder per run, so that the store starts empty.
std::filesystem::path freshRoot() {
  std::string pattern = (std::filesystem::temp_directory_path() / "corvane-monitor-bench-XXXXXX").string();
  return std::filesystem::path(::mkdtemp(pattern.data()) != nullptr ? pattern : "/tmp/corvane-monitor-bench");
}

// The machine installed, its data set built in a new store, and the monitor started (its first
// two readings done).
Loop startedLoop(const char* machine, benchmark::State& state) {
  Loop loop;
  std::string error;
  auto profile = platform::loadBuiltinProfile(machine, &error);
  if (!profile) {
    state.SkipWithError(error.c_str());
    return loop;
  }
  const auto root = loop.root = freshRoot();
  platform::SimulatedOptions options;
  options.root = root;
  platform::install(platform::simulated(profile, options));
  HWSystemDevice::reset();
  SMCOpen();
  loop.clock = dispatch::installVirtualTime(1'700'000'000.0);
  HWDataManager::setAppMode(1);
  loop.manager = HWDataManager::create(root / "group" / "Database.sqlite");
  if (!loop.manager->buildDataSetNow()) state.SkipWithError("the data set could not be saved");
  loop.monitor = HWSensorMonitor::create(loop.manager);
  loop.monitor->setup();
  loop.monitor->start();
  loop.clock->runUntilIdle();
  state.counters["sensors"] = static_cast<double>(loop.monitor->allSensors().size());
  return loop;
}

// Counts the saves that reached the file (each is announced back to the store's listeners).
class SaveCounter : public HWSensorDataStoreDelegate {
 public:
  void sensorDataStoreSensorsDidChanged(const std::vector<std::shared_ptr<HWSensorEntity>>&) override { ++saves; }
  int saves = 0;
};

// A tick as the timer makes it: 2 s of virtual time, one read pass, its delivery on the main
// queue, the store update (an hour point every fifth tick, day and week points when due, pruning
// every 150 ticks) and the save. The recorded machine's values do not move, so only what is
// sampled is written.
void BM_MonitoringTick(benchmark::State& state, const char* machine) {
  Loop loop = startedLoop(machine, state);
  if (!loop.monitor) return;
  auto counter = std::make_shared<SaveCounter>();
  loop.manager->sensorDataStore()->addDelegate(counter);
  for (auto _ : state) loop.clock->advance(std::chrono::seconds(2));
  state.counters["saves"] = benchmark::Counter(counter->saves, benchmark::Counter::kAvgIterations);
  state.counters["points"] =
      static_cast<double>(loop.manager->sensorDataStore()->coreDataStack()->objectsOf(HWEntity::kGraphPoint).size());
}

// The same tick with every value moved since the last one, so every read sensor's row is written
// at every tick.
void BM_MonitoringTickAllValuesMoving(benchmark::State& state, const char* machine) {
  Loop loop = startedLoop(machine, state);
  if (!loop.monitor) return;
  const auto& reader = loop.monitor->sensorReader();
  double step = 0;
  for (auto _ : state) {
    reader->refreshValues();
    step = step == 0 ? 0.5 : 0;
    for (const auto& sensor : *reader->allSensors()) sensor->setValue(sensor->value() + step);
    loop.monitor->readerDidReadWithResult(*reader, *reader->allSensors());
    loop.clock->runUntilIdle();  // the save's announcement, handled in this process too
  }
}

BENCHMARK_CAPTURE(BM_MonitoringTick, iMac15_1, "iMac15,1")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_MonitoringTickAllValuesMoving, iMac15_1, "iMac15,1")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_MonitoringTick, M2_Max, "M2-Max")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
