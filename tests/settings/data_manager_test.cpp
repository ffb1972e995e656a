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

}  // namespace
}  // namespace corvane
