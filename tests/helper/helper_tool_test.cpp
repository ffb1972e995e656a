// The helper tool: its argument checks, and writes seen by another process.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../../tools/corvane-smc/helper_args.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/smc/smc.h"
#include "support/test_support.h"

namespace corvane {
namespace {

TEST(HelperArgumentsTest, AcceptsOnlyOneKeyAndOneHexValue) {
  struct ArgumentCase {
    std::vector<std::string_view> args;
    bool ok;
    const char* messagePart;  // for refusals
  };

  for (const ArgumentCase& c :
       std::initializer_list<ArgumentCase>{{{"-k", "F0Tg", "-w", "0000fa44"}, true, ""},
                                           {{"-w", "01", "-k", "F1Md"}, true, ""},
                                           {{}, false, "usage"},
                                           {{"-k", "F0Tg", "-w", "00", "-x"}, false, "usage"},
                                           {{"-k", "F0Tg", "-k", "F1Tg"}, false, "usage"},
                                           {{"-k", "F0Tgg", "-w", "00"}, false, "not four characters"},
                                           {{"-k", "F0\tg", "-w", "00"}, false, "printable"},
                                           {{"-k", "F0Tg", "-w", "0000fa4"}, false, "odd number"},
                                           {{"-k", "F0Tg", "-w", "-1"}, false, "not hexadecimal"},
                                           {{"-k", "F0Tg", "-w", ""}, false, "empty"},
                                           {{"-k", "F0Tg", "-w",
                                             std::string_view("00000000000000000000000000000000"
                                                              "0000000000000000000000000000000000")},
                                            false,
                                            "longer than 32 bytes"}}) {
    helper::WriteRequest request;
    std::string error;
    EXPECT_EQ(helper::parseArguments(c.args, request, error), c.ok) << error;
    if (!c.ok) {
      EXPECT_NE(error.find(c.messagePart), std::string::npos) << error;
    }
  }
}

TEST(HelperAllowlist, OnlyFanControlKeys) {
  for (const char* key : {"F0Md", "F0Tg", "F0Mn", "F9Tg", "FAMn", "FJMd", "FS! "}) {
    EXPECT_TRUE(smc::isFanControlKey(key)) << key;
  }
  for (const char* key : {"F0Ac", "F0Mx", "FKTg", "FaTg", "TC0P", "FNum", "fS! ", "F0md"}) {
    EXPECT_FALSE(smc::isFanControlKey(key)) << key;
  }
  EXPECT_TRUE(smc::isFanControlType("F0Md", "ui8 ") && smc::isFanControlType("F0Mn", "fpe2"));
  EXPECT_FALSE(smc::isFanControlType("F0Md", "flt ") || smc::isFanControlType("F0Tg", "ui16"));
}

// A two-fan machine in a profile file, so the helper can load it by path.
constexpr const char* kMachine = R"({"name":"Two fans","sysctl":{"hw.model":"Test1,1"},"smc":[
  ["#KEY","ui32","00000006"],["F0Md","ui8 ","00"],["F0Tg","flt ","00000000"],["F1Mn","fpe2","0000"],
  ["F0Ac","flt ","00000000"],["TC0P","sp78","2a80"],["FS! ","ui16","0000"]]})";

class HelperProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    profilePath_ = dir_.path() / "two-fans.json";
    testing::writeFile(profilePath_, kMachine);
    platform::SimulatedOptions options;
    options.root = testing::rootSharedWith(dir_.path());
    options.source = profilePath_.string();
    platform::install(platform::simulated(testing::profileFromJson(kMachine), options));
    ASSERT_EQ(SMCOpen(), 0);
  }
  void TearDown() override { SMCClose(); }

  testing::ProgramResult helper(const std::vector<std::string>& args) {
    return testing::runProgram(CORVANE_HELPER_PATH, args, dir_.path());
  }

  std::vector<unsigned char> bytesOf(const char* key) {
    SMCValue value;
    EXPECT_EQ(SMCReadKey(key, &value), 0);
    return {value.bytes, value.bytes + value.dataSize};
  }

  testing::TempDir dir_;
  std::filesystem::path profilePath_;
};

TEST_F(HelperProcessTest, AnotherProcessReadsWhatTheHelperWrote) {
  EXPECT_EQ(bytesOf("F0Tg"), (std::vector<unsigned char>{0, 0, 0, 0}));
  auto result = helper({"-k", "F0Tg", "-w", "0000fa44"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(bytesOf("F0Tg"), (std::vector<unsigned char>{0x00, 0x00, 0xfa, 0x44}));

  result = helper({"-k", "F1Mn", "-w", "1f40"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(bytesOf("F1Mn"), (std::vector<unsigned char>{0x1f, 0x40}));
  // Earlier writes survive later ones.
  EXPECT_EQ(bytesOf("F0Tg"), (std::vector<unsigned char>{0x00, 0x00, 0xfa, 0x44}));
}

TEST_F(HelperProcessTest, RefusalsWriteNothing) {
  struct Refusal {
    std::vector<std::string> args;
    const char* messagePart;
  };
  const Refusal refusals[] = {
      {{"-k", "F0Tg", "-w", "fa44"}, "holds 4 bytes"},
      {{"-k", "TC0P", "-w", "3000"}, "not a fan key"},
      {{"-k", "F5Tg", "-w", "00000000"}, "no key"},
      {{"-k", "F0Tg"}, "usage"},
  };
  for (const Refusal& refusal : refusals) {
    const auto result = helper(refusal.args);
    EXPECT_NE(result.exitCode, 0) << refusal.messagePart;
    EXPECT_NE(result.err.find(refusal.messagePart), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  EXPECT_EQ(bytesOf("F0Tg"), (std::vector<unsigned char>{0, 0, 0, 0}));
  testing::writeFile(profilePath_, "{ not json");  // an unloadable machine means no SMC
  const auto result = helper({"-k", "F0Tg", "-w", "0000fa44"});
  EXPECT_NE(result.exitCode, 0);
  EXPECT_NE(result.err.find("cannot open the SMC"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace corvane
