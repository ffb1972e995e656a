// The programs as a user meets them: versions, help, messages for mistakes, choosing a machine,
// and listings that leave no files behind.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

struct RunCase {
  const char* label;
  const char* program;             // CORVANE_CLI_PATH, CORVANE_DAEMON_PATH or CORVANE_HELPER_PATH
  std::vector<std::string> args;   // "{file}" stands for a profile with only sysctl and smc
  int exitCode;
  std::string outStart;            // what standard output begins with ("" = anything)
  std::string errPart;             // a part of standard error ("" = it is empty, "*" = not checked)
  bool leavesFiles = false;        // true only where the command writes something
};

void PrintTo(const RunCase& c, std::ostream* os) { *os << c.label; }

// Only the fields a profile must have; its name comes from the file's stem.
constexpr const char* kMinimalProfile = R"({"sysctl": {"hw.model": "Test1,1"},
  "smc": [["FNum", "ui8 ", "01"], ["F0Ac", "flt ", "00c0a944"], ["TC0P", "sp78", "2f80"]]})";

class CommandLineTest : public ::testing::TestWithParam<RunCase> {};

TEST_P(CommandLineTest, AnswersAsAUserExpects) {
  const RunCase& c = GetParam();
  testing::TempDir dir;
  const std::filesystem::path data = dir.path() / "data";
  const std::filesystem::path profile = dir.path() / "lab-bench.json";
  std::ofstream(profile) << kMinimalProfile;
  std::vector<std::string> args = c.args;
  for (auto& arg : args) {
    if (arg == "{file}") arg = profile.string();
  }

  const auto result = testing::runProgram(c.program, args, data);
  EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
  EXPECT_THAT(result.out, StartsWith(c.outStart));
  if (c.errPart.empty()) {
    EXPECT_EQ(result.err, "");
  } else if (c.errPart != "*") {
    const std::string name = std::filesystem::path(c.program).filename().string();
    EXPECT_THAT(result.err, StartsWith(name + ": "));
    EXPECT_THAT(result.err, HasSubstr(c.errPart));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  std::error_code ec;
  EXPECT_EQ(std::filesystem::exists(data, ec), c.leavesFiles);
}

const std::string kVersion = CORVANE_VERSION;

INSTANTIATE_TEST_SUITE_P(
    Programs, CommandLineTest,
    ::testing::Values(
        RunCase{"Version", CORVANE_CLI_PATH, {"--version"}, 0, "corvane " + kVersion + "\n", ""},
        RunCase{"HelperVersion", CORVANE_HELPER_PATH, {"--version"}, 0, "corvane-smc " + kVersion + "\n", ""},
        RunCase{"HelperHelp", CORVANE_HELPER_PATH, {"--help"}, 0, "usage: corvane-smc -k KEY -w HEX\n", ""},
        RunCase{"HelperHelpAmongOthers", CORVANE_HELPER_PATH, {"--help", "-k", "F0Tg"}, 2, "", "usage"},
        RunCase{"UnknownOption", CORVANE_CLI_PATH, {"--bogus"}, 2, "", "--bogus"},
        RunCase{"MissingKey", CORVANE_CLI_PATH, {"smc", "read"}, 2, "", "KEY"},
        RunCase{"CloseNames", CORVANE_CLI_PATH, {"--machine", "MacBookPro16,3"}, 2, "",
                "no built-in machine named 'MacBookPro16,3'; did you mean MacBookPro16,1, "},
        RunCase{"DefaultRun", CORVANE_CLI_PATH, {}, 0, "Simulated machine: MacBookPro16,1 (this host has no SMC)\n",
                ""},
        RunCase{"JsonNamesTheMachine", CORVANE_CLI_PATH, {"sensors", "--json", "--machine", "{file}"}, 0,
                "{\n \"machine\": {\n  \"name\": \"lab-bench\",\n  \"simulated\": true\n },\n \"sensors\": [", ""},
        RunCase{"NoSuchKey", CORVANE_CLI_PATH, {"smc", "read", "ZZZZ"}, 1, "", "no such key, 0xe00002f0"},
        RunCase{"DaemonHelp", CORVANE_CLI_PATH, {"daemon", "--help"}, 0, "Run as the process that reads", ""},
        RunCase{"DaemonTakesNoArguments", CORVANE_CLI_PATH, {"daemon", "now"}, 2, "", "now"},
        // corvane daemon becomes the daemon program, which speaks as corvane; started directly, as itself.
        RunCase{"DaemonUnknownMachine", CORVANE_CLI_PATH, {"daemon", "--machine", "MacBookPro16,3"}, 2, "",
                "no built-in machine named 'MacBookPro16,3'"},
        RunCase{"DaemonProgramHelp", CORVANE_DAEMON_PATH, {"--help"}, 0, "Run as the process that reads", ""},
        RunCase{"DaemonProgramUnknownOption", CORVANE_DAEMON_PATH, {"--bogus"}, 2, "", "--bogus"},
        RunCase{"CpuIntervalOutOfRange", CORVANE_CLI_PATH, {"cpu", "--interval", "0"}, 2, "", "--interval"},
        RunCase{"SettingsRead", CORVANE_CLI_PATH, {"settings", "list"}, 0, "", ""},
        // A value the setting cannot hold, or no such setting: refused, and nothing stored.
        RunCase{"SettingOfAnotherType", CORVANE_CLI_PATH, {"settings", "set", "HWUpdateFrequencyKey", "1.5"}, 2, "",
                "'1.5' is not a value for HWUpdateFrequencyKey"},
        RunCase{"SettingArrayOfNumbers", CORVANE_CLI_PATH, {"settings", "set", "HWFileLoggingSensorsKey", "[1,2]"}, 2,
                "", "expected a JSON array of strings"},
        RunCase{"UnknownSetting", CORVANE_CLI_PATH, {"settings", "set", "NoSuchSetting", "1"}, 2, "",
                "'NoSuchSetting' is not a setting"},
        RunCase{"SettingWritten", CORVANE_CLI_PATH, {"settings", "set", "HWTempUnitCelsius", "false"}, 0, "", "*",
                true},
        RunCase{"SimulateWithoutASpan", CORVANE_CLI_PATH, {"--machine", "M2-Max", "simulate"}, 2, "",
                "--hours H or --days D"},
        RunCase{"SimulateWithoutAMachine", CORVANE_CLI_PATH, {"simulate", "--days", "1"}, 2, "", "--machine"}),
    [](const auto& info) { return std::string(info.param.label); });

}  // namespace
}  // namespace corvane
