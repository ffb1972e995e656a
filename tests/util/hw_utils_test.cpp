#include "corvane/util/hw_utils.h"

#include <ctime>
#include <fstream>

#include <gtest/gtest.h>

#include "corvane/platform/displays.h"
#include "corvane/platform/platform.h"
#include "platform/displays_backends.h"
#include "support/test_support.h"
#include "util/hw_utils.h"

namespace corvane {
namespace {

dates::Date localNoon(int year, int month, int day) {
  std::tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = 12;
  parts.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

// ---- axis labels ----

struct AxisCase {
  unsigned long timeRange;
  double step;
  std::vector<std::string> labels;
};

class AxisTest : public ::testing::TestWithParam<AxisCase> {};

TEST_P(AxisTest, LabelsOldestFirstEndingNow) {
  const AxisCase& c = GetParam();
  const dates::Date noon = localNoon(2024, 1, 15);
  const double now = std::chrono::duration<double>(noon.time_since_epoch()).count();
  const auto axis = HWUtils::xAxisWithCurrentDate(noon, c.timeRange);
  ASSERT_EQ(axis.size(), c.labels.size());
  for (std::size_t i = 0; i < axis.size(); ++i) {
    EXPECT_DOUBLE_EQ(axis[i].time, now - static_cast<double>(axis.size() - 1 - i) * c.step) << i;
    EXPECT_EQ(axis[i].label, c.labels[i]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, AxisTest,
    ::testing::Values(
        AxisCase{3, 10, {"11:59:00", "11:59:10", "11:59:20", "11:59:30", "11:59:40", "11:59:50", "12:00:00"}},
        AxisCase{0, 600, {"11:00", "11:10", "11:20", "11:30", "11:40", "11:50", "12:00"}},
        AxisCase{1, 14400, {"12:00", "16:00", "20:00", "00:00", "04:00", "08:00", "12:00"}},
        AxisCase{2, 86400, {"1/08", "1/09", "1/10", "1/11", "1/12", "1/13", "1/14", "1/15"}},
        AxisCase{7, 86400, {"12:00", "12:00", "12:00", "12:00", "12:00", "12:00", "12:00", "12:00"}}));

TEST(Axis, KeepsFractionsOfASecond) {
  const auto date = localNoon(2024, 1, 15) + std::chrono::milliseconds(250);
  const auto axis = HWUtils::xAxisWithCurrentDate(date, 3);
  ASSERT_EQ(axis.size(), 7u);
  EXPECT_DOUBLE_EQ(axis.back().time - axis.front().time, 60.0);
  EXPECT_DOUBLE_EQ(axis.back().time, std::chrono::duration<double>(date.time_since_epoch()).count());
  EXPECT_EQ(axis.back().label, "12:00:00");
}

// ---- JSON ----

TEST(Json, FromStringTakesContainersOnly) {
  EXPECT_EQ(HWUtils::jsonFromString(R"([1, {"a": "b"}])"), nlohmann::json::parse(R"([1, {"a": "b"}])"));
  EXPECT_EQ(HWUtils::jsonFromString(R"({"x": null})"), nlohmann::json::parse(R"({"x": null})"));
  for (const char* bad : {"", "[1,", "3", "\"text\"", "null", "{\"a\": }"}) {
    EXPECT_EQ(HWUtils::jsonFromString(bad), std::nullopt) << bad;
  }
}

TEST(Json, ResourcesLogOnlyTheirFixedLines) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(HWUtils::loadJSONArrayFromFileName("no-such-list"), std::nullopt);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "no-such-list.json not found\n");

  ::testing::internal::CaptureStderr();
  EXPECT_EQ(hw_utils::jsonFromResource("broken", std::string_view("[1, 2")), std::nullopt);
  const std::string logged = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(logged.rfind("Error JSON: ", 0), 0u) << logged;
  EXPECT_EQ(logged.find("json.exception"), std::string::npos) << logged;
  EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 1);

  ::testing::internal::CaptureStderr();
  EXPECT_EQ(hw_utils::jsonFromResource("list", std::string_view(R"([{"a": 1}])")),
            nlohmann::json::parse(R"([{"a": 1}])"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(Json, CompiledInResourceLoads) {
  const auto strings = HWUtils::loadJSONArrayFromFileName("en.strings");
  ASSERT_TRUE(strings.has_value());
  EXPECT_TRUE(strings->is_object());
}

// ---- build numbers ----

TEST(BuildNumber, IntegerValueReadsLikeThePlatform) {
  const std::pair<const char*, long> cases[] = {
      {"512", 512}, {"  42abc", 42}, {"-7", -7},
      {"+3", 3},    {"1.2.3", 1},    {"abc", 0},
      {"", 0},      {"- 5", 0},      {"99999999999999999999999", std::numeric_limits<long>::max()}};
  for (const auto& [text, value] : cases) EXPECT_EQ(hw_utils::integerValue(text), value) << text;
}

void writeInfoPlist(const std::filesystem::path& bundle, const std::string& versionXml) {
  std::filesystem::create_directories(bundle / "Contents");
  std::ofstream(bundle / "Contents" / "Info.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.example</string>"
      << versionXml << "</dict></plist>\n";
}

TEST(BuildNumber, ReadsCFBundleVersionOfTheBundle) {
  testing::TempDir dir;
  writeInfoPlist(dir.path() / "A.app", "<key>CFBundleVersion</key><string>1234</string>");
  writeInfoPlist(dir.path() / "B.app", "<key>CFBundleVersion</key><integer>77</integer>");
  writeInfoPlist(dir.path() / "C.app", "<key>CFBundleShortVersionString</key><string>2.0</string>");
  writeInfoPlist(dir.path() / "D.app", "<key>CFBundleVersion</key><array/>");
  std::filesystem::create_directories(dir.path() / "E.app/Contents");
  std::ofstream(dir.path() / "E.app/Contents/Info.plist") << "not a property list";

  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "A.app").string()), 1234);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "B.app").string()), 77);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "C.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "D.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "E.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath((dir.path() / "Missing.app").string()), 0);
  EXPECT_EQ(HWUtils::appBuildNumberAtPath(""), 0);
}

TEST(BuildNumber, MainBundleIsTheOneAroundTheExecutable) {
  testing::TempDir dir;
  std::string error;
  testing::installMachine(platform::loadBuiltinProfile("MacBookPro16,1", &error), dir.path());
  EXPECT_EQ(HWUtils::appBuildNumber(), 0);
  const auto bundle = hw_utils::bundleOfExecutableDirectory(platform::current().files().mainExecutableDirectory());
  ASSERT_FALSE(bundle.empty());
  writeInfoPlist(bundle, "<key>CFBundleVersion</key><string>2048</string>");
  EXPECT_EQ(HWUtils::appBuildNumber(), 2048);

  EXPECT_EQ(hw_utils::bundleOfExecutableDirectory("/Applications/X.app/Contents/MacOS/"), "/Applications/X.app");
  EXPECT_EQ(hw_utils::bundleOfExecutableDirectory("/usr/local/bin"), "");
  EXPECT_EQ(hw_utils::bundleOfExecutableDirectory("/x/MacOS"), "");
}

// ---- displays ----

struct DisplayCase {
  const char* label;
  std::vector<platform::Display> displays;
  bool external;
};

class DisplayQuestionsTest : public ::testing::TestWithParam<DisplayCase> {
 protected:
  void SetUp() override {
    std::string error;
    testing::installMachine(platform::loadBuiltinProfile("MacBookPro16,1", &error), dir_.path());
  }
  testing::TempDir dir_;
};

TEST_P(DisplayQuestionsTest, ExternalMeansAnyNotBuiltIn) {
  const DisplayCase& c = GetParam();
  platform::current().provide<platform::Displays>(platform::sim::fixedDisplays(c.displays));
  EXPECT_EQ(HWUtils::isExternalDisplayConnected(), c.external);
  EXPECT_EQ(HWUtils::numOfDisplays(), static_cast<long>(std::min<std::size_t>(c.displays.size(), 32)));
}

std::vector<platform::Display> manyExternal(int count) {
  std::vector<platform::Display> displays;
  for (int i = 0; i < count; ++i) displays.push_back({static_cast<uint32_t>(i + 1), false, {}});
  return displays;
}

INSTANTIATE_TEST_SUITE_P(
    Lists, DisplayQuestionsTest,
    ::testing::Values(DisplayCase{"none", {}, false}, DisplayCase{"built_in_only", {{1, true, "eDP-1"}}, false},
                      DisplayCase{"laptop_and_monitor", {{1, true, "eDP-1"}, {2, false, "HDMI-A-1"}}, true},
                      DisplayCase{"monitor_only", {{5, false, "DP-1"}}, true},
                      DisplayCase{"forty", manyExternal(40), true}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(DisplayDefaults, SimulatedLaptopHasItsPanelOnly) {
  testing::TempDir dir;
  std::string error;
  testing::installMachine(platform::loadBuiltinProfile("MacBookPro16,1", &error), dir.path());
  EXPECT_EQ(HWUtils::numOfDisplays(), 1);
  EXPECT_FALSE(HWUtils::isExternalDisplayConnected());

  testing::installMachine(platform::loadBuiltinProfile("Mac16,10", &error), dir.path());
  EXPECT_EQ(HWUtils::numOfDisplays(), 0);
  EXPECT_FALSE(HWUtils::isExternalDisplayConnected());
}

}  // namespace
}  // namespace corvane
