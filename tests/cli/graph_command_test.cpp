// `corvane graph`: which stored points a picture shows, on which axes, and the pictures the
// program writes (or refuses to write).
#include <chrono>
#include <filesystem>
#include <string>
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
  const std::vector<StoredPoint> cpu = {{4000, 30, HWTimeRange::kHour},  {3000, 40, HWTimeRange::kHour},
                                        {60, 55, HWTimeRange::kHour},    {1800, 70, HWTimeRange::kHour},
                                        {80000, 50, HWTimeRange::kDay},  {90000, 99, HWTimeRange::kDay}};
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
    ASSERT_NE(sensor, nullptr);
    const auto data = cli::graphDataForSensor(*sensor, c.range, dates::Date(std::chrono::seconds(1'700'000'000)));
    std::vector<double> values;
    for (const auto& s : data.samples) values.push_back(s.value);
    ASSERT_EQ(values.size(), c.values.size());
    for (std::size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], c.values[i], 1e-9);
    EXPECT_EQ(data.unit, c.unit);
    ASSERT_FALSE(data.timeLabels.empty());
    EXPECT_DOUBLE_EQ(data.timeLabels.back().time, kNow + c.axisEnd);
    EXPECT_DOUBLE_EQ(data.timeLabels.back().time - data.timeLabels.front().time, c.span);

    // The value axis holds the sensor's graph limits and every sample, in equal steps.
    ASSERT_GE(data.valueTicks.size(), 2u);
    double low = sensor->graphMinValue(), high = sensor->graphMaxValue();
    for (double v : values) low = std::min(low, v), high = std::max(high, v);
    EXPECT_LE(data.valueTicks.front().value, low);
    EXPECT_GE(data.valueTicks.back().value, high);
    EXPECT_LE(data.valueTicks.size(), 12u);
    const double step = data.valueTicks[1].value - data.valueTicks[0].value;
    for (std::size_t i = 1; i < data.valueTicks.size(); ++i) {
      EXPECT_NEAR(data.valueTicks[i].value - data.valueTicks[i - 1].value, step, 1e-9);
    }
    EXPECT_NE(data.valueTicks.back().label.find(c.unit), std::string::npos) << data.valueTicks.back().label;
    if (!values.empty()) {
      EXPECT_DOUBLE_EQ(data.lowest.value, *std::min_element(values.begin(), values.end()));
      EXPECT_DOUBLE_EQ(data.highest.value, *std::max_element(values.begin(), values.end()));
    }
  }
}

TEST_F(GraphDataTest, ProgramWritesPicturesOrSaysWhyNot) {
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  sensorWith("TC0P", {{1500, 48, HWTimeRange::kHour}, {900, 63, HWTimeRange::kHour}, {30, 51, HWTimeRange::kHour}},
             now);
  const std::string store = (dir.path() / "Database.sqlite").string();
  const auto home = dir.path() / "home";

  struct Case {
    std::vector<std::string> args;
    int exitCode;
    const char* file;           // what must exist afterwards ("" = nothing in the folder)
    const char* signature;      // the file's first bytes
    const char* errorStart;
  };
  const Case cases[] = {
      {{"graph", "TC0P", "--out", "cpu.png"}, 0, "cpu.png", "\x89PNG\r\n\x1a\n", ""},
      {{"graph", "TC0P", "--range", "hour", "--out", "cpu.SVG"}, 0, "cpu.SVG", "<?xml", ""},
      {{"graph", "TC0P", "--range", "week", "--out", "week.png"}, 1, "", "", "corvane: no graph points yet for TC0P"},
      {{"graph", "NOPE", "--out", "nope.png"}, 1, "", "", "corvane: there is no sensor NOPE"},
      {{"graph", "TC0P", "--out", "cpu.jpg"}, 2, "", "", "corvane: cannot tell the picture format"},
      {{"graph", "TC0P", "--range", "month", "--out", "cpu.png"}, 2, "", "", "corvane: unknown range 'month'"},
  };
  for (const auto& c : cases) {
    const auto out = dir.path() / "pictures";
    std::filesystem::remove_all(out);
    std::filesystem::create_directories(out);
    auto args = c.args;
    for (auto& arg : args) {
      if (arg.find('.') != std::string::npos) arg = (out / arg).string();
    }
    args.insert(args.end(), {"--store", store, "--machine", "MacBookPro16,1"});
    const auto result = testing::runProgram(CORVANE_CLI_PATH, args, home);
    SCOPED_TRACE(c.args.back());
    EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
    EXPECT_EQ(result.err.rfind(c.errorStart, 0), 0u) << result.err;
    std::vector<std::string> written;
    for (const auto& entry : std::filesystem::directory_iterator(out)) written.push_back(entry.path().filename());
    if (*c.file == '\0') {
      EXPECT_TRUE(written.empty());
      continue;
    }
    ASSERT_EQ(written, std::vector<std::string>{c.file});
    const std::string content = testing::readFile(out / c.file);
    EXPECT_EQ(content.rfind(c.signature, 0), 0u);
    EXPECT_GT(content.size(), 4000u);  // axes, labels and a line, not an empty canvas
    if (content.rfind("<?xml", 0) == 0) {
      EXPECT_NE(content.find("<svg"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace corvane
