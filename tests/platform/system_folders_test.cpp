#include "platform/posix/system_folders.h"

#include <fstream>

#include <gtest/gtest.h>

#include "corvane/platform/file_attributes.h"
#include "support/test_support.h"

namespace corvane::platform::posix {
namespace {

struct UserDirCase {
  const char* text;
  std::optional<const char*> expected;
};

class ParseUserDirTest : public ::testing::TestWithParam<UserDirCase> {};
TEST_P(ParseUserDirTest, FindsTheDocumentsFolder) {
  auto found = parseUserDir(GetParam().text, "XDG_DOCUMENTS_DIR", "/home/ann");
  if (!GetParam().expected) {
    EXPECT_EQ(found, std::nullopt) << GetParam().text;
  } else {
    EXPECT_EQ(found, std::filesystem::path(*GetParam().expected)) << GetParam().text;
  }
}
INSTANTIATE_TEST_SUITE_P(
    Cases, ParseUserDirTest,
    ::testing::Values(UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME/Documents\"\n", "/home/ann/Documents"},
                      UserDirCase{"# comment\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"",
                                  "/home/ann/Dokumente"},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"/srv/docs\"", "/srv/docs"},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME/My \\\"Docs\\\"\"", "/home/ann/My \"Docs\""},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME/\"", "/home/ann"},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME\"", "/home/ann"},
                      // The last assignment wins, as in the shell.
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME/a\"\nXDG_DOCUMENTS_DIR=\"$HOME/b\"", "/home/ann/b"},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"relative/docs\"", std::nullopt},
                      UserDirCase{"XDG_DOCUMENTS_DIR=$HOME/Documents", std::nullopt},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOMEWORK/x\"", std::nullopt},
                      UserDirCase{"XDG_DOCUMENTS_DIR=\"$HOME/unterminated", std::nullopt},
                      UserDirCase{"XDG_DOCUMENTS_DIRECTORY=\"$HOME/x\"", std::nullopt},
                      UserDirCase{"", std::nullopt}));

struct GroupCase {
  const char* text;
  const char* admin;
};

class AdminGroupTest : public ::testing::TestWithParam<GroupCase> {};
TEST_P(AdminGroupTest, ChoosesSudoThenWheelThenAdmin) {
  EXPECT_EQ(chooseAdminGroup(parseGroupNames(GetParam().text)), GetParam().admin) << GetParam().text;
}
INSTANTIATE_TEST_SUITE_P(
    Cases, AdminGroupTest,
    ::testing::Values(GroupCase{"root:x:0:\nwheel:x:10:ann\nsudo:x:27:ann\n", "sudo"},
                      GroupCase{"root:x:0:\nwheel:x:10:ann\n", "wheel"}, GroupCase{"root:x:0:\nstaff:x:20:\n", "admin"},
                      GroupCase{"", "admin"},
                      // Names must match whole: "sudoers" and a commented "sudo" are not the group.
                      GroupCase{"sudoers:x:30:\n# sudo:x:27:\nwheel:x:10:", "wheel"},
                      // A line without its fields is not a group.
                      GroupCase{"sudo\nadmin:x:80:", "admin"},
                      GroupCase{"root:x:0:\r\nsudo:x:27:ann\r\n", "sudo"}));

TEST(SystemFoldersTest, GroupNamesInFileOrder) {
  EXPECT_EQ(parseGroupNames("root:x:0:\n\n:x:1:\nstaff:x:20:a,b\n"), (std::vector<std::string>{"root", "staff"}));
}

TEST(SystemFoldersTest, AdminGroupFromAFile) {
  testing::TempDir dir;
  std::ofstream(dir.path() / "group") << "root:x:0:\nwheel:x:10:\n";
  EXPECT_EQ(adminGroupFromFile(dir.path() / "group"), "wheel");
  EXPECT_EQ(adminGroupFromFile(dir.path() / "missing"), "admin");
}

TEST(FileAttributesTest, NamesIdsAndKeepsOnlyPermissionBits) {
  auto users = [](unsigned id) -> std::optional<std::string> {
    return id == 0 ? std::optional<std::string>("root") : std::nullopt;
  };
  auto groups = [](unsigned id) -> std::optional<std::string> {
    return id == 80 ? std::optional<std::string>("admin") : std::nullopt;
  };
  EXPECT_EQ(fileAttributesFromStat({0, 80, 0106555}, users, groups), (FileAttributes{"root", "admin", 06555}));
  EXPECT_EQ(fileAttributesFromStat({501, 20, 0100755}, users, groups), (FileAttributes{"501", "20", 0755}));
}

TEST(FileAttributesTest, ReadsARealFile) {
  testing::TempDir dir;
  const auto path = dir.path() / "tool";
  std::ofstream(path) << "x";
  std::filesystem::permissions(path, static_cast<std::filesystem::perms>(0555));
  auto attributes = readFileAttributes(path);
  ASSERT_TRUE(attributes.has_value());
  EXPECT_EQ(attributes->posixPermissions, 0555u);
  EXPECT_FALSE(attributes->ownerAccountName.empty());
  EXPECT_EQ(readFileAttributes(dir.path() / "missing"), std::nullopt);
}

}  // namespace
}  // namespace corvane::platform::posix
