// The live view's rows and sparklines, checked without a terminal.
#include <cmath>
#include <tuple>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "live_model.h"

namespace corvane::cli::live {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

struct SparkCase {
  const char* label;
  std::vector<double> values;
  int width;
  std::string expected;
  const Glyphs* glyphs = &kBlocks;
};

TEST(Sparkline, MapsValuesToEightLevels) {
  const SparkCase cases[] = {
      {"rising", {0, 1, 2, 3, 4, 5, 6, 7}, 8, "▁▂▃▄▅▆▇█"},
      {"halfway rounds up", {0, 0.5, 1}, 3, "▁▅█"},
      {"flat sits mid", {5, 5, 5}, 3, "▄▄▄"},
      {"gaps stay blank", {0, kNaN, 1, kInf}, 4, "▁ █ "},
      {"nothing but gaps", {kNaN, kNaN}, 2, "  "},
      {"keeps the newest", {100, 0, 1}, 2, "▁█"},
      {"shorter than width", {1, 2}, 5, "▁█"},
      {"no width", {1, 2}, 0, ""},
      {"ascii", {0, 7}, 2, "_#", &kAsciiLevels},
  };
  for (const auto& c : cases) EXPECT_EQ(sparkline(c.values, c.width, *c.glyphs), c.expected) << c.label;
}

// Series with gaps compare equal when their gaps stand in the same places.
std::vector<double> gapsAsMinusOne(std::vector<double> values) {
  for (auto& x : values) x = std::isnan(x) ? -1 : x;
  return values;
}

struct SeriesCase {
  const char* label;
  std::vector<GraphSample> history;
  std::vector<double> expected;  // four slices of 15 minutes ending at kNow
};

TEST(HourSeries, AveragesReadingsPerSliceOfTheLastHour) {
  constexpr double kNow = 100000;
  const SeriesCase cases[] = {
      {"empty", {}, {kNaN, kNaN, kNaN, kNaN}},
      {"edges", {{kNow - 3600, 1}, {kNow - 3599, 2}, {kNow, 3}, {kNow + 1, 4}}, {2, kNaN, kNaN, 3}},
      {"slice boundary", {{kNow - 2700, 5}, {kNow - 2699, 6}}, {5, 6, kNaN, kNaN}},
      {"mean", {{kNow - 10, 10}, {kNow - 20, 20}, {kNow - 30, kNaN}}, {kNaN, kNaN, kNaN, 15}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(gapsAsMinusOne(hourSeries(c.history, kNow, 4)), gapsAsMinusOne(c.expected)) << c.label;
  }
}

TEST(FanModeText, ReadsTheModeKeyElseTheForcedMask) {
  const struct {
    std::optional<double> mode, mask;
    std::uint64_t index;
    const char* expected;
  } cases[] = {
      {0.0, std::nullopt, 0, "auto"},       {1.0, std::nullopt, 0, "forced"}, {0.0, 3.0, 1, "auto"},
      {std::nullopt, 2.0, 1, "forced"},     {std::nullopt, 2.0, 0, "auto"},   {kNaN, 1.0, 0, "forced"},
      {std::nullopt, std::nullopt, 0, "-"}, {std::nullopt, 65535.0, 16, "-"},
  };
  for (const auto& c : cases) EXPECT_EQ(fanModeText(c.mode, c.mask, c.index), c.expected) << c.index;
}

// A sensor as the view builds it from its own readings: unsaved, in an unsaved category.
struct SensorRow {
  const char* key;
  std::int16_t type;  // -1: in no category
  double value, recordedMin, recordedMax;
  double minLimit = 0, maxLimit = 0;
  std::vector<GraphSample> history{};
  bool host = false;
};

struct RowsCase {
  const char* label;
  UnitPreferences units;
  std::vector<SensorRow> sensors;
  int sparkWidth;
  std::vector<std::string> expected;  // "# Header" or "key value status min max mode spark"
};

class BuildRows : public ::testing::Test {
 protected:
  void TearDown() override { setUnitPreferencesProvider(nullptr); }
};

TEST_F(BuildRows, GroupsByCategoryInTheUsersUnits) {
  constexpr double kNow = 50000;
  const RowsCase cases[] = {
      {"celsius, categories in type order",
       {true, 0},
       {{"0", 1, 2000, 1200, 2400, 1200, 6000}, {"TC0P", 0, 75, 40, kNothingRecorded}, {"PSTR", 4, 7.5, 7.25, 8}},
       0,
       {"# Temperature", "TC0P 75° High 40° - ", "# Fan", "0 2000rpm Normal 1200rpm 2400rpm ", "# Power",
        "PSTR 7.50W OK 7.25W 8.00W "}},
      {"fahrenheit and fan share",
       {false, 1},
       {{"TC0E", 0, 100, kRecordedMinStart, 100}, {"1", 1, 3600, 1200, 6000, 1200, 6000}},
       0,
       {"# Temperature", "TC0E 212°F Very high - 212°F ", "# Fan", "1 50% Normal 0% 100% "}},
      {"unreadable and uncategorised",
       {true, 0},
       {{"TB0T", 0, kNaN, kRecordedMinStart, kNothingRecorded}, {"XXXX", -1, 1, 1, 1}},
       0,
       {"# Temperature", "TB0T - -- - - "}},
      {"sparkline of the hour",
       {true, 0},
       {{"VP0R", 2, 12, 11, 12, 0, 0, {{kNow - 3000, 11}, {kNow - 5, 12}}}},
       4,
       {"# Voltage", "VP0R 12.00V OK 11.00V 12.00V ▁  █"}},
      {"the host's sensors after the Mac's, in their own group",
       {true, 0},
       {{"k10temp-pci-00c3/temp1", 0, 48, 40, 50, 0, 0, {}, true},
        {"TC0P", 0, 75, 40, kNothingRecorded},
        {"nct6798-isa-0290/fan2", 1, 900, 900, 900, 300, 1800, {}, true}},
       0,
       {"# Temperature", "TC0P 75° High 40° - ", "## Host", "# Temperature", "k10temp-pci-00c3/temp1 48° Normal 40° 50° ",
        "# Fan", "nct6798-isa-0290/fan2 900rpm Normal 900rpm 900rpm "}},
  };
  for (const auto& c : cases) {
    setUnitPreferencesProvider([units = c.units] { return units; });
    std::vector<std::shared_ptr<HWSensorCategoryEntity>> categories(5);
    for (std::int16_t type = 0; type < 5; ++type) {
      (categories[static_cast<std::size_t>(type)] = std::make_shared<HWSensorCategoryEntity>())->setType(type);
    }
    std::vector<SensorInput> inputs;
    for (const auto& given : c.sensors) {
      auto sensor = std::make_shared<HWSensorEntity>();
      sensor->setKey(given.key);
      if (given.type >= 0) sensor->setCategory(categories[static_cast<std::size_t>(given.type)]);
      sensor->setValue(given.value);
      sensor->setMinValue(given.minLimit);
      sensor->setMaxValue(given.maxLimit);
      sensor->setRecordedMinValue(given.recordedMin);
      sensor->setRecordedMaxValue(given.recordedMax);
      inputs.push_back({sensor, given.history, "", given.host});
    }
    std::vector<std::string> shown;
    for (const auto& row : buildRows(inputs, kNow, c.sparkWidth)) {
      shown.push_back(row.kind != Row::Kind::kSensor
                          ? (row.kind == Row::Kind::kGroup ? "## " : "# ") + row.name
                          : row.key + " " + row.value + " " + row.status + " " + row.minimum + " " + row.maximum + " " +
                                row.fanMode + row.sparkline);
    }
    EXPECT_EQ(shown, c.expected) << c.label;
  }
}

TEST(CpuPanelPieces, SharesNeverLeaveZeroToOneHundred) {
  // Share; its text; a four-cell bar in ASCII levels (eighths: full "#", partial by level).
  const std::tuple<double, std::string, std::string> cases[] = {
      {0.0, "0.0%", "    "},      {0.5, "50.0%", "##  "},  {0.25 + 1.0 / 32, "28.1%", "#_  "},
      {1.0, "100.0%", "####"},    {1.7, "100.0%", "####"}, {-0.2, "0.0%", "    "},
      {kNaN, "-", "    "},        {kInf, "100.0%", "####"}};
  for (const auto& [share, text, bar] : cases) {
    EXPECT_EQ((std::pair{shareText(share), shareBar(share, 4, kAsciiLevels)}), (std::pair{text, bar})) << share;
  }
}

TEST(CpuPanelPieces, MinuteSeriesAveragesEachSliceOfTheLastMinute) {
  const double now = 1000;
  const auto item = [](double time, double total) {
    HWCPULoadInfoItem made{time, {}};
    made.loadInfo.totalUsage = total;
    return made;
  };
  // Six 10 s slices; 61 s old and future readings fall outside; the newest slice averages two.
  const std::vector<HWCPULoadInfoItem> items = {item(939, 0.9), item(941, 0.2), item(975, 0.5),
                                                item(995, 0.25), item(999, 0.75), item(1001, 1.0)};
  EXPECT_EQ(gapsAsMinusOne(minuteSeries(items, now, 6)), gapsAsMinusOne({0.2, kNaN, kNaN, 0.5, kNaN, 0.5}));
  EXPECT_EQ(levelLine({0.0, kNaN, 0.5, 1.0, 3.0}, kAsciiLevels), "_ =##") << "a fixed 0..1 scale";
}

TEST(CpuPanel, ShowsTotalsSeriesCoresAndProcesses) {
  HWCPULoadInfo load;
  load.totalUsage = 0.5;
  load.userLoad = 0.3;
  load.systemLoad = 0.2;
  load.idleLoad = 0.5;
  load.usagePerCore = std::make_shared<const std::vector<HWCPUCoreUsage>>(
      std::vector<HWCPUCoreUsage>{{0.25, {0, "cpu0", 1}}, {1.0, {1, "cpu1", 2}}});
  load.usageECores = 0.25;
  load.usagePCores = 0.75;
  CpuInput input;
  input.load = load;
  input.averages = HWLoadAverages{1.5, 1.25, 1.0};
  input.cores = {{0, "cpu0", 1}, {1, "cpu1", 2}};
  input.processes = {{312, "mds_stores", std::nullopt, 12.5}, {7, "a\x1b[2Jb", std::nullopt, 3}, {9, "x", {}, 1}};
  input.series = {{995, load}};
  std::vector<std::string> shown;
  for (const auto& line : cpuPanel(input, 1000, 60, 2, kAsciiLevels)) shown.push_back((line.heading ? "# " : "") + line.text);
  EXPECT_EQ(shown, (std::vector<std::string>{
                       "# CPU  total 50.0%  user 30.0%  system 20.0%  idle 50.0%  load averages 1.50 1.25 1.00",
                       "  last minute " + std::string(42, ' ') + "=   ",  // 46 slices; 5 s old is in the 43rd
                       "  E0   |##      | 25.0%  P1   |########|100.0%",
                       "  efficiency cores 25.0%  performance cores 75.0%",
                       "#      PID    %CPU  COMMAND",
                       "     312    12.5  mds_stores",
                       "       7     3.0  a?[2Jb"}));

  input.recorded = false;
  EXPECT_EQ(cpuPanel(input, 1000, 60, 2).size(), 1u) << "a machine without ticks says so and shows nothing else";
}

}  // namespace
}  // namespace corvane::cli::live
