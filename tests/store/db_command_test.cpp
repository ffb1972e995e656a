// `corvane db`: building twice keeps one "Manual" set; showing never makes a store.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

TEST(DbCommand, BuildTwiceThenShowAndRefuseWrongInvocations) {
  testing::TempDir home;
  const std::string store = (home.path() / "stores" / "mine.sqlite").string();
  for (int round = 0; round < 2; ++round) {
    const auto built = testing::runProgram(CORVANE_CLI_PATH, {"db", "build", "--store", store, "--machine",
                                                              "MacBookPro16,1"}, home.path());
    ASSERT_EQ(built.exitCode, 0) << built.err;
  }
  const auto shown = testing::runProgram(CORVANE_CLI_PATH, {"db", "show", "--json", "--store", store}, home.path());
  ASSERT_EQ(shown.exitCode, 0) << shown.err;
  const auto listing = nlohmann::json::parse(shown.out, nullptr, false);
  ASSERT_TRUE(listing.is_object()) << shown.out;
  ASSERT_EQ(listing["categories"].size(), 5u);
  EXPECT_FALSE(listing["categories"][0]["sensors"].empty());
  ASSERT_EQ(listing["fanSets"].size(), 1u);  // the second build made no second set
  EXPECT_EQ(listing["fanSets"][0]["name"], "Manual");
  EXPECT_FALSE(listing["fanSets"][0]["valueDict"].empty());

  struct Case {
    std::vector<std::string> args;
    int exitCode;
    const char* errorStart;
  };
  const Case cases[] = {
      {{"db", "build", "--bogus"}, 2, "corvane: "},
      {{"db", "show", "--store", (home.path() / "absent.sqlite").string()}, 1, "corvane: there is no store"},
  };
  for (const auto& c : cases) {
    const auto result = testing::runProgram(CORVANE_CLI_PATH, c.args, home.path());
    EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
    EXPECT_NE(result.err.find(c.errorStart), std::string::npos) << result.err;
  }
  EXPECT_FALSE(std::filesystem::exists(home.path() / "absent.sqlite"));
}

}  // namespace
}  // namespace corvane
