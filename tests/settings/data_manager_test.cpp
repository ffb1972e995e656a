#include "corvane/settings/data_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "corvane/dispatch/dispatch.h"
#include "support/test_support.h"

namespace corvane {
namespace {

class ReadyRecorder : public HWDataManagerDelegate {
 public:
  void dataManagerDataSetReady() override { ++calls; }
  int calls = 0;
};

class DataManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installMachine(testing::builtinMachine(), dir.path());
    clock = dispatch::installVirtualTime(1'700'000'000);
    HWDataManager::setAppMode(1);
    manager = HWDataManager::create(dir.path() / "group" / "Database.sqlite");
  }
  void TearDown() override { HWDataManager::setAppMode(0); }

  std::vector<std::string> keysOf(const std::vector<std::shared_ptr<HWSensorEntity>>& sensors) {
    std::vector<std::string> keys;
    for (const auto& s : sensors) keys.push_back(s->key());
    return keys;
  }

  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock;
  std::shared_ptr<HWDataManager> manager;
};

TEST_F(DataManagerTest, BuildingTwiceKeepsOneManualSetTheOrderAndVanishedSensorsHistory) {
  auto store = manager->sensorDataStore();
  ASSERT_TRUE(manager->buildDataSetNow());
  auto categories = store->allCategories();
  ASSERT_EQ(categories.size(), 5u);
  const auto temps = keysOf(categories[0]->sensors());
  const auto fans = store->fanSensors();
  ASSERT_FALSE(temps.empty());
  ASSERT_FALSE(fans.empty());
  auto sets = store->allFanSets();
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0]->name(), "Manual");
  for (const auto& fan : fans) EXPECT_EQ(sets[0]->valueDict().at(fan->key()), fan->minValue());

  // A sensor with history vanishes from the reader.
  auto gone = store->getSensorByKey(temps.front());
  auto point = store->createGraphPoint();
  point->setSensor(gone);
  point->setPointY(50);
  ASSERT_TRUE(store->save());
  auto records = *manager->sensorReader()->allSensors();
  records.erase(std::remove_if(records.begin(), records.end(), [&](const auto& r) { return r->key() == temps.front(); }),
                records.end());
  manager->sensorReader()->setAllSensors(records);

  ASSERT_TRUE(manager->buildDataSetNow());
  ASSERT_TRUE(manager->buildDataSetNow());
  EXPECT_EQ(store->allFanSets().size(), 1u);
  EXPECT_EQ(store->allCategories().size(), 5u);
  EXPECT_EQ(keysOf(store->getCategoryWithType(0)->sensors()), std::vector<std::string>(temps.begin() + 1, temps.end()));
  ASSERT_NE(store->getSensorByKey(temps.front()), nullptr);
  EXPECT_EQ(store->getSensorByKey(temps.front())->graphPointCount(HWTimeRange::kHour), 1);
}

TEST_F(DataManagerTest, ReadyComesOneSecondAfterTheAsynchronousBuild) {
  auto recorder = std::make_shared<ReadyRecorder>();
  manager->addDelegate(recorder);
  manager->buildDatabase();
  clock->advance(std::chrono::milliseconds(999));
  EXPECT_FALSE(manager->dataSetReady());
  EXPECT_FALSE(manager->sensorDataStore()->allSensors().empty());  // saved before the wait
  clock->advance(std::chrono::milliseconds(1));
  EXPECT_TRUE(manager->dataSetReady());
  EXPECT_EQ(recorder->calls, 1);
}

TEST_F(DataManagerTest, OldStoreEngineFilesGoOnlyWhenItsStoreExists) {
  const auto group = dir.path() / "group";
  std::filesystem::create_directories(group);
  std::ofstream(group / "db.realm.lock") << "x";
  manager->backwardCompability();
  EXPECT_TRUE(std::filesystem::exists(group / "db.realm.lock"));  // no "db.realm": companions untouched
  std::ofstream(group / "db.realm") << "x";
  manager->backwardCompability();
  EXPECT_FALSE(std::filesystem::exists(group / "db.realm"));
  EXPECT_FALSE(std::filesystem::exists(group / "db.realm.lock"));
}

// Carrying the store over to a moved app-group container: what ends where, and what is said.
TEST_F(DataManagerTest, StoreFilesMoveFromTheOldAppGroupContainerOnce) {
  namespace fs = std::filesystem;
  struct Case {
    const char* name;
    std::vector<std::string> oldFiles;  // empty with oldExists: an old folder without a store
    bool oldExists, newCreatable;
    std::vector<std::string> logged;
    bool oldRemains;
  };
  const Case cases[] = {
      {"no old container", {}, false, true, {}, false},
      {"old container without a store", {}, true, true, {}, true},
      {"store and log", {"Database.sqlite", "Database.sqlite-wal"}, true, true,
       {"✅ Copied Database.sqlite to new App Group path", "✅ Copied Database.sqlite-wal to new App Group path",
        "🗑️ Removed old App Group folder"}, false},
      {"new container cannot be made", {"Database.sqlite"}, true, false,
       {"❌ Failed to create new App Group directory: "}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir root;
    const fs::path oldGroup = root.path() / "old", parent = root.path() / "parent";
    if (c.oldExists) fs::create_directories(oldGroup);
    for (const auto& name : c.oldFiles) std::ofstream(oldGroup / name) << "old " << name;
    if (c.newCreatable) {
      fs::create_directories(parent / "new");
      std::ofstream(parent / "new" / "Database.sqlite") << "stale";
    } else {
      std::ofstream(parent) << "a file where the folder should be";
    }
    ::testing::internal::CaptureStderr();
    HWDataManager::migrateLegacyAppGroupDataIfNeeded(oldGroup, parent / "new");
    const std::string log = ::testing::internal::GetCapturedStderr();
    std::size_t at = 0;
    for (const auto& line : c.logged) {
      at = log.find(line, at);
      EXPECT_NE(at, std::string::npos) << line << " in:\n" << log;
    }
    if (c.logged.empty()) {
      EXPECT_EQ(log, "");
    }
    EXPECT_EQ(fs::exists(oldGroup), c.oldRemains);
    for (const auto& name : c.oldFiles) {
      if (!c.newCreatable) continue;
      std::ifstream in(parent / "new" / name);
      EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "old " + name);
    }
  }
}

}  // namespace
}  // namespace corvane
