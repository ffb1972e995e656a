#include "support/test_support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <string>

#include "corvane/smc/smc.h"

extern char** environ;

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

void installMachine(std::shared_ptr<const platform::MachineProfile> profile,
                    const std::filesystem::path& root) {
  installSimulated(std::move(profile), root);
  ASSERT_EQ(SMCOpen(), 0);
}

ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                         const std::filesystem::path& dataHome) {
  ProgramResult result;
  TempDir output;
  const std::string outPath = (output.path() / "out").string();
  const std::string errPath = (output.path() / "err").string();

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);

  std::vector<std::string> storage{program};
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& arg : storage) argv.push_back(arg.data());
  argv.push_back(nullptr);

  std::vector<std::string> environment;
  for (char** e = environ; *e != nullptr; ++e) {
    if (dataHome.empty() || std::string_view(*e).rfind("XDG_DATA_HOME=", 0) != 0) environment.emplace_back(*e);
  }
  if (!dataHome.empty()) environment.push_back("XDG_DATA_HOME=" + dataHome.string());
  std::vector<char*> envp;
  for (auto& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);

  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return result;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  std::ifstream outFile(outPath), errFile(errPath);
  result.out.assign(std::istreambuf_iterator<char>(outFile), std::istreambuf_iterator<char>());
  result.err.assign(std::istreambuf_iterator<char>(errFile), std::istreambuf_iterator<char>());
  return result;
}

std::filesystem::path rootSharedWith(const std::filesystem::path& dataHome) { return dataHome / "Corvane"; }

}  // namespace corvane::testing
