#include "platform/posix/system_folders.h"

#include <gtest/gtest.h>

#include "corvane/platform/file_attributes.h"
#include "support/test_support.h"

namespace corvane::platform::posix {
namespace {

TEST(ParseUserDirTest, FindsTheDocumentsFolder) {
  for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"XDG_DOCUMENTS_DIR=\"$HOME/Documents\"\n", "/home/ann/Documents"},
           {"# comment\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"",
            "/home/ann/Dokumente"},
           {"XDG_DOCUMENTS_DIR=\"$HOME/My \\\"Docs\\\"\"", "/home/ann/My \"Docs\""},
           {"XDG_DOCUMENTS_DIR=\"$HOME\"", "/home/ann"},
           // The last assignment wins, as in the shell.
           {"XDG_DOCUMENTS_DIR=\"$HOME/a\"\nXDG_DOCUMENTS_DIR=\"$HOME/b\"", "/home/ann/b"},
           {"XDG_DOCUMENTS_DIR=\"relative/docs\"", nullptr},
           {"XDG_DOCUMENTS_DIR=\"$HOMEWORK/x\"", nullptr}}) {
    const auto found = parseUserDir(text, "XDG_DOCUMENTS_DIR", "/home/ann");
    EXPECT_EQ(found, expected ? std::optional<std::filesystem::path>(expected) : std::nullopt) << text;
  }
}

TEST(AdminGroupTest, ChoosesSudoThenWheelThenAdminFromTheGroupFile) {
  for (const auto& [text, admin] : std::initializer_list<std::pair<const char*, const char*>>{
           {"root:x:0:\nwheel:x:10:ann\nsudo:x:27:ann\n", "sudo"},
           {"root:x:0:\nstaff:x:20:\n", "admin"},
           // Names must match whole: "sudoers" and a commented "sudo" are not the group.
           {"sudoers:x:30:\n# sudo:x:27:\nwheel:x:10:", "wheel"},
           // A line without its fields is not a group.
           {"sudo\nadmin:x:80:", "admin"},
           {"root:x:0:\r\nsudo:x:27:ann\r\n", "sudo"}}) {
    EXPECT_EQ(chooseAdminGroup(parseGroupNames(text)), admin) << text;
  }
  EXPECT_EQ(parseGroupNames("root:x:0:\n\n:x:1:\nstaff:x:20:a,b\n"), (std::vector<std::string>{"root", "staff"}));
  testing::TempDir dir;
  testing::writeFile(dir.path() / "group", "root:x:0:\nwheel:x:10:\n");
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
  testing::writeFile(path, "x");
  std::filesystem::permissions(path, static_cast<std::filesystem::perms>(0555));
  auto attributes = readFileAttributes(path);
  ASSERT_TRUE(attributes.has_value());
  EXPECT_EQ(attributes->posixPermissions, 0555u);
  EXPECT_FALSE(attributes->ownerAccountName.empty());
  EXPECT_EQ(readFileAttributes(dir.path() / "missing"), std::nullopt);
}

}  // namespace
}  // namespace corvane::platform::posix
