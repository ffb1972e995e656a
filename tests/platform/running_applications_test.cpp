#ifdef __linux__
#include "platform/linux/running_applications_linux.h"

#include <signal.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform::procfs {
namespace {

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

struct StateCase {
  const char* stat;
  char state;
};

class ProcessStateTest : public ::testing::TestWithParam<StateCase> {};

TEST_P(ProcessStateTest, ReadsTheLetterAfterTheCommand) {
  EXPECT_EQ(parseProcessState(GetParam().stat), GetParam().state) << GetParam().stat;
}

INSTANTIATE_TEST_SUITE_P(Stats, ProcessStateTest,
                         ::testing::Values(StateCase{"42 (corvane) S 1 42 42 0", 'S'},
                                           StateCase{"43 (evil) Z (name)) Z 1", 'Z'},
                                           StateCase{"44 (with space) R 1", 'R'}, StateCase{"45 (cut", 0},
                                           StateCase{"46 (x)", 0}, StateCase{"", 0}));

TEST(ProcessMatching, ExecutableOrCutCommandName) {
  EXPECT_EQ(executableNameOfLink("/usr/lib/corvane/corvane (deleted)"), "corvane");
  EXPECT_EQ(executableNameOfLink("/usr/bin/corvane"), "corvane");

  const ProcessEntry script{1, "Corvane Helper", "dash", false};
  EXPECT_TRUE(runsAs(script, "Corvane Helper"));
  EXPECT_FALSE(runsAs(script, "sh"));
  const ProcessEntry longName{2, "a-very-long-pro", "", false};
  EXPECT_TRUE(runsAs(longName, "a-very-long-program-name"));
  EXPECT_FALSE(runsAs(longName, "a-very-long-pr"));
  EXPECT_FALSE(runsAs(ProcessEntry{3, "", "", false}, ""));
}

TEST(ProcScan, FixtureTreeListsProcessesAndFindsApplications) {
  testing::TempDir dir;
  const auto proc = dir.path() / "proc";
  writeFile(proc / "101/comm", "corvane\n");
  writeFile(proc / "101/stat", "101 (corvane) S 1 101");
  std::filesystem::create_symlink("/opt/corvane/bin/corvane", proc / "101/exe");
  writeFile(proc / "102/comm", "corvane\n");
  writeFile(proc / "102/stat", "102 (corvane) Z 1 102");  // ended, not yet reaped
  writeFile(proc / "103/comm", "bash\n");
  writeFile(proc / "103/stat", "103 (bash) S 1 103");
  writeFile(proc / "104/comm", "corvane\n");  // gone between listing and reading its stat
  writeFile(proc / "self/comm", "corvane\n");
  writeFile(proc / "self/stat", "7 (corvane) R 1");

  const auto processes = scanProcesses(proc);
  ASSERT_EQ(processes.size(), 3u);

  AppTable table{{"com.corvane.app", {{"corvane"}, {}}}, {"com.example.none", {{"nothing"}, {}}}};
  auto apps = makeRunningApplications(proc, table);
  const auto found = apps->runningApplications("com.corvane.app");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].processIdentifier, 101);
  EXPECT_EQ(found[0].bundleIdentifier, "com.corvane.app");
  EXPECT_TRUE(apps->runningApplications("com.example.none").empty());
  EXPECT_TRUE(apps->runningApplications("com.example.unmapped").empty());
}

TEST(AppPaths, BundleFolderOrExecutable) {
  testing::TempDir dir;
  const auto bundle = dir.path() / "Corvane Menu.app";
  const auto inside = bundle / "Contents/MacOS/Corvane Menu";
  writeFile(inside, "#!/bin/sh\n");
  EXPECT_EQ(executableOfApp(bundle), std::nullopt) << "not executable yet";
  std::filesystem::permissions(inside, std::filesystem::perms::owner_all);
  EXPECT_EQ(executableOfApp(bundle), inside);
  EXPECT_EQ(executableOfApp(inside), inside);
  EXPECT_EQ(executableOfApp(dir.path() / "Missing.app"), std::nullopt);
  EXPECT_EQ(executableOfApp(dir.path()), std::nullopt);
}

// A real launch: a bundle whose executable is a script that becomes a long sleep, recognised
// as the script (while it starts) or as the copied sleep program (once it has become that).
TEST(LinuxApplications, OpensRecognisesAndEndsARealProcess) {
  testing::TempDir dir;
  const std::string tag = std::to_string(::getpid());
  const std::string sleeperName = "cvsleep" + tag;
  const std::string appName = "Sleeper" + tag;
  const auto sleeper = dir.path() / sleeperName;
  std::filesystem::copy_file("/bin/sleep", sleeper);
  const auto bundle = dir.path() / (appName + ".app");
  const auto script = bundle / "Contents/MacOS" / appName;
  writeFile(script, "#!/bin/sh\nexec '" + sleeper.string() + "' 120\n");
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);

  auto apps = makeRunningApplications("/proc", {{"com.example.sleeper", {{appName, sleeperName}, {}}}});
  ASSERT_TRUE(apps->runningApplications("com.example.sleeper").empty());
  // Whatever fails below, nothing started here outlives the test.
  struct KillLeftovers {
    std::shared_ptr<RunningApplications> apps;
    ~KillLeftovers() {
      for (const auto& app : apps->runningApplications("com.example.sleeper")) ::kill(app.processIdentifier, SIGKILL);
    }
  } killLeftovers{apps};

  std::optional<std::optional<std::string>> reported;
  apps->openApplication(bundle, [&](std::optional<std::string> error) { reported = std::move(error); });
  ASSERT_TRUE(reported.has_value());
  EXPECT_EQ(*reported, std::nullopt);

  auto running = apps->runningApplications("com.example.sleeper");
  ASSERT_EQ(running.size(), 1u);
  int requests = 0;
  while (!running.empty()) {
    for (const auto& app : running) {
      EXPECT_TRUE(apps->terminate(app, false) || requests > 0);
      ++requests;
    }
    if (requests > 100000) {
      for (const auto& app : running) ::kill(app.processIdentifier, SIGKILL);
      FAIL() << "SIGTERM did not end the process";
    }
    running = apps->runningApplications("com.example.sleeper");
  }

  std::optional<std::optional<std::string>> failed;
  apps->openApplication(dir.path() / "Missing.app", [&](std::optional<std::string> error) { failed = error; });
  ASSERT_TRUE(failed.has_value() && failed->has_value());
  EXPECT_FALSE(apps->terminate({-1, "com.example.sleeper"}, true));
}

}  // namespace
}  // namespace corvane::platform::procfs
#endif
