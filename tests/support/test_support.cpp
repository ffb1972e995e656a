#include "support/test_support.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "corvane/smc/smc.h"
#include "support/process_support.h"

namespace corvane::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
  char* made = ::mkdtemp(pattern.data());
  if (made == nullptr) {
    ADD_FAILURE() << "mkdtemp failed";
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::shared_ptr<const platform::MachineProfile> profileFromJson(const std::string& json) {
  std::string error;
  auto profile = platform::parseProfile(json, "test profile", &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

void installSimulated(std::shared_ptr<const platform::MachineProfile> profile, const std::filesystem::path& root,
                      bool announce) {
  platform::SimulatedOptions options;
  options.root = root;
  options.announce = announce;
  platform::install(platform::simulated(std::move(profile), options));
}

std::shared_ptr<const platform::MachineProfile> builtinMachine(std::string_view name) {
  std::string error;
  auto profile = platform::loadBuiltinProfile(name, &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

void installMachine(std::shared_ptr<const platform::MachineProfile> profile, const std::filesystem::path& root) {
  installSimulated(std::move(profile), root);
  ASSERT_EQ(SMCOpen(), 0);
}

ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                         const std::filesystem::path& dataHome, std::map<std::string, std::string> environment) {
  TempDir output;
  const auto errFile = output.path() / "err";
  if (!dataHome.empty()) environment.emplace("XDG_DATA_HOME", dataHome);
  ChildProcess child(program, args, environment, errFile.string());
  ProgramResult result;
  if (!child.started()) return result;
  result.out = child.readAll(std::chrono::seconds(60));
  result.exitCode = child.wait(std::chrono::seconds(60)).value_or(-1);
  result.err = readFile(errFile);
  return result;
}

std::filesystem::path rootSharedWith(const std::filesystem::path& dataHome) { return dataHome / "Corvane"; }

}  // namespace corvane::testing
