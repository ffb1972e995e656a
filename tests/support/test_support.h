// Shared pieces of the tests: a private folder per test, a simulated machine installed in it, and
// the programs run to their end.
#pragma once

#include <stdlib.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "support/process_support.h"

namespace corvane::testing {

// A fresh temporary folder, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// The whole content of a file ("" when it cannot be read), and a file written with its folders.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
inline void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// A moment given in the process's local time, the zone both libc and ICU take from TZ.
inline std::chrono::system_clock::time_point localTime(int year, int month, int day, int hour = 12, int minute = 0,
                                                       int second = 0) {
  std::tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  parts.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

// Parses a profile that the test wrote; fails the test when it does not parse.
inline std::shared_ptr<const platform::MachineProfile> profileFromJson(const std::string& json) {
  std::string error;
  auto profile = platform::parseProfile(json, "test profile", &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

// Installs `profile` (null: a Mac without an SMC) as the process's simulated machine, with its
// files under `root`; `announce` records it as the machine the helper tool writes to.
inline void installSimulated(std::shared_ptr<const platform::MachineProfile> profile,
                             const std::filesystem::path& root, bool announce = true) {
  platform::install(platform::simulated(std::move(profile), {.root = root, .announce = announce, .source = {}}));
}

// A built-in machine; fails the test when there is none of that name.
inline std::shared_ptr<const platform::MachineProfile> builtinMachine(
    std::string_view name = platform::kDefaultMachine) {
  std::string error;
  auto profile = platform::loadBuiltinProfile(name, &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

// Installs `profile` as the process's simulated machine, with files under `root`, and opens the
// SMC (which also drops key information cached from an earlier machine).
inline void installMachine(std::shared_ptr<const platform::MachineProfile> profile,
                           const std::filesystem::path& root) {
  installSimulated(std::move(profile), root);
  ASSERT_EQ(SMCOpen(), 0);
}

// A test on a simulated machine of its own, given as profile JSON; the SMC connection is closed
// at the end.
class MachineTest : public ::testing::Test {
 protected:
  void install(const std::string& json) { installMachine(profileFromJson(json), dir_.path()); }
  void TearDown() override { SMCClose(); }
  TempDir dir_;
};

// What a finished program printed and how it ended.
struct ProgramResult {
  int exitCode = -1;  // -1 when it could not be started or did not exit normally
  std::string out;
  std::string err;
};

// Runs `program` with `args` (no shell), with XDG_DATA_HOME set to `dataHome` when it is not
// empty, so that the program's files land in the test's folder, and with the `environment`
// overrides (an empty value removes the variable); waits for it to end.
inline ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                                const std::filesystem::path& dataHome = {},
                                std::map<std::string, std::string> environment = {}) {
  TempDir output;
  if (!dataHome.empty()) environment.emplace("XDG_DATA_HOME", dataHome);
  ChildProcess child(program, args, environment, (output.path() / "err").string());
  ProgramResult result;
  if (!child.started()) return result;
  result.out = child.readAll(std::chrono::seconds(60));
  result.exitCode = child.wait(std::chrono::seconds(60)).value_or(-1);
  result.err = readFile(output.path() / "err");
  return result;
}

// The folder to give simulated machines as their root so that a program run with
// XDG_DATA_HOME=`dataHome` shares their files.
inline std::filesystem::path rootSharedWith(const std::filesystem::path& dataHome) { return dataHome / "Corvane"; }

}  // namespace corvane::testing
