// `corvane info --json` on a simulated machine: the keys a consumer reads, the model from the
// profile's identifier.
#include <gtest/gtest.h>
#include <array>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

TEST(InfoCommand, JsonCarriesTheDevicePropertiesOfTheSimulatedModel) {
  testing::TempDir dir;
  const auto result = testing::runProgram(CORVANE_CLI_PATH, {"info", "--json", "--machine", "MacBookPro15,1"},
                                          dir.path() / "data");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto info = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(info.is_object()) << result.out;
  for (const char* key : {"machine", "hostName", "bootDate", "uptimeValue", "modelInfo", "osInfo"}) {
    EXPECT_TRUE(info.contains(key)) << key;
  }
  const auto& model = info["modelInfo"];
  EXPECT_EQ(model["modelId"], "MacBookPro15,1");
  EXPECT_EQ(model["name"], "MacBook Pro 15-inch");
  EXPECT_EQ(model["year"], 2018);
  EXPECT_EQ(model["family"], 2);
  EXPECT_EQ(model["familyName"], "MacBook Pro");
  EXPECT_EQ(model["familyIcon"], "ico_macbookpro");
  EXPECT_EQ(model["isT2ChipSupport"], true);
  for (const char* key : {"name", "versionString", "build"}) EXPECT_TRUE(info["osInfo"][key].is_string()) << key;
  EXPECT_EQ(info["cpuInfo"]["platform"], 1);
  EXPECT_EQ(info["gpuInfos"], nlohmann::json::array()) << "the profile records no graphics processors";
  // The recording has no start-up disk and no battery data: the defaults, not a failure.
  EXPECT_TRUE(info["memoryInfo"]["physicalMemory"].is_string());
  EXPECT_TRUE(info["diskInfo"].is_null());
  EXPECT_EQ(info["batteryInfo"]["health"], 0);
}

TEST(InfoCommand, AppleSiliconMachineShowsItsClustersAndNoProfilerGraphics) {
  testing::TempDir dir;
  const auto result =
      testing::runProgram(CORVANE_CLI_PATH, {"info", "--json", "--machine", "M2-Max"}, dir.path() / "data");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto info = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(info.is_object()) << result.out;
  const auto& cpu = info["cpuInfo"];
  EXPECT_EQ((std::array{cpu["eCoreCount"], cpu["pCoreCount"], cpu["coreList"][11]["type"], cpu["hasEPCores"]}),
            (std::array<nlohmann::json, 4>{4, 8, 2, true}));
  EXPECT_TRUE(info["gpuInfos"].is_null());
}

}  // namespace
}  // namespace corvane
