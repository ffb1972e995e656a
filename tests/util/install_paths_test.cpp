#include "corvane/util/install_paths.h"

#include <fstream>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "support/test_support.h"

namespace corvane::files {
namespace {

namespace fs = std::filesystem;

class InstallPathsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installSimulated(testing::builtinMachine(), dir_.path());
  }
  fs::path root() const { return dir_.path(); }

  testing::TempDir dir_;
};

TEST_F(InstallPathsTest, PathsUnderTheLocations) {
  const std::string support = (root() / "Library" / "Application Support" / "Corvane").string();
  const std::string shipped = (root() / "Corvane.app" / "Contents" / "MacOS").string();
  EXPECT_FALSE(fs::exists(support));
  EXPECT_EQ(applicationSupportPath(), support);
  EXPECT_TRUE(fs::is_directory(support));
  EXPECT_EQ(oldApplicationSupportPath(), (root() / "Library" / "Application Support" / "Heat Warden").string());
  EXPECT_FALSE(fs::exists(*oldApplicationSupportPath()));
  EXPECT_EQ(documentsPath(), (root() / "Documents").string());
  EXPECT_EQ(appGroupURL(), root() / "group");

  EXPECT_EQ(smcExeSrcPath(), shipped + "/Corvane SMC");
  EXPECT_EQ(smcExePath(), support + "/Corvane SMC");
  EXPECT_EQ(menuAppSrcPath(), shipped + "/Corvane Menu.app");
  EXPECT_EQ(menuAppPath(), support + "/Corvane Menu.app");
  EXPECT_EQ(helperAppSrcPath(), shipped + "/Corvane Helper.app");
  EXPECT_EQ(helperAppPath(), support + "/Corvane Helper.app");
}

TEST_F(InstallPathsTest, PreferredLocationIsTheSystemFolderWithoutUserApps) {
  fs::create_directories(root() / "System" / "Applications");
  const std::string system = fs::canonical(root() / "System" / "Applications").string();
  bool inUserFolder = true;
  // No user Applications folder at all.
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), system);
  EXPECT_FALSE(inUserFolder);
  // One holding only files that are not applications.
  fs::create_directories(root() / "Applications" / "Tools");
  std::ofstream(root() / "Applications" / "notes.txt") << "x";
  std::ofstream(root() / "Applications" / "app") << "x";
  inUserFolder = true;
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), system);
  EXPECT_FALSE(inUserFolder);
  EXPECT_EQ(preferredInstallLocation(nullptr), system);
}

TEST_F(InstallPathsTest, PreferredLocationIsTheUserFolderWithAnApp) {
  fs::create_directories(root() / "real-apps" / "Corvane.app");
  fs::create_directory_symlink(root() / "real-apps", root() / "Applications");
  bool inUserFolder = false;
  EXPECT_EQ(preferredInstallLocation(&inUserFolder), fs::canonical(root() / "real-apps").string());
  EXPECT_TRUE(inUserFolder);
}

TEST_F(InstallPathsTest, UserApplicationsThatIsAFileDoesNotCount) {
  std::ofstream(root() / "Applications") << "x.app";
  bool inUserFolder = true;
  preferredInstallLocation(&inUserFolder);
  EXPECT_FALSE(inUserFolder);
}

}  // namespace
}  // namespace corvane::files
