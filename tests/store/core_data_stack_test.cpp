#include "corvane/store/core_data_stack.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <fstream>

#include "corvane/store/entities.h"
#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> asideFiles(const fs::path& dir) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(dir)) {
    if (entry.path().filename().string().find(".corrupt-") != std::string::npos) found.push_back(entry.path());
  }
  return found;
}

template <class T>
std::shared_ptr<T> insert(HWCoreDataStack& stack, HWEntity entity, const std::shared_ptr<HWManagedObjectContext>& c) {
  return std::static_pointer_cast<T>(stack.insertNewObjectOf(entity, c));
}

class CoreDataStackTest : public ::testing::Test {
 protected:
  testing::TempDir dir;
  fs::path file = dir.path() / "group" / "Database.sqlite";
};

TEST_F(CoreDataStackTest, OpensLazilyWithTheSchemaInWalMode) {
  auto stack = HWCoreDataStack::create(file, true);
  EXPECT_FALSE(fs::exists(file));  // nothing until first use: the data manager moves files first
  ASSERT_TRUE(stack->hasStore());

  SQLite::Database db(file.string());
  EXPECT_EQ(db.execAndGet("PRAGMA user_version").getInt(), HWCoreDataStack::kSchemaVersion);
  EXPECT_EQ(db.execAndGet("PRAGMA journal_mode").getString(), "wal");
  EXPECT_EQ(db.execAndGet("PRAGMA auto_vacuum").getInt(), 2);  // incremental: pruning gives pages back
  for (const char* table : {"Sensor", "Category", "FanSet", "FanCondition", "GraphPoint"}) {
    EXPECT_TRUE(db.tableExists(table)) << table;
  }
}

// Files that are not a store of ours are set aside (kept, under a time-stamped name) with one
// line on stderr, and a fresh store takes their place.
TEST_F(CoreDataStackTest, UnusableFilesAreSetAsideAndReplaced) {
  struct Case {
    const char* name;
    std::function<void(const fs::path&)> make;
  };
  const std::vector<Case> cases = {
      {"not a database", [](const fs::path& f) { std::ofstream(f) << std::string(4096, 'x'); }},
      {"foreign table shape",
       [](const fs::path& f) {
         SQLite::Database db(f.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
         db.exec("CREATE TABLE \"Sensor\" (\"id\" INTEGER PRIMARY KEY, \"other\" TEXT)");
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir scratch;
    const fs::path store = scratch.path() / "Database.sqlite";
    c.make(store);
    const auto before = fs::file_size(store);
    ::testing::internal::CaptureStderr();
    auto stack = HWCoreDataStack::create(store, true);
    ASSERT_TRUE(stack->hasStore());
    const std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    const auto aside = asideFiles(scratch.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(fs::file_size(aside[0]), before);
    insert<HWSensorCategoryEntity>(*stack, HWEntity::kCategory, nullptr)->setName("Fan");
    EXPECT_TRUE(stack->saveViewContext());
  }
}

TEST_F(CoreDataStackTest, NewerSchemaOpensReadOnlyAndIsNeverWritten) {
  {
    auto writer = HWCoreDataStack::create(file, true);
    insert<HWSensorCategoryEntity>(*writer, HWEntity::kCategory, nullptr)->setName("Temperature");
    ASSERT_TRUE(writer->saveViewContext());
  }
  { SQLite::Database(file.string(), SQLite::OPEN_READWRITE).exec("PRAGMA user_version = 99"); }
  ::testing::internal::CaptureStderr();
  auto stack = HWCoreDataStack::create(file, true);
  ASSERT_TRUE(stack->hasStore());
  EXPECT_TRUE(stack->isReadOnly());
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("read-only"), std::string::npos);
  EXPECT_EQ(stack->objectsOf(HWEntity::kCategory).size(), 1u);

  insert<HWSensorCategoryEntity>(*stack, HWEntity::kCategory, nullptr)->setName("Fan");
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(stack->saveViewContext());
  EXPECT_EQ(::testing::internal::GetCapturedStderr().rfind("Save error: ", 0), 0u);
  EXPECT_TRUE(stack->viewContext()->hasChanges());
  EXPECT_EQ(SQLite::Database(file.string()).execAndGet("PRAGMA user_version").getInt(), 99);
  EXPECT_TRUE(asideFiles(file.parent_path()).empty());
}

// A background save goes through the view context to the file in one save, and a second stack on
// the file (another process) sees relations, order and the delete rules.
TEST_F(CoreDataStackTest, BackgroundSavesReachTheFileWithRelationsAndDeleteRules) {
  auto writer = HWCoreDataStack::create(file, true);
  int announcements = 0;
  writer->setViewContextDidSave([&] { ++announcements; });
  auto background = writer->newContext();
  auto category = insert<HWSensorCategoryEntity>(*writer, HWEntity::kCategory, background);
  category->setName("Temperature");
  std::vector<std::shared_ptr<HWSensorEntity>> sensors;
  for (const char* key : {"TC0P", "TA0P", "Tm0P"}) {
    sensors.push_back(insert<HWSensorEntity>(*writer, HWEntity::kSensor, background));
    sensors.back()->setKey(key);
  }
  category->setSensors({sensors[2], sensors[0], sensors[1]});
  auto fanSet = insert<HWFanSetEntity>(*writer, HWEntity::kFanSet, background);
  auto condition = insert<HWFanConditionEntity>(*writer, HWEntity::kFanCondition, background);
  condition->setFanSet(fanSet);
  for (double x : {1.0, 2.0, 3.0}) {
    auto point = insert<HWGraphPointEntity>(*writer, HWEntity::kGraphPoint, background);
    point->setSensor(sensors[0]);
    point->setPointX(x);
    point->setPointY(40 + x);
  }
  ASSERT_TRUE(writer->saveContext(background));
  EXPECT_EQ(announcements, 1);
  EXPECT_FALSE(writer->viewContext()->hasChanges());

  auto reader = HWCoreDataStack::create(file, false);
  auto categories = reader->objectsOf(HWEntity::kCategory);
  ASSERT_EQ(categories.size(), 1u);
  std::vector<std::string> order;
  for (const auto& s : std::static_pointer_cast<HWSensorCategoryEntity>(categories[0])->sensors()) {
    order.push_back(s->key());
  }
  EXPECT_EQ(order, (std::vector<std::string>{"Tm0P", "TC0P", "TA0P"}));

  // Delete rules: a sensor takes its points, a fan set its conditions, a category only lets go.
  auto view = writer->viewContext();
  view->deleteObject(sensors[0]);
  view->deleteObject(fanSet);
  view->deleteObject(category);
  ASSERT_TRUE(writer->saveViewContext());
  EXPECT_EQ(announcements, 2);
  EXPECT_TRUE(reader->objectsOf(HWEntity::kGraphPoint).empty());
  EXPECT_TRUE(reader->objectsOf(HWEntity::kFanCondition).empty());
  auto left = reader->objectsOf(HWEntity::kSensor);
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(std::static_pointer_cast<HWSensorEntity>(left[0])->category(), nullptr);

  // The reader's loaded objects take the writer's values on refresh.
  auto sensor = std::static_pointer_cast<HWSensorEntity>(left[0]);
  std::static_pointer_cast<HWSensorEntity>(writer->objectsOf(HWEntity::kSensor)[0])->setValue(55);
  ASSERT_TRUE(writer->saveViewContext());
  reader->viewContext()->refreshAllObjects();
  EXPECT_EQ(sensor->value(), 55);
}

}  // namespace
}  // namespace corvane
