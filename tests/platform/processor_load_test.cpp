#ifdef __linux__
#include <gtest/gtest.h>

#include "platform/linux/processor_load_linux.h"
#include "support/test_support.h"

namespace corvane::platform::procfs {
namespace {

using Ticks = std::array<std::uint32_t, 4>;  // user, system, idle, nice

TEST(ProcStatParsing, MapsLinuxTimesToMacTicks) {
  struct Case {
    const char* name;
    const char* text;
    bool usable;
    std::optional<Ticks> machine;
    std::vector<std::uint32_t> processors;
  };
  const Case cases[] = {
      {"recorded two-processor host",
       "cpu  1842830 113201 264838 161070 2016 0 1296 4920 0 0\n"
       "cpu0 912647 70541 127018 81836 508 0 46 2482 0 0\n"
       "cpu1 930183 42660 137819 79233 1508 0 1249 2437 0 0\n"
       "intr 7495954 0 0 0\nctxt 10181187\n",
       true, Ticks{1842830, 266134, 163086, 113201},
       {912647, 127064, 82344, 70541, 930183, 139068, 80741, 42660}},
      {"old kernel with four fields", "cpu 1 2 3 4\ncpu0 1 2 3 4\n", true, Ticks{1, 3, 4, 2}, {1, 3, 4, 2}},
      {"a line with fewer fields counts as absent", "cpu0 1 2 3\ncpu1 5 6 7 8\n", true, std::nullopt,
       {0, 0, 0, 0, 5, 7, 8, 6}},
      {"an offline processor leaves a gap", "cpu0 1 2 3 4\ncpu2 5 6 7 8", true, std::nullopt,
       {1, 3, 4, 2, 0, 0, 0, 0, 5, 7, 8, 6}},
      {"64-bit counters are cut to 32 bits", "cpu 4294967396 0 0 0\n", true, Ticks{100, 0, 0, 0}, {}},
      {"garbage numbers and absurd processor numbers", "cpu0 1 2 x 4\ncpu99999999 1 2 3 4\ncpuX 1 2 3 4\n",
       false, std::nullopt, {}},
      {"empty", "", false, std::nullopt, {}},
  };
  for (const auto& c : cases) {
    ProcessorTickSample sample;
    EXPECT_EQ(parseProcStat(c.text, sample), c.usable) << c.name;
    EXPECT_EQ(sample.machine, c.machine) << c.name;
    EXPECT_EQ(sample.processors, c.processors) << c.name;
  }
}

TEST(CoreKinds, FromCapacityElseFromClusterFrequencies) {
  struct Case {
    const char* name;
    std::vector<CoreFacts> facts;
    std::vector<std::uint64_t> types;  // in processor order
  };
  const Case cases[] = {
      {"capacities, listed out of order",
       {{2, 512, {}, {}}, {0, 1024, {}, {}}, {3, 512, {}, {}}, {1, 1024, {}, {}}},
       {2, 2, 1, 1}},
      {"equal capacities, one cluster", {{0, 1024, 0, 3000}, {1, 1024, 0, 2000}}, {0, 0}},
      {"no capacities, two clusters of different speeds",
       {{0, {}, 0, 2000}, {1, {}, 0, 2000}, {2, {}, 1, 3200}, {3, {}, 1, 3200}},
       {1, 1, 2, 2}},
      {"one cluster: speeds alone tell nothing", {{0, {}, 0, 2000}, {1, {}, 0, 3200}}, {0, 0}},
      {"a core without capacity", {{0, 1024, 0, {}}, {1, {}, 1, {}}}, {0, 0}},
  };
  for (const auto& c : cases) {
    std::vector<std::uint64_t> types;
    for (const auto& core : coresWithKinds(c.facts)) types.push_back(core.type);
    EXPECT_EQ(types, c.types) << c.name;
  }

  testing::TempDir dir;
  const auto cpus = dir.path() / "sys/devices/system/cpu";
  for (const auto& [entry, capacity] : std::initializer_list<std::pair<const char*, const char*>>{
           {"cpu1", "1024\n"}, {"cpu0", "446\n"}, {"cpufreq", "1\n"}, {"cpuidle", "1\n"}}) {
    testing::writeFile(cpus / entry / "cpu_capacity", capacity);
  }
  const auto cores = makeProcessorLoad({dir.path() / "proc", dir.path() / "sys"})->cores();
  ASSERT_TRUE(cores.has_value());
  std::vector<std::pair<std::string, std::uint64_t>> named;
  for (const auto& core : *cores) named.emplace_back(core.name, core.type);
  EXPECT_EQ(named, (std::vector<std::pair<std::string, std::uint64_t>>{{"cpu0", 1}, {"cpu1", 2}}));
  EXPECT_FALSE(makeProcessorLoad({dir.path() / "none", dir.path() / "none"})->cores().has_value());
}

}  // namespace
}  // namespace corvane::platform::procfs
#endif
