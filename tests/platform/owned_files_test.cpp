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
    std::string file;                 // below the home folder, as given to the tree
    std::optional<std::string> read;  // what reading gives before the replacement
    bool replaced;
    bool locked;
    bool needsRoot = false;
  };
  const Case cases[] = {
      {"plain file", [](auto& home, auto&) { testing::writeFile(home / "a" / "b" / "state", "mine"); }, "a/b/state",
       "mine", true, true},
      {"missing file and folders", [](auto&, auto&) {}, "a/b/state", std::nullopt, true, true},
      {"file is a link", [](auto& home, auto& outside) {
         fs::create_directories(home / "a" / "b");
         fs::create_symlink(outside / "target", home / "a" / "b" / "state");
       },
       "a/b/state", std::nullopt, true, false},
      {"folder is a link", [](auto& home, auto& outside) {
         fs::create_directories(outside / "b");
         testing::writeFile(outside / "b" / "state", "theirs");
         fs::create_symlink(outside, home / "a");
       },
       "a/b/state", std::nullopt, false, false},
      {"a detour through ..", [](auto& home, auto&) { testing::writeFile(home / "state", "mine"); }, "a/../state",
       std::nullopt, false, false},
      {"a named pipe", [](auto& home, auto&) {
         fs::create_directories(home / "a");
         ASSERT_EQ(::mkfifo((home / "a" / "state").c_str(), 0600), 0);
       },
       "a/state", std::nullopt, true, false},
      {"too big", [](auto& home, auto&) {
         testing::writeFile(home / "state", std::string(OwnedTree::kMaxFileSize + 1, 'x'));
       },
       "state", std::nullopt, true, true},
      {"file of someone else's", [](auto& home, auto&) {
         testing::writeFile(home / "state", "theirs");
         ASSERT_EQ(::chown((home / "state").c_str(), 65534, 65534), 0);
       },
       "state", std::nullopt, true, false, true},
      {"folder of someone else's", [](auto& home, auto&) {
         testing::writeFile(home / "a" / "state", "theirs");
         ASSERT_EQ(::chown((home / "a").c_str(), 65534, 65534), 0);
       },
       "a/state", std::nullopt, false, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsRoot && ::geteuid() != 0) {
      std::printf("[ SKIPPED  ] case \"%s\" needs root to hand a file to another account\n", c.name);
      continue;
    }
    testing::TempDir dir;
    const fs::path home = dir.path() / "home";
    const fs::path outside = dir.path() / "outside";
    fs::create_directories(home);
    fs::create_directories(outside);
    c.plant(home, outside);
    const OwnedTree tree(home, ::geteuid());
    const fs::path file = home / c.file;

    EXPECT_EQ(tree.read(file), c.read);
    EXPECT_EQ(tree.lock(file.string() + ".lock") != nullptr, c.locked || c.replaced);
    EXPECT_EQ(tree.lock(file) != nullptr, c.locked);
    EXPECT_EQ(tree.replace(file, "new"), c.replaced);
    if (c.replaced) {
      EXPECT_EQ(tree.read(file), "new");
    }
    // Nothing outside the home folder was made or changed.
    EXPECT_FALSE(fs::exists(outside / "target"));
    if (fs::exists(outside / "b" / "state")) {
      EXPECT_EQ(testing::readFile(outside / "b" / "state"), "theirs");
    }
    EXPECT_FALSE(fs::exists(dir.path() / "state"));
  }
}

TEST(OwnedTreeTest, AHomeOfAnotherAccountOrOutsidePathsGiveNothing) {
  testing::TempDir dir;
  testing::writeFile(dir.path() / "home" / "state", "mine");
  const OwnedTree foreign(dir.path() / "home", ::geteuid() + 1);
  EXPECT_EQ(foreign.read(dir.path() / "home" / "state"), std::nullopt);
  EXPECT_FALSE(foreign.replace(dir.path() / "home" / "state", "new"));
  const OwnedTree own(dir.path() / "home", ::geteuid());
  EXPECT_EQ(own.read(dir.path() / "elsewhere" / "state"), std::nullopt);
  EXPECT_FALSE(own.replace(dir.path() / "elsewhere" / "state", "new"));
  EXPECT_FALSE(fs::exists(dir.path() / "elsewhere"));
  EXPECT_EQ(own.stamp(dir.path() / "home" / "state").size, 4);
}

}  // namespace
}  // namespace corvane
