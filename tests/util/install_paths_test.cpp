#include "corvane/util/install_paths.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::files {
namespace {

namespace fs = std::filesystem;

class InstallPathsTest : public ::testing::Test {
 protected:
  void SetUp() override { testing::installSimulated(testing::builtinMachine(), dir_.path()); }
  fs::path root() const { return dir_.path(); }

  testing::TempDir dir_;
};

TEST_F(InstallPathsTest, PreferredLocationIsTheUserFolderOnlyWhenItHoldsAnApp) {
  fs::create_directories(root() / "System" / "Applications");
  const std::string system = fs::canonical(root() / "System" / "Applications").string();
  bool inUserFolder = true;
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), system);  // no user Applications folder at all
  EXPECT_FALSE(inUserFolder);
  fs::create_directories(root() / "real-apps" / "Tools");
  testing::writeFile(root() / "real-apps" / "app", "x");
  fs::create_directory_symlink(root() / "real-apps", root() / "Applications");
  inUserFolder = true;
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), system);  // one without applications
  EXPECT_FALSE(inUserFolder);
  fs::create_directories(root() / "real-apps" / "Corvane.app");
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), fs::canonical(root() / "real-apps").string());
  EXPECT_TRUE(inUserFolder);
}

}  // namespace
}  // namespace corvane::files
