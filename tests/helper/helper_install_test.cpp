// `corvane helper install|status` end to end, in a test folder standing for the account's data.
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

class HelperCommandTest : public ::testing::Test {
 protected:
  testing::ProgramResult corvane(const std::vector<std::string>& args) {
    return testing::runProgram(CORVANE_CLI_PATH, args, dir_.path());
  }
  fs::path tool() const { return dir_.path() / "Corvane" / "Corvane SMC"; }

  testing::TempDir dir_;
};

TEST_F(HelperCommandTest, WrongInvocationsAndAMissingTool) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"helper"}, {"helper", "frob"}, {"helper", "status", "--from", "x"}}) {
    const auto result = corvane(args);
    EXPECT_EQ(result.exitCode, 2) << args.back();
    EXPECT_EQ(result.err.rfind("corvane: ", 0), 0u) << result.err;
  }
  const auto status = corvane({"helper", "status", "--json"});
  EXPECT_EQ(status.exitCode, 1) << status.err;
  const auto json = nlohmann::json::parse(status.out);
  EXPECT_EQ(json["path"], tool().string());
  EXPECT_EQ(json["ready"], false);
  EXPECT_EQ(json["problems"], nlohmann::json::array({"it is not installed"}));

  // Only the helper tool is ever given raised rights.
  const auto refused = corvane({"helper", "install", "--from", "/bin/true"});
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_NE(refused.err.find("is not the helper tool"), std::string::npos) << refused.err;
  EXPECT_FALSE(fs::exists(tool()));
}

TEST_F(HelperCommandTest, InstallsAsRootAndStatusNamesEachLaterBreakage) {
  if (::geteuid() != 0) GTEST_SKIP() << "installing without root asks for a password through pkexec";
  struct statvfs volume;
  ASSERT_EQ(::statvfs(dir_.path().c_str(), &volume), 0);
  if ((volume.f_flag & ST_NOSUID) != 0) GTEST_SKIP() << dir_.path() << " is on a nosuid file system";

  testing::writeFile(tool(), "an older tool");  // replaced, not kept
  auto result = corvane({"helper", "install"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(testing::readFile(tool()), testing::readFile(CORVANE_HELPER_PATH));
  struct stat st;
  ASSERT_EQ(::stat(tool().c_str(), &st), 0);
  EXPECT_TRUE(st.st_uid == 0 && (st.st_mode & 07777) == 06555);
  result = corvane({"helper", "status"});
  EXPECT_EQ(result.exitCode, 0) << result.out;
  EXPECT_NE(result.out.find("Ready"), std::string::npos) << result.out;
  result = corvane({"helper", "install"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_NE(result.out.find("installed already"), std::string::npos) << result.out;

  struct Breakage {
    const char* name;
    std::function<void()> apply;
    const char* missing;
  };
  const Breakage breakages[] = {
      {"mode", [&] { ::chmod(tool().c_str(), 0755); }, "Missing: it is not set-user-ID"},
      {"link", [&] {
         fs::rename(tool(), dir_.path() / "real");
         fs::create_symlink(dir_.path() / "real", tool());
       },
       "Missing: it is not a plain file"},
  };
  for (const Breakage& breakage : breakages) {
    SCOPED_TRACE(breakage.name);
    ASSERT_EQ(corvane({"helper", "install"}).exitCode, 0);
    breakage.apply();
    result = corvane({"helper", "status"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.out.find(breakage.missing), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("Fix: corvane helper install"), std::string::npos) << result.out;
  }
}

}  // namespace
}  // namespace corvane
