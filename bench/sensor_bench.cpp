// Cost of the sensor reader on simulated machines: building the named list, and one read pass
// (time, SMC driver calls and heap allocations per pass), with and without the delivery to the
// main queue.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "corvane/sensors/sensor_reader.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "platform/sim/sim_smc_driver.h"

namespace {

std::atomic<std::size_t> g_allocations{0};

}  // namespace

// GCC cannot see that these replacements pair malloc with free throughout.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace corvane;

std::filesystem::path benchRoot() {
  static const std::filesystem::path root = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-sensor-bench-XXXXXX").string();
    return std::filesystem::path(::mkdtemp(pattern.data()) != nullptr ? pattern : "/tmp/corvane-sensor-bench");
  }();
  return root;
}

platform::SimSmcDriver& driver() { return dynamic_cast<platform::SimSmcDriver&>(platform::current().smc()); }

void install(const std::shared_ptr<const platform::MachineProfile>& profile) {
  platform::SimulatedOptions options;
  options.root = benchRoot();
  platform::install(platform::simulated(profile, options));
  HWSystemDevice::reset();
}

struct Machine {
  std::string label;
  std::shared_ptr<const platform::MachineProfile> profile;
};

std::vector<Machine>& machines() {
  static std::vector<Machine> list = [] {
    std::vector<Machine> result;
    std::string error;
    // The largest built-in machine, the default one, and one with about 150 sensors in all.
    for (const char* name : {"M2-Max", "MacBookPro16,1", "iMac15,1"}) {
      if (auto profile = platform::loadBuiltinProfile(name, &error)) result.push_back({name, std::move(profile)});
    }
    return result;
  }();
  return list;
}

// A reader on `machine` with the list built and one pass done, so later passes are steady.
std::shared_ptr<HWSensorReader> readyReader(const Machine& machine, bool all) {
  install(machine.profile);
  SMCOpen();
  auto reader = HWSensorReader::create();
  reader->setShowUnknownSensors(all);
  reader->setShowHIDSensors(all);
  reader->setShowComputedSensors(true);
  reader->refreshValues();
  return reader;
}

std::size_t visibleCount(HWSensorReader& reader) {
  std::size_t visible = 0;
  for (const auto& sensor : reader.getAllSensors()) visible += reader.shouldRefresh(*sensor) ? 1 : 0;
  return visible;
}

void BM_BuildList(benchmark::State& state, const Machine* machine) {
  install(machine->profile);
  SMCOpen();
  std::size_t sensors = 0;
  driver().resetCounts();
  for (auto _ : state) {
    auto reader = HWSensorReader::create();  // a new wrapper enumerates the key table again
    sensors = reader->getAllSensors().size();
    benchmark::DoNotOptimize(sensors);
  }
  state.counters["sensors"] = static_cast<double>(sensors);
  state.counters["driver_calls"] =
      benchmark::Counter(static_cast<double>(driver().counts().total()), benchmark::Counter::kAvgIterations);
  SMCClose();
}

void BM_ReadPass(benchmark::State& state, const Machine* machine, bool all) {
  auto reader = readyReader(*machine, all);
  driver().resetCounts();
  const std::size_t before = g_allocations.load();
  for (auto _ : state) reader->refreshValues();
  const std::size_t allocations = g_allocations.load() - before;
  state.counters["visible"] = static_cast<double>(visibleCount(*reader));
  state.counters["driver_calls"] =
      benchmark::Counter(static_cast<double>(driver().counts().total()), benchmark::Counter::kAvgIterations);
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
  reader.reset();
  SMCClose();
}

// read() as a timer tick does it: the pass, then the delivery through the main queue.
void BM_ReadPassDelivered(benchmark::State& state, const Machine* machine, bool all) {
  auto time = dispatch::installVirtualTime(1'700'000'000.0);
  auto reader = readyReader(*machine, all);
  const std::size_t before = g_allocations.load();
  for (auto _ : state) {
    reader->read();
    time->runUntilIdle();
  }
  const std::size_t allocations = g_allocations.load() - before;
  state.counters["visible"] = static_cast<double>(visibleCount(*reader));
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
  reader.reset();
  SMCClose();
}

}  // namespace

int main(int argc, char** argv) {
  for (const Machine& machine : machines()) {
    const Machine* m = &machine;
    benchmark::RegisterBenchmark(("BM_BuildList/" + machine.label).c_str(), BM_BuildList, m)
        ->Unit(benchmark::kMillisecond);
    for (const bool all : {false, true}) {
      const std::string suffix = machine.label + (all ? "/all" : "/default");
      benchmark::RegisterBenchmark(("BM_ReadPass/" + suffix).c_str(), BM_ReadPass, m, all)
          ->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark(("BM_ReadPassDelivered/" + suffix).c_str(), BM_ReadPassDelivered, m, all)
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ec;
  std::filesystem::remove_all(benchRoot(), ec);
  return 0;
}
