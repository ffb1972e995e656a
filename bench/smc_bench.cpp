// Speed of the SMC layer on simulated machines: decoding, cached and cold reads, and listing the
// whole key table of the largest built-in profile.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/sim_dynamics.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"
#include "platform/sim/sim_smc_driver.h"

namespace {

using namespace corvane;

// Allocation counting: decoding must not allocate.
std::size_t g_allocations = 0;

}  // namespace

// GCC cannot see that these replacements pair malloc with free throughout.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

struct TypeCase {
  const char* type;
  std::vector<unsigned char> bytes;
};

const std::vector<TypeCase>& everyType() {
  static const std::vector<TypeCase> cases = {
      {"ui8 ", {0x05}}, {"ui16", {0x01, 0x2C}}, {"ui32", {0, 0, 1, 0x2C}}, {"flt ", {0, 0, 0x28, 0x42}},
      {"si8 ", {0xFF}}, {"fp1f", {0x80, 0}},   {"fp4c", {0x10, 0}},       {"fp5b", {0x08, 0}},
      {"fp6a", {4, 0}}, {"fp79", {2, 0}},      {"fp88", {1, 0x80}},       {"fpa6", {0, 0x40}},
      {"fpc4", {0, 0x18}}, {"fpe2", {0x1F, 0x40}}, {"sp1e", {0xC0, 0}},   {"sp3c", {0x10, 0}},
      {"sp4b", {8, 0}}, {"sp5a", {0xFC, 0}},   {"sp69", {2, 0}},          {"sp78", {0x2A, 0x80}},
      {"sp87", {1, 0}}, {"sp96", {0, 0x40}},   {"spb4", {0xFF, 0xF0}},    {"spf0", {0xFF, 0xFF}},
      {"si16", {0xFF, 0xFE}}, {"{pwm", {0x80, 0}}, {"ch8*", {'a', 'b'}},  {"hex_", {1, 2}}};
  return cases;
}

void BM_ConvertValueToNumber(benchmark::State& state) {
  const TypeCase& c = everyType()[static_cast<std::size_t>(state.range(0))];
  SMCValue value;
  std::memset(&value, 0, sizeof value);
  std::memcpy(value.dataType, c.type, 5);
  value.dataSize = static_cast<uint32_t>(c.bytes.size());
  std::memcpy(value.bytes, c.bytes.data(), c.bytes.size());
  const std::size_t before = g_allocations;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value);
    benchmark::DoNotOptimize(SMCConvertValueToNumber(value));
  }
  state.SetLabel(c.type);
  state.counters["allocations"] = static_cast<double>(g_allocations - before);
}
BENCHMARK(BM_ConvertValueToNumber)->DenseRange(0, 27);

// Installs a built-in machine with its files in a private folder.
platform::SimSmcDriver& installBuiltin(const char* name) {
  static const std::filesystem::path root = std::filesystem::temp_directory_path() / "corvane-bench";
  std::string error;
  auto profile = platform::loadBuiltinProfile(name, &error);
  if (!profile) {
    std::fprintf(stderr, "bench: %s\n", error.c_str());
    std::exit(1);
  }
  platform::SimulatedOptions options;
  options.root = root;
  options.announce = false;
  platform::install(platform::simulated(profile, options));
  SMCOpen();
  return dynamic_cast<platform::SimSmcDriver&>(platform::current().smc());
}

void BM_ReadCachedKey(benchmark::State& state) {
  auto& driver = installBuiltin(std::string(platform::kDefaultMachine).c_str());
  SMCValue value;
  SMCReadKey("TC0P", &value);
  driver.resetCounts();
  for (auto _ : state) {
    benchmark::DoNotOptimize(SMCReadKey("TC0P", &value));
  }
  state.counters["driverCallsPerRead"] =
      static_cast<double>(driver.counts().total()) / static_cast<double>(state.iterations());
  SMCClose();
}
BENCHMARK(BM_ReadCachedKey);

// A temperature (0) and a fan's actual speed (1) read with the dynamics off (0) and on (1):
// what moving the values adds to a read.
void BM_ReadMovingKey(benchmark::State& state) {
  installBuiltin(std::string(platform::kDefaultMachine).c_str());
  const bool on = state.range(1) == 1;
  if (on) {
    platform::SimDynamicsOptions options;
    options.clock = [] { return dispatch::now(); };
    options.load = [] { return 0.5; };
    options.codec = smc::simValueCodec();
    platform::enableSimDynamics(platform::current(), std::move(options));
  }
  const char* key = state.range(0) == 0 ? "TC0P" : "F0Ac";
  SMCValue value;
  for (auto _ : state) {
    benchmark::DoNotOptimize(SMCReadKey(key, &value));
  }
  state.SetLabel(std::string(key) + (on ? " moving" : " as recorded"));
  SMCClose();
}
BENCHMARK(BM_ReadMovingKey)->ArgsProduct({{0, 1}, {0, 1}});

// Lists every key by index, as `corvane smc list` does, on the machine with the most keys.
void BM_ListLargestProfile(benchmark::State& state) {
  std::string largest;
  std::size_t most = 0;
  for (const auto& name : platform::builtinProfileNames()) {
    std::string error;
    auto profile = platform::loadBuiltinProfile(name, &error);
    if (profile && profile->smc.size() > most) {
      most = profile->smc.size();
      largest = name;
    }
  }
  auto& driver = installBuiltin(largest.c_str());
  SMCValue value;
  SMCReadKey("#KEY", &value);
  const auto total = static_cast<uint32_t>(smc::decodedValue(value).value_or(0.0f));
  driver.resetCounts();
  std::size_t read = 0;
  for (auto _ : state) {
    read = 0;
    for (uint32_t index = 0; index < total; ++index) {
      if (SMCReadKeyByIndex(index, &value) == 0) {
        benchmark::DoNotOptimize(SMCConvertValueToNumber(value));
        ++read;
      }
    }
  }
  state.SetLabel(largest);
  state.counters["keys"] = static_cast<double>(total);
  state.counters["keysRead"] = static_cast<double>(read);
  state.counters["driverCallsPerList"] =
      static_cast<double>(driver.counts().total()) / static_cast<double>(state.iterations());
  SMCClose();
}
BENCHMARK(BM_ListLargestProfile)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
