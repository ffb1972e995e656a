#include "corvane/util/hw_utils.h"

#include <gtest/gtest.h>

#include "corvane/platform/displays.h"
#include "corvane/platform/platform.h"
#include "platform/displays_backends.h"
#include "support/test_support.h"
#include "util/hw_utils.h"

namespace corvane {
namespace {

// ---- axis labels ----

TEST(AxisTest, LabelsOldestFirstEndingNow) {
  struct AxisCase {
    unsigned long timeRange;
    double step;
    std::vector<std::string> labels;
  };

  for (const AxisCase& c : std::initializer_list<AxisCase>{
           {3, 10, {"11:59:00", "11:59:10", "11:59:20", "11:59:30", "11:59:40", "11:59:50", "12:00:00"}},
           {0, 600, {"11:00", "11:10", "11:20", "11:30", "11:40", "11:50", "12:00"}},
           {1, 14400, {"12:00", "16:00", "20:00", "00:00", "04:00", "08:00", "12:00"}},
           {2, 86400, {"1/08", "1/09", "1/10", "1/11", "1/12", "1/13", "1/14", "1/15"}},
           {7, 86400, {"12:00", "12:00", "12:00", "12:00", "12:00", "12:00", "12:00", "12:00"}}}) {
    const dates::Date noon = testing::localTime(2024, 1, 15);
    const double now = std::chrono::duration<double>(noon.time_since_epoch()).count();
    const auto axis = HWUtils::xAxisWithCurrentDate(noon, c.timeRange);
    ASSERT_EQ(axis.size(), c.labels.size());
    // Pruning cuts at the first label without formatting the axis; it must be the same instant.
    EXPECT_EQ(HWUtils::xAxisStartWithCurrentDate(noon, c.timeRange), axis.front().time);
    for (std::size_t i = 0; i < axis.size(); ++i) {
      EXPECT_DOUBLE_EQ(axis[i].time, now - static_cast<double>(axis.size() - 1 - i) * c.step) << i;
      EXPECT_EQ(axis[i].label, c.labels[i]) << i;
    }
  }
}

// ---- JSON ----

TEST(Json, ABrokenResourceLogsOneFixedLine) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(hw_utils::jsonFromResource("broken", std::string_view("[1, 2")), std::nullopt);
  const std::string logged = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(logged.rfind("Error JSON: ", 0), 0u) << logged;
  EXPECT_EQ(logged.find("json.exception"), std::string::npos) << logged;
  EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 1);
}

// ---- build numbers ----

TEST(BuildNumber, IntegerValueReadsLikeThePlatform) {
  const std::pair<const char*, long> cases[] = {
      {"512", 512}, {"  42abc", 42}, {"-7", -7}, {"+3", 3}, {"1.2.3", 1}, {"abc", 0}, {"", 0}, {"- 5", 0},
      // The largest fits; one past it saturates rather than wrapping.
      {"9223372036854775807", std::numeric_limits<long>::max()},
      {"9223372036854775808", std::numeric_limits<long>::max()},
      {"-9223372036854775809", std::numeric_limits<long>::min()}};
  for (const auto& [text, value] : cases) EXPECT_EQ(hw_utils::integerValue(text), value) << text;
}

void writeInfoPlist(const std::filesystem::path& bundle, const std::string& versionXml) {
  testing::writeFile(
      bundle / "Contents" / "Info.plist",
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + versionXml + "</dict></plist>\n");
}

TEST(BuildNumber, ReadsCFBundleVersionOfTheBundle) {
  testing::TempDir dir;
  writeInfoPlist(dir.path() / "A.app", "<key>CFBundleVersion</key><string>1234</string>");
  writeInfoPlist(dir.path() / "B.app", "<key>CFBundleVersion</key><integer>77</integer>");
  writeInfoPlist(dir.path() / "C.app", "<key>CFBundleShortVersionString</key><string>2.0</string>");
  testing::writeFile(dir.path() / "E.app/Contents/Info.plist", "not a property list");

  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "A.app").string()), 1234);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "B.app").string()), 77);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "C.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "E.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "Missing.app").string()), 0);
}

// ---- displays ----

TEST(DisplayQuestionsTest, ExternalMeansAnyNotBuiltInAndASimulatedLaptopHasItsPanelOnly) {
  testing::TempDir dir;
  testing::installMachine(testing::builtinMachine(), dir.path());
  EXPECT_EQ(HWUtils::numOfDisplays(), 1);
  EXPECT_FALSE(HWUtils::isExternalDisplayConnected());
  std::vector<platform::Display> forty;
  for (uint32_t i = 0; i < 40; ++i) forty.push_back({i + 1, false, {}});
  for (const auto& [displays, external] : std::initializer_list<std::pair<std::vector<platform::Display>, bool>>{
           {{}, false},
           {{{1, true, "eDP-1"}}, false},
           {{{1, true, "eDP-1"}, {2, false, "HDMI-A-1"}}, true},
           {forty, true}}) {
    platform::current().provide<platform::Displays>(platform::sim::fixedDisplays(displays));
    EXPECT_EQ(HWUtils::isExternalDisplayConnected(), external) << displays.size();
    EXPECT_EQ(HWUtils::numOfDisplays(), static_cast<long>(std::min<std::size_t>(displays.size(), 32)));
  }
}

}  // namespace
}  // namespace corvane
