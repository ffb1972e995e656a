// A writer process killed in the middle of its saves leaves a sound file holding whole saves, and
// a reader in another process never sees half a save.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <random>

#include "corvane/store/entities.h"
#include "support/test_support.h"

namespace corvane {
namespace {

constexpr int kSensors = 20;
constexpr int kPointsPerSave = 10;

// Every save gives all sensors the same new value and adds kPointsPerSave points: a half-written
// save shows as sensors that disagree or a point count off the multiple.
[[noreturn]] void writeForever(const std::filesystem::path& file, int ready) {
  auto stack = HWCoreDataStack::create(file, true);
  auto view = stack->viewContext();
  std::vector<std::shared_ptr<HWSensorEntity>> sensors;
  for (const auto& object : stack->objectsOf(HWEntity::kSensor)) {
    sensors.push_back(std::static_pointer_cast<HWSensorEntity>(object));
  }
  for (double round = sensors.at(0)->value() + 1;; ++round) {
    for (auto& sensor : sensors) sensor->setValue(round);
    for (int i = 0; i < kPointsPerSave; ++i) {
      auto point = std::static_pointer_cast<HWGraphPointEntity>(stack->insertNewObjectOf(HWEntity::kGraphPoint));
      point->setSensor(sensors[static_cast<std::size_t>(i)]);
      point->setPointY(round);
    }
    if (!stack->saveViewContext()) _exit(3);
    const char byte = 1;
    if (::write(ready, &byte, 1) != 1) _exit(4);
  }
}

// The invariant of whole saves, read through a stack of this process; the number of saves seen.
std::int64_t checkWholeSaves(const std::filesystem::path& file) {
  auto reader = HWCoreDataStack::create(file, false);
  const auto sensors = reader->objectsOf(HWEntity::kSensor);
  const auto points = reader->objectsOf(HWEntity::kGraphPoint).size();
  EXPECT_EQ(sensors.size(), static_cast<std::size_t>(kSensors));
  const double value = std::static_pointer_cast<HWSensorEntity>(sensors.at(0))->value();
  for (const auto& sensor : sensors) EXPECT_EQ(std::static_pointer_cast<HWSensorEntity>(sensor)->value(), value);
  EXPECT_EQ(points % kPointsPerSave, 0u);
  EXPECT_EQ(static_cast<double>(points / kPointsPerSave), value);
  return static_cast<std::int64_t>(value);
}

// The same while the writer runs: one read transaction, as each fetch of a reader is one.
void checkSnapshot(const std::filesystem::path& file) {
  SQLite::Database db(file.string(), SQLite::OPEN_READONLY, 5000);
  SQLite::Statement snapshot(db, R"(SELECT (SELECT MIN("value") FROM "Sensor"), (SELECT MAX("value") FROM "Sensor"),
                                           (SELECT COUNT(*) FROM "GraphPoint"))");
  ASSERT_TRUE(snapshot.executeStep());
  const double low = snapshot.getColumn(0).getDouble();
  EXPECT_EQ(low, snapshot.getColumn(1).getDouble());
  EXPECT_EQ(static_cast<double>(snapshot.getColumn(2).getInt64()), low * kPointsPerSave);
}

TEST(StoreCrashSafety, KilledWritersLeaveWholeSavesAndReadersSeeNoHalves) {
  testing::TempDir dir;
  const auto file = dir.path() / "Database.sqlite";
  {
    auto stack = HWCoreDataStack::create(file, true);
    for (int i = 0; i < kSensors; ++i) {
      std::static_pointer_cast<HWSensorEntity>(stack->insertNewObjectOf(HWEntity::kSensor))->setKey(std::to_string(i));
    }
    ASSERT_TRUE(stack->saveViewContext());
  }
  std::mt19937 random(12345);
  std::int64_t saves = 0;
  for (int kill = 0; kill < 50; ++kill) {
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
      ::close(pipeEnds[0]);
      writeForever(file, pipeEnds[1]);
    }
    ::close(pipeEnds[1]);
    // Read while it writes, then kill it at a random point of a later save.
    const int waitFor = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < waitFor; ++i) {
      char byte = 0;
      ASSERT_EQ(::read(pipeEnds[0], &byte, 1), 1);
      checkSnapshot(file);
    }
    ::kill(writer, SIGKILL);
    int status = 0;
    ::waitpid(writer, &status, 0);
    ::close(pipeEnds[0]);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself: " << status;

    SQLite::Database db(file.string());
    EXPECT_EQ(db.execAndGet("PRAGMA integrity_check").getString(), "ok");
    const std::int64_t now = checkWholeSaves(file);
    EXPECT_GE(now, saves + waitFor);  // every save it announced is there
    saves = now;
    if (::testing::Test::HasFailure()) break;
  }
}

}  // namespace
}  // namespace corvane
