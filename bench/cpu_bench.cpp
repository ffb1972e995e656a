// One processor-load reading: on the recorded 64-processor tree, on generated trees of growing
// size (the cost should grow in step with the processor count), and on this machine.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "corvane/monitors/cpu_load_reader.h"
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

}  // namespace

BENCHMARK_MAIN();
