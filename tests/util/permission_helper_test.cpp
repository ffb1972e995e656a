#include "corvane/util/permission_helper.h"

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

TEST(IsGrantedTest, OwnerGroupAndExactModeAndWhatIsMissing) {
  struct GrantCase {
    const char* name;
    std::optional<FileAttributes> attributes;
    bool granted;
    std::string problems;  // as listed, joined with "; "
  };

  for (const GrantCase& c : std::initializer_list<GrantCase>{
           {"installed", FileAttributes{"root", "admin", 06555}, true, ""},
           {"owner may write", FileAttributes{"root", "admin", 06755}, false,
            "it is writable; its mode is 6755, not 6555"},
           {"set-user-ID only", FileAttributes{"root", "admin", 04555}, false,
            "it is not set-group-ID; its mode is 4555, not 6555"},
           {"freshly copied", FileAttributes{"ann", "staff", 0755}, false,
            "it is owned by ann, not root; its group is staff, not admin; it is not set-user-ID; it is not "
            "set-group-ID; it is writable; its mode is 0755, not 6555"},
           {"no execute bits", FileAttributes{"root", "admin", 06444}, false, "its mode is 6444, not 6555"},
           {"user owner", FileAttributes{"ann", "admin", 06555}, false, "it is owned by ann, not root"},
           {"other group", FileAttributes{"root", "wheel", 06555}, false, "its group is wheel, not admin"},
           {"missing file", std::nullopt, false, "it is not installed"}}) {
    EXPECT_EQ(HWPermissionHelper::isGranted(c.attributes, "root", "admin"), c.granted) << c.name;
    std::string joined;
    for (const auto& problem : HWPermissionHelper::problemsWith(c.attributes, "root", "admin")) {
      joined += (joined.empty() ? "" : "; ") + problem;
    }
    EXPECT_EQ(joined, c.problems) << c.name;
  }
}

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
    testing::writeFile(files::smcExeSrcPath(), "shipped tool");
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

// Copied, then owner and mode set; once installed it is kept, and a wrong mode only is fixed.
TEST_F(PermissionRequestTest, CopiesTheToolThenSetsOwnerAndModeAndLaterOnlyFixesTheMode) {
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
  // What a fan command says meanwhile: one line, naming the tool, what is wrong and the fix.
  const std::string message = HWPermissionHelper::smcPermissionMessage();
  EXPECT_EQ(message.find('\n'), std::string::npos);
  for (const std::string& part : {tool_, std::string("it is not installed"), std::string("corvane helper install")}) {
    EXPECT_NE(message.find(part), std::string::npos) << message;
  }
  EXPECT_EQ(request(), true);
  EXPECT_EQ(testing::readFile(tool_), "shipped tool");
  EXPECT_EQ(privileged_->calls(), fullInstall());
  EXPECT_TRUE(HWPermissionHelper::isSMCPermissionGranted());
  EXPECT_EQ(HWPermissionHelper::smcPermissionMessage(), "");
  EXPECT_EQ(request(), true);
  EXPECT_EQ(privileged_->calls(), fullInstall()) << "nothing more to do";

  testing::writeFile(files::smcExeSrcPath(), "newer tool");
  attributes_[tool_] = FileAttributes{"root", "admin", 06755};
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
  EXPECT_EQ(request(), true);
  EXPECT_EQ(testing::readFile(tool_), "shipped tool");
  EXPECT_EQ(privileged_->calls().size(), 2 * fullInstall().size());
  EXPECT_EQ(attributes_[tool_], (FileAttributes{"root", "admin", 06555}));
}

// Refused consent stops before any tool; a tool that cannot start answers no; a failed chown skips chmod.
TEST_F(PermissionRequestTest, RefusalsAndFailuresAnswerNo) {
  privileged_->setRefuseAuthorization(true);
  EXPECT_EQ(request(), false);
  std::vector<Call> expected{{"authorize", {}}};
  EXPECT_EQ(privileged_->calls(), expected);
  privileged_->setRefuseAuthorization(false);
  privileged_->setFailingRun(1);
  EXPECT_EQ(request(), false);
  for (const auto& call : fullInstall()) expected.push_back(call);
  EXPECT_EQ(privileged_->calls(), expected);
  EXPECT_FALSE(HWPermissionHelper::isSMCPermissionGranted());
  privileged_->setFailingRun(2);  // the next chown
  EXPECT_EQ(request(), false);
  expected.insert(expected.end(), {{"authorize", {}}, {"/usr/sbin/chown", {"root:admin", tool_}}, {"release", {}}});
  EXPECT_EQ(privileged_->calls(), expected);
}

}  // namespace
}  // namespace corvane
