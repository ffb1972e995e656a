// `corvane graph`: which stored points a picture shows, on which axes, and the pictures the
// program writes (or refuses to write).
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/settings/data_manager.h"
#include "graph_data.h"
#include "support/test_support.h"

namespace corvane {
namespace {

constexpr double kNow = 1'700'000'000;

struct StoredPoint {
  double ago;  // seconds before kNow (negative: after it)
  double value;
  HWTimeRange range;
};

class GraphDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installMachine(testing::builtinMachine(), dir.path());
    dispatch::installVirtualTime(kNow);
    HWDataManager::setAppMode(1);
    manager = HWDataManager::create(dir.path() / "Database.sqlite");
    ASSERT_TRUE(manager->buildDataSetNow());
  }
  void TearDown() override {
    setUnitPreferencesProvider(nullptr);
    HWDataManager::setAppMode(0);
  }
  std::shared_ptr<HWSensorEntity> sensorWith(const std::string& key, const std::vector<StoredPoint>& points,
                                             double origin = kNow) {
    auto store = manager->sensorDataStore();
    auto sensor = store->getSensorByKey(key);
    EXPECT_NE(sensor, nullptr) << key;
    for (const auto& p : points) {
      auto point = store->createGraphPoint();
      point->setSensor(sensor);
      point->setPointX(origin - p.ago);
      point->setPointY(p.value);
      point->setTimeRange(static_cast<std::int16_t>(p.range));
    }
    EXPECT_TRUE(store->save());
    return sensor;
  }
  testing::TempDir dir;
  std::shared_ptr<HWDataManager> manager;
};

TEST_F(GraphDataTest, TakesThePointsOfTheRangeOnItsAxes) {
  const std::vector<StoredPoint> cpu = {{4000, 30, HWTimeRange::kHour}, {3000, 40, HWTimeRange::kHour},
                                        {60, 55, HWTimeRange::kHour},   {1800, 70, HWTimeRange::kHour},
                                        {80000, 50, HWTimeRange::kDay}, {90000, 99, HWTimeRange::kDay}};
  // Points of a simulated clock that ran two hours ahead of this one.
  const std::vector<StoredPoint> fan = {{-7200, 1200, HWTimeRange::kHour}, {-5400, 2000, HWTimeRange::kHour}};
  sensorWith("TC0P", cpu);
  sensorWith("0", fan);  // the first fan

  struct Case {
    const char* key;
    HWTimeRange range;
    UnitPreferences units;
    std::vector<double> values;  // the samples, oldest first
    double axisEnd;              // seconds after kNow
    double span;                 // of the time axis
    const char* unit;
  };
  const Case cases[] = {
      {"TC0P", HWTimeRange::kHour, {true, 0}, {40, 70, 55}, 0, 3600, "°"},  // older than the axis left out
      {"TC0P", HWTimeRange::kHour, {false, 0}, {104, 158, 131}, 0, 3600, "°F"},
      {"TC0P", HWTimeRange::kDay, {true, 0}, {50}, 0, 86400, "°"},
      {"TC0P", HWTimeRange::kWeek, {true, 0}, {}, 0, 604800, "°"},
      {"0", HWTimeRange::kHour, {true, 0}, {2000, 1200}, 7200, 3600, "rpm"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key) + " " + cli::timeRangeName(c.range));
    setUnitPreferencesProvider([units = c.units] { return units; });
    const auto sensor = manager->sensorDataStore()->getSensorByKey(c.key);
    const auto data = cli::graphDataForSensor(*sensor, c.range, dates::Date(std::chrono::seconds(1'700'000'000)));
    std::vector<double> values;
    for (const auto& s : data.samples) values.push_back(s.value);
    ASSERT_EQ(values.size(), c.values.size());
    for (std::size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], c.values[i], 1e-9);
    EXPECT_EQ(data.unit, c.unit);
    ASSERT_FALSE(data.timeLabels.empty());
    EXPECT_EQ(std::make_pair(data.timeLabels.front().time, data.timeLabels.back().time),
              std::make_pair(kNow + c.axisEnd - c.span, kNow + c.axisEnd));

    // The value axis holds the sensor's graph limits and every sample, in equal steps.
    ASSERT_GE(data.valueTicks.size(), 2u);
    double low = sensor->graphMinValue(), high = sensor->graphMaxValue();
    for (double v : values) low = std::min(low, v), high = std::max(high, v);
    EXPECT_LE(data.valueTicks.front().value, low);
    EXPECT_GE(data.valueTicks.back().value, high);
    const double step = data.valueTicks[1].value - data.valueTicks[0].value;
    for (std::size_t i = 1; i < data.valueTicks.size(); ++i) {
      EXPECT_NEAR(data.valueTicks[i].value - data.valueTicks[i - 1].value, step, 1e-9);
    }
    EXPECT_NE(data.valueTicks.back().label.find(c.unit), std::string::npos) << data.valueTicks.back().label;
    if (!values.empty()) {
      EXPECT_EQ(std::make_pair(data.lowest.value, data.highest.value),
                std::pair(std::ranges::min(values), std::ranges::max(values)));
    }
  }
}

TEST_F(GraphDataTest, ProgramWritesPicturesOrSaysWhyNot) {
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  sensorWith("TC0P", {{1500, 48, HWTimeRange::kHour}, {900, 63, HWTimeRange::kHour}, {30, 51, HWTimeRange::kHour}},
             now);
  const std::string store = (dir.path() / "Database.sqlite").string();
  const auto home = dir.path() / "home";

  // Sensor, range and picture file; exit status; the picture's first bytes, or the start of the error.
  const std::tuple<const char*, const char*, const char*, int, std::string> cases[] = {
      {"TC0P", "hour", "cpu.png", 0, "\x89PNG\r\n\x1a\n"},
      {"TC0P", "hour", "cpu.SVG", 0, "<?xml"},
      {"TC0P", "week", "week.png", 1, "corvane: no graph points yet for TC0P"},
      {"NOPE", "hour", "nope.png", 1, "corvane: there is no sensor NOPE"},
      {"TC0P", "hour", "cpu.jpg", 2, "corvane: cannot tell the picture format"},
      {"TC0P", "month", "cpu.png", 2, "corvane: unknown range 'month'"},
  };
  for (const auto& [sensor, range, file, exitCode, start] : cases) {
    SCOPED_TRACE(file);
    const auto out = dir.path() / file;
    std::filesystem::remove(out);
    const auto result = testing::runProgram(
        CORVANE_CLI_PATH,
        {"graph", sensor, "--range", range, "--out", out.string(), "--store", store, "--machine", "MacBookPro16,1"},
        home);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    EXPECT_EQ(std::filesystem::exists(out), exitCode == 0);
    const std::string shown = exitCode == 0 ? testing::readFile(out) : result.err;
    EXPECT_EQ(shown.rfind(start, 0), 0u) << result.err;
    EXPECT_TRUE(exitCode != 0 || shown.size() > 4000);  // axes, labels and a line, not an empty canvas
  }
}

}  // namespace
}  // namespace corvane
