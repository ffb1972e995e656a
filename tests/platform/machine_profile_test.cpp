#include "corvane/platform/machine_profile.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform {
namespace {

using ::testing::HasSubstr;

// A profile around the given smc entries (and extra top-level members).
std::string profileJson(const std::string& entries, const std::string& extra = "") {
  return R"({"name": "Test1,1", "sysctl": {"hw.model": "Test1,1"}, "smc": [)" + entries + "]" + extra + "}";
}

constexpr const char* kFirst = R"(["#KEY", "ui32", "00000002"], )";

TEST(LoaderErrorTest, RejectsTheWholeProfileNamingOriginAndEntry) {
  struct Case {
    std::string json;
    std::vector<std::string> expected;  // parts of the message
  };
  for (const auto& c :
       {Case{profileJson(std::string(kFirst) + R"(["TC0P", "sp78", "2g80"])"),
             {R"(smc entry 1 ("TC0P"): value "2g80" has a bad hex digit)"}},
        Case{profileJson(R"(["TC0P", "sp78", ")" + std::string(66, '0') + "\"]"),
             {R"(smc entry 0 ("TC0P"): value of 33 bytes is over 32)"}},
        Case{profileJson(R"(["TC0", "sp78", "2f80"])"), {R"(smc entry 0 ("TC0"): key "TC0" is not four characters)"}},
        Case{profileJson(R"(["TC0P", "sp78", "2f80", {"size": 3}])"),
             {R"(smc entry 0 ("TC0P"): size 3 does not match the 2 bytes)"}},
        Case{profileJson(std::string(kFirst) + R"(["TC0P", "sp78", "2f80"], ["TC0P", "sp78", "3000"])"),
             {R"(smc entry 2 ("TC0P"): duplicate key "TC0P" (first at entry 1))"}},
        Case{profileJson(R"(["TC0P", "sp78", "2f80", {"atr": "80"}])"),
             {R"(smc entry 0 ("TC0P"): unknown option "atr")"}},
        Case{R"({"name": "X", "sysctl": {}})", {"no \"smc\""}},
        Case{R"({"name": "X", "sysctl": {"hw.model": true}, "smc": []})",
             {R"(sysctl "hw.model": value is not a string or a number)"}},
        Case{profileJson("", R"(, "hid": {"temperature": [["PMU tdie1"]]})"),
             {R"(hid "temperature" entry 0: not a [name, number] pair)"}},
        Case{"[1, 2]", {"not an object"}},
        Case{R"({"name": "\u001b\u0007", "sysctl": {}, "smc": []})", {"no printable character"}},
        Case{profileJson("", R"(, "ioreg": {"a": )" + std::string(70, '[') + std::string(70, ']') + "}"),
             {"nested deeper than 64 levels"}}}) {
    std::string error;
    EXPECT_EQ(parseProfile(c.json, "bad.json", &error), nullptr) << c.json;
    EXPECT_THAT(error, HasSubstr("profile 'bad.json': "));
    for (const auto& part : c.expected) EXPECT_THAT(error, HasSubstr(part));
  }
}

TEST(MachineProfile, BuiltinNamesIgnoreCaseAndSuggestOnlyCloseNames) {
  struct Case {
    const char* asked;
    const char* loads;      // the machine it finds, or nullptr
    const char* errorPart;  // for a name it does not find
  };
  for (const auto& c : {Case{"macbookpro16,1", "MacBookPro16,1", nullptr}, Case{"m2-max", "M2-Max", nullptr},
                        Case{"iMac19,3", nullptr, "'iMac19,3'; did you mean iMac19,2"},
                        Case{"MacBookPro99,9", nullptr, "did you mean MacBookPro9,2, "},
                        Case{"Raspberry", nullptr, "no built-in machine named 'Raspberry' ("},
                        Case{"", nullptr, "no built-in machine named ''"}}) {
    std::string error;
    auto profile = resolveMachine(c.asked, &error);
    if (c.loads != nullptr) {
      ASSERT_NE(profile, nullptr) << error;
      EXPECT_EQ(profile->name, c.loads);
      continue;
    }
    EXPECT_EQ(profile, nullptr);
    EXPECT_THAT(error, HasSubstr(c.errorPart));
    EXPECT_LE(std::count(error.begin(), error.end(), ','), 6) << "a few names, not the whole list: " << error;
  }
}

TEST(MachineProfile, ResolvesNamesFilesAndReportsMissingOnes) {
  std::string error;
  // Built-in profiles are parsed once and shared, also between threads.
  std::shared_ptr<const MachineProfile> fromThread;
  std::thread([&] { fromThread = loadBuiltinProfile(kDefaultMachine, nullptr); }).join();
  ASSERT_NE(fromThread, nullptr);
  EXPECT_EQ(resolveMachine(kDefaultMachine, &error), fromThread);

  testing::TempDir dir;
  const auto good = (dir.path() / "mine.json").string();
  testing::writeFile(good, profileJson(R"(["TC0P", "sp78", "2f80"])"));
  auto fromFile = resolveMachine(good, &error);
  ASSERT_NE(fromFile, nullptr) << error;
  EXPECT_EQ(fromFile->name, "Test1,1");

  const auto bad = (dir.path() / "bad.json").string();
  testing::writeFile(bad, profileJson(R"(["TC0P", "sp78", "2f8"])"));
  EXPECT_EQ(resolveMachine(bad, &error), nullptr);
  EXPECT_THAT(error, HasSubstr("profile '" + bad + "': smc entry 0"));

  EXPECT_EQ(resolveMachine(dir.path().string(), &error), nullptr);
  EXPECT_THAT(error, HasSubstr("cannot read profile"));

  EXPECT_EQ(resolveMachine((dir.path() / "gone.json").string(), &error), nullptr);
  EXPECT_THAT(error, HasSubstr("gone.json': no such file"));
}

}  // namespace
}  // namespace corvane::platform
