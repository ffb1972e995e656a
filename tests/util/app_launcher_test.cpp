#include "corvane/util/app_launcher.h"

#include <fstream>

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
    std::string error;
    testing::installMachine(platform::loadBuiltinProfile("MacBookPro16,1", &error), dir_.path());
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

TEST_F(AppLauncherTest, OpensOnTheMainQueueWhenNotRunning) {
  Outcome outcome;
  HWAppLauncher::openApp(kMenu, appPath_, recordInto(outcome));
  EXPECT_EQ(outcome.calls, 0) << "reported before the main queue ran";
  clock_->runUntilIdle();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_TRUE(outcome.opened);
  EXPECT_FALSE(outcome.error.has_value());
  EXPECT_TRUE(HWAppLauncher::isAppRunning(kMenu));
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kOther));
}

TEST_F(AppLauncherTest, AlreadyRunningOrMissingAnswersAtOnceAndOpensNothing) {
  Outcome missing;
  HWAppLauncher::openApp(kMenu, (dir_.path() / "Nowhere.app").string(), recordInto(missing));
  EXPECT_EQ(missing.calls, 1);
  EXPECT_FALSE(missing.opened);
  EXPECT_FALSE(missing.error.has_value());

  apps_->addRunning(kMenu);
  Outcome running;
  HWAppLauncher::openApp(kMenu, appPath_, /*forceRelaunch=*/false, recordInto(running));
  EXPECT_EQ(running.calls, 1);
  EXPECT_FALSE(running.opened);
  EXPECT_FALSE(running.error.has_value());

  clock_->runUntilIdle();
  EXPECT_EQ(missing.calls, 1);
  EXPECT_EQ(running.calls, 1);
  EXPECT_TRUE(apps_->openedPaths().empty());
  EXPECT_EQ(apps_->runningApplications(kMenu).size(), 1u);
}

TEST_F(AppLauncherTest, FailureOfTheSystemComesBackAsAnError) {
  apps_->setOpenError("the application is damaged");
  Outcome outcome;
  HWAppLauncher::openApp(kMenu, appPath_, recordInto(outcome));
  clock_->runUntilIdle();
  ASSERT_EQ(outcome.calls, 1);
  EXPECT_FALSE(outcome.opened);
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->domain, "com.HWKit");
  EXPECT_EQ(outcome.error->code, 1);
  EXPECT_EQ(outcome.error->message, "the application is damaged");
}

TEST_F(AppLauncherTest, ForcedRelaunchEndsTheRunningOneFirst) {
  const int oldPid = apps_->addRunning(kMenu, /*plainTerminations=*/5);
  Outcome outcome;
  HWAppLauncher::openApp(kMenu, appPath_, /*forceRelaunch=*/true, recordInto(outcome));
  clock_->runUntilIdle();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_TRUE(outcome.opened);
  EXPECT_EQ(apps_->forcedTerminationCount(), 1);
  EXPECT_EQ(apps_->plainTerminationCount(), 0);
  const auto now = apps_->runningApplications(kMenu);
  ASSERT_EQ(now.size(), 1u);
  EXPECT_NE(now[0].processIdentifier, oldPid);
}

TEST_F(AppLauncherTest, TerminateAsksAgainUntilNothingRuns) {
  apps_->addRunning(kMenu, /*plainTerminations=*/3);
  apps_->addRunning(kMenu, /*plainTerminations=*/0);
  apps_->addRunning(kOther);
  int completions = 0;
  HWAppLauncher::terminateApp(kMenu, /*force=*/false, [&] { ++completions; });
  EXPECT_EQ(completions, 1);
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kMenu));
  EXPECT_TRUE(HWAppLauncher::isAppRunning(kOther));
  // Four passes: the stubborn one answers the fourth, the other the first.
  EXPECT_EQ(apps_->plainTerminationCount(), 5);
  EXPECT_EQ(apps_->forcedTerminationCount(), 0);

  HWAppLauncher::terminateApp(kOther, /*force=*/false, nullptr);
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kOther));
}

TEST_F(AppLauncherTest, SingleTerminateAsksEachOnce) {
  apps_->addRunning(kMenu, 1);
  apps_->addRunning(kMenu, 1);
  HWAppLauncher::terminateApp(kMenu, /*force=*/false);
  EXPECT_EQ(apps_->plainTerminationCount(), 2);
  EXPECT_EQ(apps_->runningApplications(kMenu).size(), 2u);
  HWAppLauncher::terminateApp(kMenu, /*force=*/true);
  EXPECT_EQ(apps_->forcedTerminationCount(), 2);
  EXPECT_FALSE(HWAppLauncher::isAppRunning(kMenu));
}

TEST_F(AppLauncherTest, LoadMainAppLaunchesByIdentifier) {
  apps_->installApplication(dir_.path() / "Corvane.app", std::string(HWAppLauncher::kMainAppBundleIdentifier));
  HWAppLauncher::loadMainApp();
  EXPECT_EQ(apps_->launchedIdentifiers(),
            std::vector<std::string>{std::string(HWAppLauncher::kMainAppBundleIdentifier)});
  EXPECT_TRUE(HWAppLauncher::isAppRunning(std::string(HWAppLauncher::kMainAppBundleIdentifier)));
}

TEST_F(AppLauncherTest, SimulatedMachineNeverTouchesHostProcesses) {
  testing::TempDir other;
  testing::installMachine(testing::profileFromJson(R"({"name": "X", "sysctl": {}, "smc": []})"), other.path());
  EXPECT_NE(dynamic_cast<platform::sim::InMemoryRunningApplications*>(
                &platform::current().service<platform::RunningApplications>()),
            nullptr);
}

}  // namespace
}  // namespace corvane
