// The store's hot paths: one save of every sensor's value, the final recorded maximum of a
// sensor, pruning old graph points, and what a week of history costs on disk.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "corvane/store/sensor_data_store.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

fs::path scratchFile(const std::string& name) {
  const fs::path dir = fs::temp_directory_path() / ("corvane-store-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const fs::path file = dir / name;
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(file.string() + suffix);
  return file;
}

class NoEnvironment : public HWSensorDataStoreEnvironment {
 public:
  std::optional<nlohmann::json> objectForKey(const std::string&) const override { return std::nullopt; }
  void setObject(const std::optional<nlohmann::json>&, const std::string&, const std::optional<std::string>&) override {}
  void postGlobalNotification(const std::string&) override {}
  std::uint64_t appMode() const override { return 1; }
  std::unique_ptr<platform::GlobalNotifications::Token> addObserver(const std::string&,
                                                                    platform::GlobalNotifications::Observer) override {
    return nullptr;
  }
};

// A store with `sensors` sensors, each with `points` points per range (one every `step` seconds).
std::shared_ptr<HWSensorDataStore> filledStore(const fs::path& file, int sensors, int points,
                                               const double (&step)[3] = {10, 240, 1800}) {
  auto store = HWSensorDataStore::create(HWCoreDataStack::create(file, true), std::make_shared<NoEnvironment>());
  auto category = store->createOrUpdateCategoryWithName("Temperature", nullptr);
  category->setType(0);
  std::vector<std::shared_ptr<HWSensorEntity>> list;
  for (int i = 0; i < sensors; ++i) {
    // Appended, not "literal" + string: g++ 12 at -O2 warns falsely (-Wrestrict) on the latter.
    const std::string number = std::to_string(i);
    std::string key = "T";
    key += number;
    std::string name = "Sensor ";
    name += number;
    auto sensor = store->createSensorWithKey(key, nullptr);
    sensor->setName(name);
    sensor->setFullName(sensor->name());
    list.push_back(sensor);
  }
  category->setSensors(list);
  store->save();
  for (int range = 0; range < 3 && points > 0; ++range) {
    for (const auto& sensor : list) {
      for (int p = 0; p < points; ++p) {
        auto point = store->createGraphPoint();
        point->setSensor(sensor);
        point->setTimeRange(static_cast<std::int16_t>(range));
        point->setPointX(1'700'000'000 + p * step[range]);
        point->setPointY(40 + (p % 37));
      }
    }
    store->save();
  }
  return store;
}

void BM_SaveValuesOf150Sensors(benchmark::State& state) {
  auto store = filledStore(scratchFile("save.sqlite"), 150, 0);
  const auto sensors = store->allSensors();
  double value = 40;
  for (auto _ : state) {
    value += 0.25;
    for (const auto& sensor : sensors) sensor->setValue(value);
    if (!store->save()) state.SkipWithError("save failed");
  }
}
BENCHMARK(BM_SaveValuesOf150Sensors)->Unit(benchmark::kMicrosecond);

void BM_FinalRecordedMaxOf1000Points(benchmark::State& state) {
  // 1,000 points of one sensor among 150 others with history.
  auto store = filledStore(scratchFile("max.sqlite"), 150, 333);
  auto sensor = store->getSensorByKey("T75");
  double result = 0;
  for (auto _ : state) benchmark::DoNotOptimize(result = sensor->finalRecordedMaxValue());
  state.counters["points"] = static_cast<double>(sensor->graphPointCount(HWTimeRange::kHour) +
                                                 sensor->graphPointCount(HWTimeRange::kDay) +
                                                 sensor->graphPointCount(HWTimeRange::kWeek));
}
BENCHMARK(BM_FinalRecordedMaxOf1000Points)->Unit(benchmark::kMicrosecond);

// 200 sensors with 1,000 hour points each (200,000 points): one pruning pass takes the oldest
// point of every sensor, as a pass after each sample does.
void BM_PruneOldestPointOf200Sensors(benchmark::State& state) {
  auto store = filledStore(scratchFile("prune.sqlite"), 200, 1000, {10, 10, 10});
  const auto sensors = store->allSensors();
  double before = 1'700'000'000 + 10 * 0.5;
  std::int64_t removed = 0;
  for (auto _ : state) {
    removed += store->deleteGraphPoints(sensors, HWTimeRange::kHour, before);
    before += 10;
  }
  state.counters["removedPerPass"] = static_cast<double>(removed) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_PruneOldestPointOf200Sensors)->Unit(benchmark::kMicrosecond)->Iterations(500);

// 200 sensors with 1,000 hour points each, all of them out of date at once (a store left alone
// for longer than the range): one pass removes all 200,000.
void BM_Prune200000PointsOf200Sensors(benchmark::State& state) {
  std::int64_t removed = 0;
  std::shared_ptr<HWSensorDataStore> store;
  for (auto _ : state) {
    state.PauseTiming();
    // Each pass on a store of its own, so that every pass prunes the same history; closing the
    // last one (folding its log into the file) is no part of a pass.
    store.reset();
    store = filledStore(scratchFile("prune-all.sqlite"), 200, 1000, {10, 10, 10});
    const auto sensors = store->allSensors();
    state.ResumeTiming();
    removed += store->deleteGraphPoints(sensors, HWTimeRange::kHour, 1'800'000'000);
  }
  state.counters["removedPerPass"] = static_cast<double>(removed) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_Prune200000PointsOf200Sensors)->Unit(benchmark::kMillisecond)->Iterations(3);

// A week of history for 150 sensors, pruned to each range's window: 360 hour points (10 s),
// 360 day points (240 s), 336 week points (1,800 s) per sensor.
void BM_WeekOfHistorySize(benchmark::State& state) {
  const fs::path file = scratchFile("week.sqlite");
  for (auto _ : state) {
    state.PauseTiming();
    auto store = filledStore(file, 150, 0);
    const auto sensors = store->allSensors();
    const int counts[3] = {360, 360, 336};
    const double steps[3] = {10, 240, 1800};
    for (int range = 0; range < 3; ++range) {
      for (const auto& sensor : sensors) {
        for (int p = 0; p < counts[range]; ++p) {
          auto point = store->createGraphPoint();
          point->setSensor(sensor);
          point->setTimeRange(static_cast<std::int16_t>(range));
          point->setPointX(1'700'000'000 + p * steps[range]);
          point->setPointY(40.0 + (p % 37) * 0.25);
        }
      }
      store->save();
    }
    state.ResumeTiming();
  }
  // The store is closed now: its log is folded into the file.
  const double points = 150.0 * (360 + 360 + 336);
  std::error_code ec;
  double bytes = 0;
  for (const char* suffix : {"", "-wal"}) {
    const auto size = fs::file_size(file.string() + suffix, ec);
    if (!ec) bytes += static_cast<double>(size);
  }
  state.counters["bytes"] = bytes;
  state.counters["bytesPerPoint"] = bytes / points;
}
BENCHMARK(BM_WeekOfHistorySize)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvane

BENCHMARK_MAIN();
