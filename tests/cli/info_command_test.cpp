// `corvane info --json` on simulated machines: the keys a consumer reads, and what a recording
// without disk, battery or profiler data gives in their place.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

TEST(InfoCommand, JsonCarriesTheDevicePropertiesOfTheSimulatedModel) {
  struct Case {
    const char* machine;
    nlohmann::json modelName, platform, eCores, gpuInfos;  // no profiler on Apple silicon: null, not []
  };
  for (const auto& c : {Case{"MacBookPro15,1", "MacBook Pro 15-inch", 1, nullptr, nlohmann::json::array()},
                        Case{"M2-Max", nullptr, 128, 4, nullptr}}) {
    SCOPED_TRACE(c.machine);
    testing::TempDir dir;
    const auto result = testing::runProgram(CORVANE_CLI_PATH, {"info", "--json", "--machine", c.machine},
                                            dir.path() / "data");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto info = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(info.is_object()) << result.out;
    for (const char* key : {"machine", "hostName", "bootDate", "uptimeValue", "modelInfo", "osInfo"}) {
      EXPECT_TRUE(info.contains(key)) << key;
    }
    EXPECT_EQ(info["modelInfo"]["name"], c.modelName);
    for (const char* key : {"name", "versionString", "build"}) EXPECT_TRUE(info["osInfo"][key].is_string()) << key;
    EXPECT_EQ(info["cpuInfo"]["platform"], c.platform);
    EXPECT_EQ(info["cpuInfo"]["eCoreCount"], c.eCores);
    EXPECT_EQ(info["gpuInfos"], c.gpuInfos);
    // The recordings have no start-up disk and no battery data: the defaults, not a failure.
    EXPECT_TRUE(info["memoryInfo"]["physicalMemory"].is_string());
    EXPECT_TRUE(info["diskInfo"].is_null());
    EXPECT_EQ(info["batteryInfo"]["health"], 0);
  }
}

}  // namespace
}  // namespace corvane
