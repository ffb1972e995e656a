// The sensor list of recorded machines, as `corvane sensors --json --all` prints it, against
// lists checked by hand.
#include <cctype>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

class SensorGoldenTest : public ::testing::TestWithParam<const char*> {};

TEST_P(SensorGoldenTest, CliListMatchesTheCheckedList) {
  testing::TempDir home;
  const auto result =
      testing::runProgram(CORVANE_CLI_PATH, {"sensors", "--json", "--all", "--machine", GetParam()}, home.path());
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto listing = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(listing.is_object()) << result.out;
  EXPECT_EQ(listing["machine"], (nlohmann::json{{"name", GetParam()}, {"simulated", true}}));
  const auto& printed = listing["sensors"];
  const auto golden = nlohmann::json::parse(
      testing::readFile(std::string(CORVANE_SOURCE_DIR) + "/tests/sensors/golden/" + GetParam() + ".json"), nullptr,
      false);
  ASSERT_TRUE(printed.is_array()) << result.out;
  ASSERT_TRUE(golden.is_array());
  ASSERT_EQ(printed.size(), golden.size());
  for (std::size_t i = 0; i < golden.size(); ++i) {
    ASSERT_EQ(printed[i], golden[i]) << "entry " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Machines, SensorGoldenTest, ::testing::Values("MacBookPro16,1", "M2-Max"),
                         [](const auto& info) {
                           std::string name = info.param;
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace corvane
