#include "corvane/settings/pref_data.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "settings/announcement_fixture.h"

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using nlohmann::json;

struct TypedCase {
  const char* label;
  std::optional<json> stored;
  std::int64_t integer;
  double number;
  bool flag;
  std::optional<std::string> text;
};

void PrintTo(const TypedCase& c, std::ostream* os) { *os << c.label; }

class TypedReads : public ::testing::TestWithParam<TypedCase> {};

TEST_P(TypedReads, CoerceAsThePlatformSuiteDoes) {
  const auto& c = GetParam();
  EXPECT_EQ(prefs::integerValue(c.stored), c.integer);
  EXPECT_DOUBLE_EQ(prefs::doubleValue(c.stored), c.number);
  EXPECT_EQ(prefs::boolValue(c.stored), c.flag);
  EXPECT_EQ(prefs::stringValue(c.stored), c.text);
}

constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
constexpr auto kMin = std::numeric_limits<std::int64_t>::min();

INSTANTIATE_TEST_SUITE_P(
    Table, TypedReads,
    ::testing::Values(
        TypedCase{"absent", std::nullopt, 0, 0.0, false, std::nullopt},
        TypedCase{"unsigned", json(7u), 7, 7.0, true, "7"},
        TypedCase{"zero", json(0), 0, 0.0, false, "0"},
        TypedCase{"negative", json(-3), -3, -3.0, true, "-3"},
        TypedCase{"huge unsigned saturates", json(std::uint64_t{18446744073709551615u}), kMax, 18446744073709551615.0,
                  true, "18446744073709551615"},
        TypedCase{"double truncates", json(2.7), 2, 2.7, true, "2.7"},
        TypedCase{"negative double truncates toward zero", json(-2.7), -2, -2.7, true, "-2.7"},
        TypedCase{"whole double prints as integer", json(2.0), 2, 2.0, true, "2"},
        TypedCase{"small double is true", json(0.25), 0, 0.25, true, "0.25"},
        TypedCase{"double beyond int64 saturates", json(1e300), kMax, 1e300, true, "1e+300"},
        TypedCase{"double below int64 saturates", json(-1e300), kMin, -1e300, true, "-1e+300"},
        TypedCase{"true", json(true), 1, 1.0, true, "1"},
        TypedCase{"false", json(false), 0, 0.0, false, "0"},
        TypedCase{"numeric string", json("42"), 42, 42.0, true, "42"},
        TypedCase{"numeric string with blanks and sign", json(" +5 "), 5, 5.0, true, " +5 "},
        TypedCase{"negative fraction string", json("-3.5"), -3, -3.5, true, "-3.5"},
        TypedCase{"exponent string", json("1e3"), 1000, 1000.0, true, "1e3"},
        TypedCase{"big integer string keeps its digits", json("9007199254740993"), 9007199254740993, 9007199254740993.0,
                  true, "9007199254740993"},
        TypedCase{"integer string beyond int64", json("-99999999999999999999"), kMin, -99999999999999999999.0, true,
                  "-99999999999999999999"},
        TypedCase{"zero string", json("0"), 0, 0.0, false, "0"},
        TypedCase{"YES", json("YES"), 0, 0.0, true, "YES"},
        TypedCase{"true string", json("True"), 0, 0.0, true, "True"},
        TypedCase{"NO", json("no"), 0, 0.0, false, "no"},
        TypedCase{"text", json("Dark"), 0, 0.0, false, "Dark"},
        TypedCase{"digits then text", json("12abc"), 0, 0.0, false, "12abc"},
        TypedCase{"hex is not a number", json("0x10"), 0, 0.0, false, "0x10"},
        TypedCase{"nan string", json("nan"), 0, 0.0, false, "nan"},
        TypedCase{"empty string", json(""), 0, 0.0, false, ""},
        TypedCase{"array", json::array({1}), 0, 0.0, false, std::nullopt},
        TypedCase{"dictionary", json{{"a", 1}}, 0, 0.0, false, std::nullopt}),
    [](const auto& info) {
      std::string name = info.param.label;
      for (auto& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      }
      return name;
    });

TEST(HWPrefData, ObjectForKeyWithDefaultAndRemoval) {
  HWPrefData prefs(platform::DefaultsSuite::inMemory());
  EXPECT_EQ(prefs.objectForKey("k", json("fallback")), json("fallback"));
  prefs.setObject(json::array({"a"}), "k");
  EXPECT_EQ(prefs.objectForKey("k"), json::array({"a"}));
  EXPECT_EQ(prefs.objectForKey("k", json("fallback")), json::array({"a"}));
  prefs.setObject(std::nullopt, "k");
  EXPECT_FALSE(prefs.objectForKey("k").has_value());
  prefs.setObject(json(nullptr), "k2");
  EXPECT_TRUE(prefs.userDefaults().keys().empty());
}

class Broadcasts : public testing::AnnouncementTest {
 protected:
  void TearDown() override {
    HWNotificationUtils::setAppModeProvider(nullptr);
    AnnouncementTest::TearDown();
  }
};

TEST_F(Broadcasts, AWriteIsStoredAtOnceAndAnnouncedLaterWithKeyValueAndAppMode) {
  HWPrefData prefs;
  HWNotificationUtils::setAppModeProvider([] { return std::uint64_t{1}; });
  prefs.setObject(json(2), "HWUpdateFrequencyKey", "HWUpdateFrequencyDidChangeNotification");
  EXPECT_EQ(prefs.integerForKey("HWUpdateFrequencyKey"), 2);
  EXPECT_TRUE(received_.empty()) << "posted asynchronously from the main queue";
  clock_->runUntilIdle();
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].first, "HWUpdateFrequencyDidChangeNotification");
  EXPECT_EQ(received_[0].second, (json{{"HWUpdateFrequencyKey", 2}, {"appMode", 1}}));
  EXPECT_TRUE(received_[0].second["appMode"].is_number_unsigned());
}

TEST_F(Broadcasts, ARemovalIsAnnouncedWithOnlyTheAppMode) {
  HWPrefData prefs;
  prefs.setObject(json::array({"TC0P"}), "HWFileLoggingSensorsKey");
  prefs.setObject(std::nullopt, "HWFileLoggingSensorsKey", "HWFileLoggingSensorKeysDidChangeNotification");
  clock_->runUntilIdle();
  EXPECT_FALSE(prefs.objectForKey("HWFileLoggingSensorsKey").has_value());
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].second, (json{{"appMode", 0}}));
}

TEST_F(Broadcasts, NoBroadcastNamePostsNothing) {
  HWPrefData prefs;
  prefs.setObject(json(true), "HWOpenAtLogin", std::nullopt);
  prefs.setObject(json(true), "HWOpenAtLogin");
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty());
}

TEST_F(Broadcasts, PostedUserInfoIsCopiedAndAppModeOverridesAStaleOne) {
  json info = {{"k", "v"}, {"appMode", 99}};
  HWNotificationUtils::setAppModeProvider([] { return std::uint64_t{3}; });
  HWNotificationUtils::postGlobalNotification("N", info);
  info["k"] = "changed after posting";
  HWNotificationUtils::postGlobalNotification("M", json::array({1}));
  HWNotificationUtils::postGlobalNotification("O");
  clock_->runUntilIdle();
  ASSERT_EQ(received_.size(), 3u);
  EXPECT_EQ(received_[0].second, (json{{"k", "v"}, {"appMode", 3}}));
  EXPECT_EQ(received_[1].second, (json{{"appMode", 3}}));
  EXPECT_EQ(received_[2].second, (json{{"appMode", 3}}));
}

}  // namespace
}  // namespace corvane
