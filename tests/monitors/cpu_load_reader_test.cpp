#include "corvane/monitors/cpu_load_reader.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#ifdef __linux__
#include "platform/linux/processor_load_linux.h"
#endif

namespace corvane {
namespace {

using Ticks = std::array<std::uint32_t, 4>;  // user, system, idle, nice
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Hands out recorded samples in turn.
class RecordedTicks final : public platform::ProcessorLoad {
 public:
  explicit RecordedTicks(std::vector<platform::ProcessorTickSample> samples) : samples_(std::move(samples)) {}
  bool sample(platform::ProcessorTickSample& out) const override {
    if (next_ >= samples_.size()) return false;
    out = samples_[next_++];
    return true;
  }
  std::optional<std::vector<platform::ProcessorCore>> cores() const override { return std::nullopt; }

 private:
  std::vector<platform::ProcessorTickSample> samples_;
  mutable std::size_t next_ = 0;
};

std::vector<HWCPUCore> coresOfTypes(std::initializer_list<std::pair<std::uint64_t, std::uint64_t>> idAndType) {
  std::vector<HWCPUCore> cores;
  for (auto [id, type] : idAndType) cores.push_back({id, "cpu" + std::to_string(id), type});
  return cores;
}

void expectSame(double actual, double expected, const std::string& what) {
  if (std::isnan(expected)) {
    EXPECT_TRUE(std::isnan(actual)) << what;
  } else {
    EXPECT_NEAR(actual, expected, 1e-12) << what;
  }
}

// Per-processor differences between two readings, laid on counters about to wrap so that every
// row also checks the 32-bit arithmetic.
TEST(CPULoadReaderPerCore, FoldsAndAveragesRecordedTicks) {
  const std::vector<Ticks> diffs = {{30, 10, 60, 0}, {10, 10, 80, 0}, {50, 0, 50, 0},  {25, 5, 20, 50},
                                    {0, 0, 100, 0},  {0, 0, 0, 0},    {25, 25, 50, 0}, {100, 0, 0, 0}};
  const auto intel = coresOfTypes({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}});
  const auto apple = coresOfTypes({{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 2}, {5, 2}, {6, 2}, {7, 2}});
  struct Case {
    const char* name;
    std::vector<HWCPUCore> cores;
    bool hyperthreading;
    std::size_t processorsNow;  // fewer than the previous 8: processors went offline
    std::vector<double> perCore;
    double eMean, pMean;
  };
  const Case cases[] = {
      {"intel 8 threads", intel, true, 8, {0.3, 0.65, 0.0, 0.75}, kNaN, kNaN},
      {"intel 7 threads", {intel.begin(), intel.begin() + 7}, true, 8, {0.3, 0.65, 0.0}, kNaN, kNaN},
      {"apple 4E+4P", apple, false, 8, {0.4, 0.2, 0.5, 0.8, 0.0, 0.0, 0.5, 1.0}, 0.475, 0.375},
      {"apple, last processor offline", apple, false, 7, {0.4, 0.2, 0.5, 0.8, 0.0, 0.0, 0.5, 0.0}, 0.475, 0.125},
      {"core id past the readings", coresOfTypes({{0, 1}, {1, 1}, {9, 2}}), false, 8, {0.4, 0.2, 0.5}, 0.3, 0.0},
      {"no kinds, no threads", {intel.begin(), intel.begin() + 2}, false, 8, {0.4, 0.2}, kNaN, kNaN},
  };
  for (const auto& c : cases) {
    platform::ProcessorTickSample before, after;
    for (std::size_t p = 0; p < diffs.size(); ++p) {
      for (std::size_t k = 0; k < 4; ++k) {
        const std::uint32_t base = 0xFFFFFFC0u - static_cast<std::uint32_t>(p);
        before.processors.push_back(base);
        if (p < c.processorsNow) after.processors.push_back(base + diffs[p][k]);
      }
    }
    HWCPULoadReader reader(std::make_shared<RecordedTicks>(std::vector{before, after}), c.cores, c.hyperthreading);
    reader.read();
    const auto sinceBoot = reader.response();
    const auto kept = sinceBoot.perCoreUsages();
    reader.read();
    const auto info = reader.response();
    const auto usages = info.perCoreUsages();
    ASSERT_EQ(usages.size(), c.perCore.size()) << c.name;
    for (std::size_t i = 0; i < usages.size(); ++i) expectSame(usages[i], c.perCore[i], c.name);
    EXPECT_EQ(info.usagePerCore == nullptr, c.hyperthreading) << c.name;
    expectSame(info.usageECores.value_or(-1), c.eMean, c.name);
    expectSame(info.usagePCores.value_or(-1), c.pMean, c.name);
    // A list handed out earlier is not refilled by the next reading.
    EXPECT_EQ(sinceBoot.perCoreUsages(), kept) << c.name;
  }
}

TEST(CPULoadReaderOverall, SharesFromMachineTicks) {
  struct Step {
    Ticks ticks;
    double user, system, idle, total;
  };
  const std::vector<std::vector<Step>> runs = {
      // Since boot; then no change keeps the shares; nice is in the total only.
      {{{300, 100, 500, 100}, 0.3, 0.1, 0.5, 0.4},
       {{300, 100, 500, 100}, 0.3, 0.1, 0.5, 0.4},
       {{300, 150, 550, 100}, 0.0, 0.5, 0.5, 0.5}},
      // A user counter that wraps between two readings.
      {{{0xFFFFFF9Cu, 0, 0, 0}, 1.0, 0.0, 0.0, 1.0}, {{100, 0, 200, 0}, 0.5, 0.0, 0.5, 0.5}},
  };
  for (std::size_t r = 0; r < runs.size(); ++r) {
    std::vector<platform::ProcessorTickSample> samples;
    for (const auto& step : runs[r]) samples.push_back({step.ticks, {}});
    HWCPULoadReader reader(std::make_shared<RecordedTicks>(samples), std::vector<HWCPUCore>{}, false);
    for (std::size_t s = 0; s < runs[r].size(); ++s) {
      reader.read();
      const auto info = reader.response();
      const std::string at = "run " + std::to_string(r) + " step " + std::to_string(s);
      EXPECT_NEAR(info.userLoad, runs[r][s].user, 1e-12) << at;
      EXPECT_NEAR(info.systemLoad, runs[r][s].system, 1e-12) << at;
      EXPECT_NEAR(info.idleLoad, runs[r][s].idle, 1e-12) << at;
      EXPECT_NEAR(info.totalUsage, runs[r][s].total, 1e-12) << at;
    }
  }
}

#ifdef __linux__
TEST(CPULoadReaderOverall, SixtyFourProcessorTreeSinceBoot) {
  const auto tree = std::filesystem::path(CORVANE_SOURCE_DIR) / "tests/platform/data/cpu64";
  std::vector<HWCPUCore> cores;
  for (std::uint64_t id = 0; id < 64; ++id) cores.push_back({id, "cpu" + std::to_string(id), 0});
  HWCPULoadReader reader(platform::procfs::makeProcessorLoad({tree / "proc", tree / "sys"}), cores, false);
  reader.read();
  const auto info = reader.response();
  EXPECT_NEAR(info.userLoad, 0.3, 1e-12);
  EXPECT_NEAR(info.systemLoad, 0.1, 1e-12);
  EXPECT_NEAR(info.idleLoad, 0.6, 1e-12);
  const auto usages = info.perCoreUsages();
  ASSERT_EQ(usages.size(), 64u);
  // Every processor ran the same number of ticks, alternating between two loads.
  for (std::size_t i = 0; i < usages.size(); ++i) EXPECT_NEAR(usages[i], i % 2 ? 0.4128 : 0.3872, 1e-12) << i;
}
#endif

}  // namespace
}  // namespace corvane
