// `corvane cpu --json`: this host's load measured for real, and a simulated machine that records
// no ticks giving nulls rather than zeros.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

struct CpuCase {
  const char* label;
  std::vector<std::string> args;
  bool measured;  // the machine gives its own processor ticks
};

void PrintTo(const CpuCase& c, std::ostream* os) { *os << c.label; }

class CpuCommandTest : public ::testing::TestWithParam<CpuCase> {};

TEST_P(CpuCommandTest, ReportsTheLoadOrSaysThereIsNone) {
  const CpuCase& c = GetParam();
  testing::TempDir dir;
  const auto result = testing::runProgram(CORVANE_CLI_PATH, c.args, dir.path() / "data");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto doc = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(doc.is_object()) << result.out;
  ASSERT_TRUE(doc["cpuInfo"].is_object());
  EXPECT_TRUE(doc["cpuInfo"]["brand"].is_string());
  const auto& load = doc["loadInfo"];
  if (!c.measured) {
    EXPECT_TRUE(load.is_null() && doc["loadValues"].is_null() && doc["topProcesses"].is_null()) << result.out;
    return;
  }
  const auto share = [](const nlohmann::json& v) { return v.is_number() && v >= 0.0 && v <= 1.0; };
  for (const char* key : {"totalUsage", "userLoad", "systemLoad", "idleLoad"}) EXPECT_TRUE(share(load[key])) << key;
  const unsigned logical = std::thread::hardware_concurrency();
  ASSERT_EQ(load["usagePerCore"].size(), doc["cpuInfo"]["hasHyperthreadingCores"].get<bool>() ? logical / 2 : logical);
  for (const auto& usage : load["usagePerCore"]) EXPECT_TRUE(share(usage)) << usage;
  EXPECT_EQ(doc["loadValues"].size(), 3u);
  ASSERT_FALSE(doc["topProcesses"].empty());  // at least the ps that listed them
  for (const auto& process : doc["topProcesses"]) {
    EXPECT_GT(process["pid"].get<long long>(), 0);
    EXPECT_TRUE(process["usage"].is_number() && process["command"].is_string());
  }
}

INSTANTIATE_TEST_SUITE_P(Machines, CpuCommandTest,
                         ::testing::Values(CpuCase{"ThisHost", {"cpu", "--json", "--interval", "1"}, true},
                                           CpuCase{"Recorded", {"--machine", "M2-Max", "cpu", "--json"}, false}),
                         [](const auto& info) { return std::string(info.param.label); });

}  // namespace
}  // namespace corvane
