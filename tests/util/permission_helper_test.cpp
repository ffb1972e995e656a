#include "corvane/util/permission_helper.h"

#include <fstream>
#include <iterator>
#include <map>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/privileged_execution.h"
#include "corvane/util/install_paths.h"
#include "platform/sim/recorded_privileged_execution.h"
#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using platform::FileAttributes;
using Call = platform::sim::RecordedPrivilegedExecution::Call;

struct GrantCase {
  const char* name;
  std::optional<FileAttributes> attributes;
  bool granted;
};

class IsGrantedTest : public ::testing::TestWithParam<GrantCase> {};
TEST_P(IsGrantedTest, OwnerGroupAndExactMode) {
  EXPECT_EQ(HWPermissionHelper::isGranted(GetParam().attributes, "root", "admin"), GetParam().granted)
      << GetParam().name;
}
INSTANTIATE_TEST_SUITE_P(
    Cases, IsGrantedTest,
    ::testing::Values(GrantCase{"installed", FileAttributes{"root", "admin", 06555}, true},
                      GrantCase{"owner may write", FileAttributes{"root", "admin", 06755}, false},
                      GrantCase{"no set-id bits", FileAttributes{"root", "admin", 0555}, false},
                      GrantCase{"set-user-ID only", FileAttributes{"root", "admin", 04555}, false},
                      GrantCase{"sticky too", FileAttributes{"root", "admin", 07555}, false},
                      GrantCase{"user owner", FileAttributes{"ann", "admin", 06555}, false},
                      GrantCase{"other group", FileAttributes{"root", "wheel", 06555}, false},
                      GrantCase{"missing file", std::nullopt, false}));

// A simulated Mac under a test folder, with the recorded privileged execution and attributes
// kept in a table that the recorded chown and chmod update, as the real tools would.
class PermissionRequestTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installSimulated(testing::builtinMachine(), dir_.path());
    privileged_ = std::make_shared<platform::sim::RecordedPrivilegedExecution>();
    platform::current().provide<platform::PrivilegedExecution>(privileged_);
    privileged_->setOnRun([this](const Call& call) { apply(call); });
    HWPermissionHelper::setAttributesReader([this](const fs::path& path) -> std::optional<FileAttributes> {
      if (!fs::exists(path)) return std::nullopt;
      auto it = attributes_.find(path.string());
      return it != attributes_.end() ? it->second : FileAttributes{"ann", "staff", 0755};
    });
    time_ = dispatch::installVirtualTime(1.7e9);

    tool_ = *files::smcExePath();
    fs::create_directories(fs::path(files::smcExeSrcPath()).parent_path());
    std::ofstream(files::smcExeSrcPath()) << "shipped tool";
  }
  void TearDown() override { HWPermissionHelper::setAttributesReader(nullptr); }

  void apply(const Call& call) {
    ASSERT_EQ(call.args.size(), 2u);
    FileAttributes& entry = attributes_.try_emplace(call.args[1], FileAttributes{"ann", "staff", 0755}).first->second;
    if (call.tool == "/usr/sbin/chown") {
      const auto colon = call.args[0].find(':');
      entry.ownerAccountName = call.args[0].substr(0, colon);
      entry.groupOwnerAccountName = call.args[0].substr(colon + 1);
      entry.posixPermissions &= 0777;  // chown clears the set-id bits
    } else if (call.tool == "/bin/chmod") {
      entry.posixPermissions = static_cast<unsigned>(std::stoul(call.args[0], nullptr, 8));
    }
  }

  // Requests and runs the queues; the completion's answer, or nothing when it was not called.
  std::optional<bool> request() {
    std::optional<bool> result;
    bool onMain = false;
    HWPermissionHelper::requestSMCPermissionWithCompletionHandler([&](bool granted) {
      result = granted;
      onMain = dispatch::mainQueue()->isCurrent();
    });
    EXPECT_FALSE(result.has_value()) << "the request must not run on the caller's thread";
    time_->runUntilIdle();
    EXPECT_TRUE(!result || onMain) << "the completion runs on the main queue";
    return result;
  }

  static std::string contents(const std::string& path) {
    std::ifstream in(path);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }

  std::vector<Call> fullInstall() const {
    return {{"authorize", {}},
            {"/usr/sbin/chown", {"root:admin", tool_}},
            {"/bin/chmod", {"6555", tool_}},
            {"release", {}}};
  }

  testing::TempDir dir_;
  std::shared_ptr<platform::sim::RecordedPrivilegedExecution> privileged_;
  std::map<std::string, FileAttributes> attributes_;
  std::shared_ptr<dispatch::VirtualTime> time_;
  std::string tool_;
};

TEST_F(PermissionRequestTest, CopiesTheToolThenSetsOwnerAndMode) {
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
  EXPECT_EQ(request(), true);
  EXPECT_EQ(contents(tool_), "shipped tool");
  EXPECT_EQ(privileged_->calls(), fullInstall());
  EXPECT_TRUE(HWPermissionHelper::isSMCPermissionGranted());
}

TEST_F(PermissionRequestTest, AlreadyInstalledAsksForNothing) {
  std::ofstream(tool_) << "installed tool";
  attributes_[tool_] = FileAttributes{"root", "admin", 06555};
  EXPECT_TRUE(HWPermissionHelper::isSMCPermissionGranted());
  EXPECT_EQ(request(), true);
  EXPECT_TRUE(privileged_->calls().empty());
  EXPECT_EQ(contents(tool_), "installed tool");
}

TEST_F(PermissionRequestTest, WrongModeIsFixedWithoutReplacingTheFile) {
  std::ofstream(tool_) << "older tool";
  attributes_[tool_] = FileAttributes{"root", "admin", 06755};
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
  EXPECT_EQ(request(), true);
  EXPECT_EQ(contents(tool_), "older tool");
  EXPECT_EQ(privileged_->calls(), fullInstall());
  EXPECT_EQ(attributes_[tool_], (FileAttributes{"root", "admin", 06555}));
}

TEST_F(PermissionRequestTest, RefusedConsentAnswersNo) {
  privileged_->setRefuseAuthorization(true);
  EXPECT_EQ(request(), false);
  EXPECT_EQ(privileged_->calls(), (std::vector<Call>{{"authorize", {}}}));
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
}

TEST_F(PermissionRequestTest, ChownThatCannotStartStopsBeforeChmod) {
  privileged_->setFailingRun(0);
  EXPECT_EQ(request(), false);
  EXPECT_EQ(privileged_->calls(),
            (std::vector<Call>{{"authorize", {}}, {"/usr/sbin/chown", {"root:admin", tool_}}, {"release", {}}}));
}

TEST_F(PermissionRequestTest, ChmodThatCannotStartAnswersNo) {
  privileged_->setFailingRun(1);
  EXPECT_EQ(request(), false);
  EXPECT_EQ(privileged_->calls(), fullInstall());
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
}

TEST_F(PermissionRequestTest, NoCompletionIsFine) {
  HWPermissionHelper::requestSMCPermissionWithCompletionHandler(nullptr);
  time_->runUntilIdle();
  EXPECT_EQ(privileged_->calls(), fullInstall());
}

TEST_F(PermissionRequestTest, RealAttributesOfAFileNotOwnedByTheAdminGroup) {
  // The file system itself: the group of a test's file is never the simulated Mac's "admin".
  HWPermissionHelper::setAttributesReader(nullptr);
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());  // missing
  std::ofstream(tool_) << "x";
  fs::permissions(tool_, static_cast<fs::perms>(06555));
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
}

TEST(PrivilegedExecutionTest, SimulatedPlatformsNeverRunAnything) {
  testing::TempDir dir;
  std::string error;
  platform::SimulatedOptions options;
  options.root = dir.path();
  auto simulated = platform::simulated(platform::resolveMachine(platform::kDefaultMachine, &error), options);
  auto& service = simulated->service<platform::PrivilegedExecution>();
  EXPECT_NE(dynamic_cast<platform::sim::RecordedPrivilegedExecution*>(&service), nullptr);
}

}  // namespace
}  // namespace corvane
