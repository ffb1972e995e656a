// Files reached only through the owner's own folders: what a planted link, pipe, detour or
// foreign file does to a read, a replacement and a lock.
#include "platform/posix/owned_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using platform::posix::OwnedTree;

TEST(OwnedTreeTest, ReachesOnlyTheOwnersPlainFilesThroughItsOwnFolders) {
  struct Case {
    const char* name;
    std::function<void(const fs::path& home, const fs::path& outside)> plant;
    std::string file;                 // as given to the tree, below the home folder
    std::optional<std::string> read;  // before the replacement
    bool replaced, locked;
    uid_t treeOwner = ::geteuid();
  };
  const auto chownTo = [](const fs::path& path) { ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0); };
  const Case cases[] = {
      {"plain file", [](auto& home, auto&) { testing::writeFile(home / "a/b/state", "mine"); }, "a/b/state", "mine",
       true, true},
      {"missing file and folders", [](auto&, auto&) {}, "a/b/state", std::nullopt, true, true},
      {"file is a link", [](auto& home, auto& out) { fs::create_symlink(out / "target", home / "state"); }, "state",
       std::nullopt, true, false},
      {"folder is a link",
       [](auto& home, auto& out) {
         testing::writeFile(out / "b/state", "theirs");
         fs::create_symlink(out, home / "a");
       },
       "a/b/state", std::nullopt, false, false},
      {"a detour through ..", [](auto& home, auto&) { testing::writeFile(home / "state", "mine"); }, "a/../state",
       std::nullopt, false, false},
      {"a named pipe", [](auto& home, auto&) { ASSERT_EQ(::mkfifo((home / "state").c_str(), 0600), 0); }, "state",
       std::nullopt, true, false},
      {"too big",
       [](auto& home, auto&) { testing::writeFile(home / "state", std::string(OwnedTree::kMaxFileSize + 1, 'x')); },
       "state", std::nullopt, true, true},
      {"home of another account", [](auto& home, auto&) { testing::writeFile(home / "state", "mine"); }, "state",
       std::nullopt, false, false, ::geteuid() + 1},
      {"file of someone else's",
       [&](auto& home, auto&) {
         testing::writeFile(home / "state", "theirs");
         chownTo(home / "state");
       },
       "state", std::nullopt, true, false},
      {"folder of someone else's",
       [&](auto& home, auto&) {
         testing::writeFile(home / "a/state", "theirs");
         chownTo(home / "a");
       },
       "a/state", std::nullopt, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (std::string(c.name).find("of someone") != std::string::npos && ::geteuid() != 0) {
      std::printf("[ SKIPPED  ] case \"%s\": only root can hand a file to another account\n", c.name);
      continue;
    }
    testing::TempDir dir;
    const fs::path home = dir.path() / "home", outside = dir.path() / "outside";
    fs::create_directories(home);
    fs::create_directories(outside);
    c.plant(home, outside);
    const OwnedTree tree(home, c.treeOwner);
    const fs::path file = home / c.file;

    EXPECT_EQ(tree.read(file), c.read);
    EXPECT_EQ(tree.lock(file.string() + ".lock") != nullptr, c.locked || c.replaced);
    EXPECT_EQ(tree.lock(file) != nullptr, c.locked);
    EXPECT_EQ(tree.replace(file, "new"), c.replaced);
    EXPECT_EQ(tree.read(file), c.replaced ? std::optional<std::string>("new") : std::nullopt);
    EXPECT_EQ(tree.stamp(file).size, c.replaced ? 3 : -1);
    // Nothing outside the home folder was made or changed.
    EXPECT_FALSE(fs::exists(outside / "target") || fs::exists(dir.path() / "state"));
    EXPECT_TRUE(!fs::exists(outside / "b/state") || testing::readFile(outside / "b/state") == "theirs");
  }
}

}  // namespace
}  // namespace corvane
