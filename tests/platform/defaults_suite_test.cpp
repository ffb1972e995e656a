#include "corvane/platform/defaults_suite.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform {
namespace {

using nlohmann::json;

std::vector<std::filesystem::path> setAside(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> found;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename().string().find(".corrupt-") != std::string::npos) found.push_back(entry.path());
  }
  return found;
}

// Both backends keep every property-list type as it was given.
enum class Backend { Memory, Sqlite };

class DefaultsSuiteTypes : public ::testing::TestWithParam<Backend> {
 protected:
  std::shared_ptr<DefaultsSuite> make() {
    if (GetParam() == Backend::Memory) return DefaultsSuite::inMemory();
    return DefaultsSuite::sqliteFile(dir_.path() / "Preferences.db");
  }
  testing::TempDir dir_;
};

TEST_P(DefaultsSuiteTypes, ValuesComeBackWithTheirType) {
  auto suite = make();
  const std::vector<std::pair<std::string, json>> values{
      {"unsigned", json(std::uint64_t{18446744073709551615u})},
      {"signed", json(std::int64_t{-42})},
      {"whole double", json(2.0)},
      {"bool", json(true)},
      {"string", json("zh-Hans ✓")},
      {"items", json::array({{{"identifier", "fan_control"}, {"enabled", false}, {"type", 1}}})},
      {"empty array", json::array()},
  };
  for (const auto& [key, value] : values) ASSERT_TRUE(suite->set(key, value)) << key;
  for (const auto& [key, value] : values) {
    auto read = suite->get(key);
    ASSERT_TRUE(read.has_value()) << key;
    EXPECT_EQ(read->type(), value.type()) << key;
    EXPECT_EQ(*read, value) << key;
  }
}

TEST_P(DefaultsSuiteTypes, NullRemovesAndNonPropertyListsAreRefused) {
  auto suite = make();
  ASSERT_TRUE(suite->set("k", 1));
  EXPECT_TRUE(suite->set("k", nullptr));
  EXPECT_FALSE(suite->get("k").has_value());
  EXPECT_TRUE(suite->remove("never stored"));

  EXPECT_FALSE(suite->set("nan", std::nan("")));
  EXPECT_FALSE(suite->set("nested null", json::array({1, nullptr})));
  EXPECT_FALSE(suite->set("binary", json::binary({1, 2})));
  EXPECT_FALSE(suite->set("not text", json::array({"\xff"})));
  EXPECT_FALSE(suite->set("key not text", json::object({{"\xc0", 1}})));
  EXPECT_TRUE(suite->keys().empty());
  suite->set("b", 1);
  suite->set("a", 2);
  EXPECT_EQ(suite->keys(), (std::vector<std::string>{"a", "b"}));
}

INSTANTIATE_TEST_SUITE_P(Backends, DefaultsSuiteTypes, ::testing::Values(Backend::Memory, Backend::Sqlite),
                         [](const auto& info) { return info.param == Backend::Memory ? "Memory" : "Sqlite"; });

TEST(SqliteDefaultsSuite, ConcurrentWritersLoseNothing) {
  testing::TempDir dir;
  constexpr int kThreads = 4;
  constexpr int kWrites = 50;
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t) {
    writers.emplace_back([&, t] {
      // Each thread its own opening, as each process has.
      auto suite = DefaultsSuite::sqliteFile(dir.path() / "Preferences.db");
      for (int i = 0; i < kWrites; ++i) {
        EXPECT_TRUE(suite->set("k" + std::to_string(t) + "-" + std::to_string(i), i));
      }
    });
  }
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(DefaultsSuite::sqliteFile(dir.path() / "Preferences.db")->keys().size(),
            static_cast<std::size_t>(kThreads * kWrites));
}

// A file that is no database, and a database whose table has another shape: either is set aside,
// said in one line, and a fresh file started.
TEST(SqliteDefaultsSuite, AnUnusableFileIsSetAsideAndAFreshOneStarted) {
  const std::string garbage(8192, 'x');
  for (bool wrongTable : {false, true}) {
    testing::TempDir dir;
    const auto file = dir.path() / "Preferences.db";
    if (wrongTable) {
      SQLite::Database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
          .exec("CREATE TABLE defaults (name TEXT, data BLOB, extra INTEGER)");
    } else {
      testing::writeFile(file, garbage);
    }
    ::testing::internal::CaptureStderr();
    auto suite = DefaultsSuite::sqliteFile(file);
    const std::string err = ::testing::internal::GetCapturedStderr();

    auto aside = setAside(dir.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_TRUE(wrongTable || testing::readFile(aside[0]) == garbage);  // kept as it was, for inspection
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_NE(err.find(aside[0].string()), std::string::npos) << err;
    EXPECT_TRUE(suite->set("HWOpenAtLogin", true));
    EXPECT_EQ(DefaultsSuite::sqliteFile(file)->get("HWOpenAtLogin"), json(true));
  }
}

TEST(SqliteDefaultsSuite, RowsOfOtherWritersAreCleanedOrRefused) {
  testing::TempDir dir;
  const auto file = dir.path() / "Preferences.db";
  auto suite = DefaultsSuite::sqliteFile(file);
  suite->set("ours", 1);
  {
    SQLite::Database db(file.string(), SQLite::OPEN_READWRITE);
    db.exec("INSERT INTO defaults VALUES ('escape', '{\"\\u001b[2J\": \"a\\u0007b\"}')");
    db.exec("INSERT INTO defaults VALUES (CAST(x'6bff' AS TEXT), '1')");
    db.exec("INSERT INTO defaults VALUES ('deep', '" + std::string(100, '[') + std::string(100, ']') + "')");
    db.exec("INSERT INTO defaults VALUES ('bad', '{not json')");
  }
  EXPECT_EQ(suite->get("escape"), json({{"[2J", "ab"}}));
  EXPECT_EQ(suite->keys(), (std::vector<std::string>{"bad", "deep", "escape", "k\uFFFD", "ours"}));
  EXPECT_FALSE(suite->get("deep").has_value());
  EXPECT_FALSE(suite->get("bad").has_value());
}

TEST(SqliteDefaultsSuite, AFileRemovedUnderAnOpenSuiteIsStartedAfresh) {
  testing::TempDir dir;
  const auto file = dir.path() / "Preferences.db";
  auto suite = DefaultsSuite::sqliteFile(file);
  suite->set("old", 1);
  std::filesystem::remove(file);
  std::filesystem::remove(file.string() + "-wal");
  std::filesystem::remove(file.string() + "-shm");
  EXPECT_FALSE(suite->get("old").has_value());
  EXPECT_TRUE(suite->set("new", 2));
  EXPECT_EQ(DefaultsSuite::sqliteFile(file)->get("new"), json(2));
}

TEST(SqliteDefaultsSuite, AFolderThatCannotHoldTheFileFallsBackToMemory) {
  testing::TempDir dir;
  const auto blocker = dir.path() / "not-a-folder";
  testing::writeFile(blocker, "x");
  auto suite = DefaultsSuite::sqliteFile(blocker / "Preferences.db");
  EXPECT_FALSE(suite->get("k").has_value());
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(suite->set("k", 1));  // the first write finds that no file can be made
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("in memory"), std::string::npos) << err;
  EXPECT_EQ(suite->get("k"), json(1));
}

}  // namespace
}  // namespace corvane::platform
