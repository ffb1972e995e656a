// One processor-load reading: on the recorded 64-processor tree, on generated trees of growing
// size (the cost should grow in step with the processor count), and on this machine. Then what
// the CPU monitor's three timers cost this machine together, as a share of one core.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include <ctime>
#include <cstdlib>

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_monitor.h"
#include "corvane/platform/platform.h"
#include "platform/linux/processor_load_linux.h"

namespace {

using corvane::HWCPUCore;
using corvane::HWCPULoadReader;
namespace procfs = corvane::platform::procfs;

std::vector<HWCPUCore> coresOf(std::size_t count) {
  std::vector<HWCPUCore> cores;
  for (std::uint64_t id = 0; id < count; ++id) cores.push_back({id, "cpu" + std::to_string(id), id < count / 2 ? 1u : 2u});
  return cores;
}

void readRepeatedly(benchmark::State& state, HWCPULoadReader& reader) {
  for (auto _ : state) {
    reader.read();
    benchmark::DoNotOptimize(reader.response().totalUsage);
  }
}

void BM_LoadReadingRecorded64(benchmark::State& state) {
  const auto tree = std::filesystem::path(CORVANE_SOURCE_DIR) / "tests/platform/data/cpu64";
  HWCPULoadReader reader(procfs::makeProcessorLoad({tree / "proc", tree / "sys"}), coresOf(64), false);
  readRepeatedly(state, reader);
}
BENCHMARK(BM_LoadReadingRecorded64);

// A /proc/stat of `count` processors shaped like a real one, interrupt counts included.
std::filesystem::path generatedTree(std::size_t count) {
  const auto root = std::filesystem::temp_directory_path() /
                    ("corvane-cpu-bench-" + std::to_string(::getpid()) + "-" + std::to_string(count));
  std::filesystem::create_directories(root / "proc");
  std::ofstream out(root / "proc/stat");
  out << "cpu  " << 9000 * count << " 10 " << 3000 * count << " " << 17000 * count << " 1200 0 100 0 0 0\n";
  for (std::size_t i = 0; i < count; ++i) out << "cpu" << i << " " << 9000 + i << " 0 3000 17000 1200 0 100 0 0 0\n";
  out << "intr 91234567";
  for (int i = 0; i < 1200; ++i) out << ' ' << (i * 37) % 1000;
  out << "\nctxt 987654321\nbtime 1763900000\nprocesses 123456\n";
  return root;
}

void BM_LoadReadingByProcessors(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const auto tree = generatedTree(count);
  {
    HWCPULoadReader reader(procfs::makeProcessorLoad({tree / "proc", tree / "sys"}), coresOf(count), false);
    readRepeatedly(state, reader);
  }
  std::filesystem::remove_all(tree);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_LoadReadingByProcessors)->RangeMultiplier(2)->Range(8, 256)->Complexity(benchmark::oN);

void BM_LoadReadingThisMachine(benchmark::State& state) {
  auto source = procfs::makeProcessorLoad({});
  auto found = source->cores();
  std::vector<HWCPUCore> cores;
  for (const auto& core : found.value_or(std::vector<corvane::platform::ProcessorCore>{}))
    cores.push_back({core.id, core.name, core.type});
  state.counters["processors"] = static_cast<double>(cores.size());
  HWCPULoadReader reader(source, cores, false);
  readRepeatedly(state, reader);
}
BENCHMARK(BM_LoadReadingThisMachine);

// The busiest-process list of this machine from its /proc, one look.
void BM_TopProcessesThisMachine(benchmark::State& state) {
  corvane::cpu_sources::ProcProcessList list;
  for (auto _ : state) benchmark::DoNotOptimize(list.busiest(12));
}
BENCHMARK(BM_TopProcessesThisMachine);

// Two seconds of the monitor at the shortest update interval: a load tick, a top-process tick, a
// thirtieth of the once-a-minute load-average tick, and the main-queue deliveries they post.
// "core_share_pct" is the processor time of those two seconds as a percentage of one core. With
// `hostReaders`, the readers read this machine's files (/proc/stat, every /proc/<pid>/stat,
// /proc/loadavg); without, they hand out fixed figures, which leaves the monitor's own share.
void BM_CPUMonitorTimersEveryTwoSeconds(benchmark::State& state, bool hostReaders) {
  // The monitor's settings live in a private folder, not the user's.
  const auto home = std::filesystem::temp_directory_path() / ("corvane-cpu-bench-home-" + std::to_string(::getpid()));
  ::setenv("XDG_DATA_HOME", home.c_str(), 1);
  corvane::platform::install(corvane::platform::native());
  auto clock = corvane::dispatch::installVirtualTime(1'700'000'000.0);
  {
    auto manager = corvane::HWDataManager::create(home / "Database.sqlite");
    corvane::HWCPUMonitor::Readers readers;
    if (!hostReaders) {
      readers.load = std::make_shared<HWCPULoadReader>(nullptr, coresOf(8), false);
      readers.process = std::make_shared<corvane::HWCPUProcessReader>([](std::int64_t count) {
        return std::optional(std::vector<corvane::HWCPUProcess>(static_cast<std::size_t>(count), {1, "cmd", {}, 1.0}));
      });
      readers.average = std::make_shared<corvane::HWCPUAverageReader>(
          [] { return std::optional(corvane::HWLoadAverages{1, 1, 1}); });
    }
    auto monitor = corvane::HWCPUMonitor::create(manager, readers);
    monitor->setup();
    const auto load = monitor->loadTimer()->handler();
    const auto top = monitor->processTimer()->handler();
    const auto averages = monitor->averageTimer()->handler();
    std::int64_t tick = 0;
    const std::clock_t started = std::clock();
    for (auto _ : state) {
      clock->advance(std::chrono::seconds(2));
      load();
      top();
      if (tick++ % 30 == 0) averages();
      clock->runUntilIdle();
    }
    state.counters["processes_listed"] = static_cast<double>(monitor->topProcesses().size());
    // Processor seconds per two seconds, in percent.
    const double seconds = static_cast<double>(std::clock() - started) / CLOCKS_PER_SEC;
    state.counters["core_share_pct"] = seconds / static_cast<double>(state.iterations()) / 2.0 * 100.0;
  }
  clock.reset();
  std::filesystem::remove_all(home);
}
BENCHMARK_CAPTURE(BM_CPUMonitorTimersEveryTwoSeconds, this_machine, true);
BENCHMARK_CAPTURE(BM_CPUMonitorTimersEveryTwoSeconds, fixed_figures, false);

}  // namespace

BENCHMARK_MAIN();
