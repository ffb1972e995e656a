#ifdef __linux__
#include "platform/linux/running_applications_linux.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform::procfs {
namespace {

using testing::writeFile;

TEST(ProcessMatching, StateLetterAfterTheCommandAndExecutableOrCutCommandName) {
  for (const auto& [stat, state] : std::initializer_list<std::pair<const char*, char>>{
           {"42 (corvane) S 1 42 42 0", 'S'}, {"43 (evil) Z (name)) Z 1", 'Z'}, {"45 (cut", 0}, {"46 (x)", 0}}) {
    EXPECT_EQ(parseProcessState(stat), state) << stat;
  }
  EXPECT_EQ(executableNameOfLink("/usr/lib/corvane/corvane (deleted)"), "corvane");
  const ProcessEntry script{1, "Corvane Helper", "dash", false};
  EXPECT_TRUE(runsAs(script, "Corvane Helper"));
  EXPECT_FALSE(runsAs(script, "sh"));
  const ProcessEntry longName{2, "a-very-long-pro", "", false};
  EXPECT_TRUE(runsAs(longName, "a-very-long-program-name"));
  EXPECT_FALSE(runsAs(longName, "a-very-long-pr"));
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
  EXPECT_TRUE(apps->runningApplications("com.example.none").empty());
}

}  // namespace
}  // namespace corvane::platform::procfs
#endif
