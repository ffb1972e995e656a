#include "corvane/util/app_launcher.h"

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "platform/sim/sim_running_applications.h"
#include "support/test_support.h"

namespace corvane {
namespace {

constexpr const char* kMenu = "com.example.menu";
constexpr const char* kOther = "com.example.other";

struct Outcome {
  int calls = 0;
  bool opened = false;
  std::optional<HWError> error;
};

class AppLauncherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installMachine(testing::builtinMachine(), dir_.path());
    clock_ = dispatch::installVirtualTime(1'700'000'000.0);
    apps_ = std::make_shared<platform::sim::InMemoryRunningApplications>();
    platform::current().provide<platform::RunningApplications>(apps_);
    appPath_ = (dir_.path() / "Corvane Menu.app").string();
    std::filesystem::create_directories(appPath_);
    apps_->installApplication(appPath_, kMenu);
  }

  HWAppLauncher::OpenCompletion recordInto(Outcome& outcome) {
    return [&outcome](bool opened, std::optional<HWError> error) {
      ++outcome.calls;
      outcome.opened = opened;
      outcome.error = std::move(error);
    };
  }

  testing::TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> clock_;
  std::shared_ptr<platform::sim::InMemoryRunningApplications> apps_;
  std::string appPath_;
};

TEST_F(AppLauncherTest, OpensOnTheMainQueueWhenNotRunningAndReportsAFailureAsAnError) {
  Outcome outcome;
  HWAppLauncher::openApp(kMenu, appPath_, recordInto(outcome));
  EXPECT_EQ(outcome.calls, 0) << "reported before the main queue ran";
  clock_->runUntilIdle();
  EXPECT_TRUE(outcome.calls == 1 && outcome.opened && !outcome.error);
  EXPECT_TRUE(HWAppLauncher::isAppRunning(kMenu));
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kOther));

  HWAppLauncher::terminateApp(kMenu, /*force=*/true);
  apps_->setOpenError("the application is damaged");
  Outcome failed;
  HWAppLauncher::openApp(kMenu, appPath_, recordInto(failed));
  clock_->runUntilIdle();
  ASSERT_TRUE(failed.calls == 1 && !failed.opened && failed.error.has_value());
  EXPECT_EQ(failed.error->domain, "com.HWKit");
  EXPECT_EQ(failed.error->code, 1);
  EXPECT_EQ(failed.error->message, "the application is damaged");
}

TEST_F(AppLauncherTest, AlreadyRunningOrMissingAnswersAtOnceAndOpensNothing) {
  Outcome missing;
  HWAppLauncher::openApp(kMenu, (dir_.path() / "Nowhere.app").string(), recordInto(missing));
  EXPECT_TRUE(missing.calls == 1 && !missing.opened && !missing.error);
  apps_->addRunning(kMenu);
  Outcome running;
  HWAppLauncher::openApp(kMenu, appPath_, /*forceRelaunch=*/false, recordInto(running));
  EXPECT_TRUE(running.calls == 1 && !running.opened && !running.error);
  clock_->runUntilIdle();
  EXPECT_EQ(missing.calls + running.calls, 2);
  EXPECT_TRUE(apps_->openedPaths().empty());
  EXPECT_EQ(apps_->runningApplications(kMenu).size(), 1u);
}

TEST_F(AppLauncherTest, ForcedRelaunchEndsTheRunningOneFirst) {
  const int oldPid = apps_->addRunning(kMenu, /*plainTerminations=*/5);
  Outcome outcome;
  HWAppLauncher::openApp(kMenu, appPath_, /*forceRelaunch=*/true, recordInto(outcome));
  clock_->runUntilIdle();
  EXPECT_TRUE(outcome.calls == 1 && outcome.opened);
  EXPECT_EQ(apps_->forcedTerminationCount(), 1);
  EXPECT_EQ(apps_->plainTerminationCount(), 0);
  const auto now = apps_->runningApplications(kMenu);
  ASSERT_EQ(now.size(), 1u);
  EXPECT_NE(now[0].processIdentifier, oldPid);
}

TEST_F(AppLauncherTest, TerminateWithACompletionAsksAgainUntilNothingRunsWithoutOnlyOnce) {
  apps_->addRunning(kMenu, /*plainTerminations=*/3);
  apps_->addRunning(kMenu, /*plainTerminations=*/0);
  apps_->addRunning(kOther, 1);
  int completions = 0;
  HWAppLauncher::terminateApp(kMenu, /*force=*/false, [&] { ++completions; });
  EXPECT_EQ(completions, 1);
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kMenu));
  // Four passes: the stubborn one answers the fourth, the other the first.
  EXPECT_EQ(apps_->plainTerminationCount(), 5);

  HWAppLauncher::terminateApp(kOther, /*force=*/false);
  EXPECT_EQ(apps_->plainTerminationCount(), 6);
  EXPECT_TRUE(HWAppLauncher::isAppRunning(kOther));
  HWAppLauncher::terminateApp(kOther, /*force=*/true);
  EXPECT_EQ(apps_->forcedTerminationCount(), 1);
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kOther));
}

}  // namespace
}  // namespace corvane
