// Shared pieces of the tests: a private folder per test and a simulated machine installed in it.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"

namespace corvane::testing {

// A fresh temporary folder, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// The whole content of a file ("" when it cannot be read), and a file written with its folders.
std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view text);

// Parses a profile that the test wrote; fails the test when it does not parse.
std::shared_ptr<const platform::MachineProfile> profileFromJson(const std::string& json);

// Installs `profile` (null: a Mac without an SMC) as the process's simulated machine, with its
// files under `root`; `announce` records it as the machine the helper tool writes to.
void installSimulated(std::shared_ptr<const platform::MachineProfile> profile, const std::filesystem::path& root,
                      bool announce = true);

// A built-in machine; fails the test when there is none of that name.
std::shared_ptr<const platform::MachineProfile> builtinMachine(std::string_view name = platform::kDefaultMachine);

// Installs `profile` as the process's simulated machine, with files under `root`, and opens the
// SMC (which also drops key information cached from an earlier machine).
void installMachine(std::shared_ptr<const platform::MachineProfile> profile, const std::filesystem::path& root);

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
ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                         const std::filesystem::path& dataHome = {},
                         std::map<std::string, std::string> environment = {});

// The folder to give simulated machines as their root so that a program run with
// XDG_DATA_HOME=`dataHome` shares their files.
std::filesystem::path rootSharedWith(const std::filesystem::path& dataHome);

}  // namespace corvane::testing
