#include "corvane/settings/settings_data_store.h"

#include <gtest/gtest.h>

#include "settings/announcement_fixture.h"

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/monitor_timer.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/settings/theme_manager.h"
#include "corvane/util/colors.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/strings.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using nlohmann::json;
using Received = std::vector<std::pair<std::string, json>>;

class FixedSensorKeys : public LoggedSensorKeysSource {
 public:
  explicit FixedSensorKeys(std::vector<std::string> keys) : keys_(std::move(keys)) {}
  std::vector<std::string> visibleSensorKeys() override { return keys_; }

 private:
  std::vector<std::string> keys_;
};

class SettingsTest : public testing::AnnouncementTest {
 protected:
  SettingsTest() : AnnouncementTest(1'700'000'000) {}
  void TearDown() override {
    AnnouncementTest::TearDown();
    settings::uninstallHooks();
  }

  std::shared_ptr<HWSettingsDataStore> makeStore(std::vector<std::string> visible = {},
                                                 std::string preferred = "en") {
    return HWSettingsDataStore::create(std::make_shared<HWPrefData>(),
                                       std::make_shared<FixedSensorKeys>(std::move(visible)),
                                       [preferred] { return preferred; });
  }
  platform::DefaultsSuite& suite() { return platform::current().service<platform::DefaultsSuite>(); }
};

// --- Every default of this store's keys, read through the store, matches the key table.

struct DefaultCase {
  const char* key;
  std::function<json(HWSettingsDataStore&)> read;
};
void PrintTo(const DefaultCase& c, std::ostream* os) { *os << c.key; }

class SettingsDefaults : public SettingsTest, public ::testing::WithParamInterface<DefaultCase> {};

TEST_P(SettingsDefaults, AFreshSuiteReadsTheTableDefault) {
  auto store = makeStore();
  const auto* row = settings::findSettingKey(GetParam().key);
  ASSERT_NE(row, nullptr);
  ASSERT_FALSE(row->defaultJson.empty());
  EXPECT_EQ(GetParam().read(*store), json::parse(row->defaultJson));
  EXPECT_TRUE(suite().keys().empty()) << "reading a default writes nothing";
}

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsDefaults,
    ::testing::Values(
        DefaultCase{"HWOpenAtLogin", [](HWSettingsDataStore& s) { return json(s.openAtLogin()); }},
        DefaultCase{"HWUpdateFrequencyKey", [](HWSettingsDataStore& s) { return json(s.updateFrequency()); }},
        DefaultCase{"HWGraphTimeRangeKey", [](HWSettingsDataStore& s) { return json(s.graphTimeRange()); }},
        DefaultCase{"HWSyncStartTime", [](HWSettingsDataStore& s) { return json(s.syncStartTime()); }},
        DefaultCase{"HWFileLoggingEnabledKey", [](HWSettingsDataStore& s) { return json(s.fileLoggingEnabled()); }},
        DefaultCase{"HWFileLoggingResetModeKey",
                    [](HWSettingsDataStore& s) { return json(s.fileLoggingResetMode()); }},
        DefaultCase{"HWReaderTimerStart_sensor",
                    [](HWSettingsDataStore& s) { return json(s.getStartTimeOfReaderTimer("sensor")); }}),
    [](const auto& info) { return std::string(info.param.key); });

TEST_F(SettingsTest, AFreshSuiteHasTheFastestIntervalAndTheDocumentsLogPath) {
  auto store = makeStore();
  EXPECT_EQ(store->updateInterval(), 2);
  EXPECT_EQ(store->fileLoggingPath(), files::documentsPath() + "/Corvane_Log.csv");
  EXPECT_EQ(store->currentLocaleCode(), "") << "meaningful only once the language was read";
  EXPECT_FALSE(suite().get("HWFileLoggingPathKey").has_value()) << "the default path is not written back";
  store->setFileLoggingPath("/var/log/mine.csv");
  EXPECT_EQ(store->fileLoggingPath(), "/var/log/mine.csv");
}

// --- Every setter: what it stores and what it announces (the key table's notification or none).

struct WriteCase {
  const char* label;
  std::function<void(HWSettingsDataStore&)> write;
  std::string key;
  std::optional<json> stored;  // nothing: the key is removed
  bool announced;
};
void PrintTo(const WriteCase& c, std::ostream* os) { *os << c.label; }

class SettingsWrites : public SettingsTest, public ::testing::WithParamInterface<WriteCase> {};

TEST_P(SettingsWrites, StoreAtOnceAndAnnounceAsTheKeyTableSays) {
  const auto& c = GetParam();
  auto store = makeStore();
  store->prefData()->setObject(json("something before"), c.key);
  c.write(*store);
  EXPECT_EQ(suite().get(c.key), c.stored);
  clock_->runUntilIdle();

  const auto* row = settings::findSettingKey(c.key);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(c.announced, !row->notification.empty());
  if (!c.announced) {
    EXPECT_TRUE(received_.empty());
    return;
  }
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].first, row->notification);
  json expected = {{"appMode", 0}};
  if (c.stored) expected[c.key] = *c.stored;
  EXPECT_EQ(received_[0].second, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsWrites,
    ::testing::Values(
        WriteCase{"openAtLogin", [](auto& s) { s.setOpenAtLogin(true); }, "HWOpenAtLogin", json(true), false},
        WriteCase{"updateFrequency", [](auto& s) { s.setUpdateFrequency(1); }, "HWUpdateFrequencyKey", json(1), true},
        WriteCase{"graphTimeRange", [](auto& s) { s.setGraphTimeRange(2); }, "HWGraphTimeRangeKey", json(2), false},
        WriteCase{"syncStartTime", [](auto& s) { s.setSyncStartTime(-5); }, "HWSyncStartTime", json(-5), false},
        WriteCase{"currentLanguage", [](auto& s) { s.setCurrentLanguage("de"); }, "CURRENT_LANGUAGE_KEY", json("de"),
                  true},
        WriteCase{"fileLoggingEnabled", [](auto& s) { s.setFileLoggingEnabled(true); }, "HWFileLoggingEnabledKey",
                  json(true), false},
        WriteCase{"fileLoggingPath", [](auto& s) { s.setFileLoggingPath("/tmp/l.csv"); }, "HWFileLoggingPathKey",
                  json("/tmp/l.csv"), false},
        WriteCase{"fileLoggingPathRemoved", [](auto& s) { s.setFileLoggingPath(std::nullopt); },
                  "HWFileLoggingPathKey", std::nullopt, false},
        WriteCase{"fileLoggingSensorKeys", [](auto& s) { s.setFileLoggingSensorKeys({{"TC0P", "F0Ac"}}); },
                  "HWFileLoggingSensorsKey", json::array({"TC0P", "F0Ac"}), true},
        WriteCase{"fileLoggingSensorKeysRemoved", [](auto& s) { s.setFileLoggingSensorKeys(std::nullopt); },
                  "HWFileLoggingSensorsKey", std::nullopt, true},
        WriteCase{"fileLoggingResetMode", [](auto& s) { s.setFileLoggingResetMode(3); }, "HWFileLoggingResetModeKey",
                  json(3), false},
        WriteCase{"readerTimerStart", [](auto& s) { s.setStartTime(12.5, "cpu_load"); }, "HWReaderTimerStart_cpu_load",
                  json(12.5), false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(SettingsTest, StoredValuesComeBackThroughTheAccessors) {
  auto store = makeStore();
  store->setOpenAtLogin(true);
  store->setGraphTimeRange(2);
  store->setSyncStartTime(1'699'999'990);
  store->setFileLoggingEnabled(true);
  store->setFileLoggingResetMode(1);
  store->setStartTime(0.25, "sensor");
  EXPECT_TRUE(store->openAtLogin());
  EXPECT_EQ(store->graphTimeRange(), 2u);
  EXPECT_EQ(store->syncStartTime(), 1'699'999'990);
  EXPECT_TRUE(store->fileLoggingEnabled());
  EXPECT_EQ(store->fileLoggingResetMode(), 1u);
  EXPECT_DOUBLE_EQ(store->getStartTimeOfReaderTimer("sensor"), 0.25);
  EXPECT_EQ(suite().get("HWReaderTimerStart_sensor"), json(0.25));
}

TEST_F(SettingsTest, ClearDataRemovesTheLogSettingsAndAnnouncesOnlyTheSensors) {
  auto store = makeStore();
  store->setFileLoggingPath("/tmp/l.csv");
  store->prefData()->setObject(json::array({"TC0P"}), "HWFileLoggingSensorsKey");
  store->setUpdateFrequency(2);
  clock_->runUntilIdle();
  received_.clear();

  store->clearData();
  clock_->runUntilIdle();
  EXPECT_FALSE(suite().get("HWFileLoggingPathKey").has_value());
  EXPECT_FALSE(suite().get("HWFileLoggingSensorsKey").has_value());
  EXPECT_EQ(store->updateFrequency(), 2u) << "other settings stay";
  EXPECT_EQ(received_, (Received{{"HWFileLoggingSensorKeysDidChangeNotification", {{"appMode", 0}}}}));
}

// --- Update interval.

struct IntervalCase {
  json stored;
  std::int64_t interval;
};

class UpdateInterval : public SettingsTest, public ::testing::WithParamInterface<IntervalCase> {};

TEST_P(UpdateInterval, FollowsTheStoredFrequency) {
  auto store = makeStore();
  suite().set("HWUpdateFrequencyKey", GetParam().stored);
  EXPECT_EQ(store->updateInterval(), GetParam().interval);
}

INSTANTIATE_TEST_SUITE_P(Table, UpdateInterval,
                         ::testing::Values(IntervalCase{json(0), 2}, IntervalCase{json(1), 5}, IntervalCase{json(2), 10},
                                           IntervalCase{json(7), 2}, IntervalCase{json(-1), 2},
                                           IntervalCase{json("2"), 10}, IntervalCase{json(true), 5},
                                           IntervalCase{json(1.9), 5}, IntervalCase{json("fast"), 2},
                                           IntervalCase{json::array({2}), 2}));

// --- Language.

struct LanguageCase {
  const char* label;
  std::string preferred;
  std::optional<json> stored;
  std::string language;
  std::string localeCode;
};
void PrintTo(const LanguageCase& c, std::ostream* os) { *os << c.label; }

class CurrentLanguage : public SettingsTest, public ::testing::WithParamInterface<LanguageCase> {};

TEST_P(CurrentLanguage, ResolvesCachesAndStoresSilently) {
  const auto& c = GetParam();
  if (c.stored) suite().set("CURRENT_LANGUAGE_KEY", *c.stored);
  auto store = makeStore({}, c.preferred);
  EXPECT_EQ(store->currentLanguage(), c.language);
  EXPECT_EQ(store->currentLocaleCode(), c.localeCode);
  EXPECT_EQ(suite().get("CURRENT_LANGUAGE_KEY"), json(c.language));
  // Cached: a change written by someone else is not seen by this store.
  suite().set("CURRENT_LANGUAGE_KEY", "tr");
  EXPECT_EQ(store->currentLanguage(), c.language);
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, CurrentLanguage,
    ::testing::Values(LanguageCase{"portugal", "pt-PT", std::nullopt, "pt-PT", "pt_PT"},
                      LanguageCase{"brazil_is_not_offered", "pt-BR", std::nullopt, "en", "en"},
                      LanguageCase{"simplified", "zh-Hans", std::nullopt, "zh-Hans", "zh_CN"},
                      LanguageCase{"traditional", "zh-Hant", std::nullopt, "zh-Hant", "zh_TW"},
                      LanguageCase{"german", "de", std::nullopt, "de", "de"},
                      LanguageCase{"nothing_preferred", "", std::nullopt, "en", "en"},
                      LanguageCase{"case_matters", "DE", std::nullopt, "en", "en"},
                      LanguageCase{"stored_wins", "de", json("ko"), "ko", "ko"},
                      LanguageCase{"stored_non_string_is_ignored", "it", json(5), "it", "it"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(SettingsTest, SettingTheLanguageToItsPresentValuePostsNothing) {
  auto store = makeStore({}, "fr");
  ASSERT_EQ(store->currentLanguage(), "fr");
  store->setCurrentLanguage("fr");
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty());
  store->setCurrentLanguage("zh-Hant");
  clock_->runUntilIdle();
  EXPECT_EQ(receivedNames(), (std::vector<std::string>{"HWLanguageDidChangeNotification"}));
  EXPECT_EQ(store->currentLanguage(), "zh-Hant");
  EXPECT_EQ(store->currentLocaleCode(), "zh_TW");
}

TEST(Languages, TheTwelveCodesInOrder) {
  EXPECT_EQ(settings::allLanguageCodes(), (std::vector<std::string>{"en", "vi", "zh-Hans", "zh-Hant", "fr", "de", "it",
                                                                    "ja", "ko", "pt-PT", "es", "tr"}));
}

struct LocaleCase {
  const char* locale;
  const char* localization;
};

class LocaleNames : public ::testing::TestWithParam<LocaleCase> {};

TEST_P(LocaleNames, MapToTheProductsCodes) {
  EXPECT_EQ(settings::localizationFromLocaleName(GetParam().locale), GetParam().localization);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LocaleNames,
    ::testing::Values(LocaleCase{"pt_PT.UTF-8", "pt-PT"}, LocaleCase{"pt_BR.UTF-8", "pt-BR"}, LocaleCase{"pt", "pt"},
                      LocaleCase{"zh_CN", "zh-Hans"}, LocaleCase{"zh_CN.GB18030", "zh-Hans"},
                      LocaleCase{"zh_SG.UTF-8", "zh-Hans"}, LocaleCase{"zh_TW", "zh-Hant"},
                      LocaleCase{"zh_HK.UTF-8", "zh-Hant"}, LocaleCase{"zh", "zh-Hans"}, LocaleCase{"en_US", "en"},
                      LocaleCase{"en_GB.UTF-8", "en"}, LocaleCase{"de_DE@euro", "de"}, LocaleCase{"fr_CA.UTF-8", "fr"},
                      LocaleCase{"tr_TR.ISO-8859-9", "tr"}, LocaleCase{"C", ""}, LocaleCase{"C.UTF-8", ""},
                      LocaleCase{"POSIX", ""}, LocaleCase{"", ""}));

struct EnvironmentCase {
  const char* lcAll;
  const char* lcMessages;
  const char* lang;
  const char* localization;
};

class LocaleEnvironment : public ::testing::TestWithParam<EnvironmentCase> {};

TEST_P(LocaleEnvironment, TakesTheFirstSetOfLcAllLcMessagesLang) {
  const auto& c = GetParam();
  auto getenv = [&c](const char* name) -> const char* {
    if (std::string_view(name) == "LC_ALL") return c.lcAll;
    if (std::string_view(name) == "LC_MESSAGES") return c.lcMessages;
    if (std::string_view(name) == "LANG") return c.lang;
    return nullptr;
  };
  EXPECT_EQ(settings::preferredLocalizationFromEnvironment(getenv), c.localization);
}

INSTANTIATE_TEST_SUITE_P(Table, LocaleEnvironment,
                         ::testing::Values(EnvironmentCase{nullptr, nullptr, "pt_PT.UTF-8", "pt-PT"},
                                           EnvironmentCase{nullptr, "ja_JP.UTF-8", "pt_PT.UTF-8", "ja"},
                                           EnvironmentCase{"ko_KR", "ja_JP", "pt_PT", "ko"},
                                           EnvironmentCase{"", "", "vi_VN", "vi"},
                                           EnvironmentCase{nullptr, nullptr, nullptr, ""}));

// --- Logged sensors.

TEST_F(SettingsTest, TheFirstReadOfLoggedSensorsStoresTheDefaultButReturnsNil) {
  auto store = makeStore({"TC0P", "TG0P", "F0Ac"});
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_EQ(suite().get("HWFileLoggingSensorsKey"), json::array({"TC0P", "TG0P", "F0Ac"}));
  EXPECT_EQ(store->fileLoggingSensorKeys(), (std::vector<std::string>{"TC0P", "TG0P", "F0Ac"}));
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty()) << "the default is stored silently";
}

TEST_F(SettingsTest, NoVisibleSensorsOrNoSourceStoresNothing) {
  auto store = makeStore({});
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  auto sourceless = HWSettingsDataStore::create(std::make_shared<HWPrefData>(), nullptr, [] { return "en"; });
  EXPECT_EQ(sourceless->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_FALSE(suite().get("HWFileLoggingSensorsKey").has_value());
}

TEST_F(SettingsTest, AWrongTypedLoggedSensorListReadsAsNilOrItsStringsNeverACrash) {
  auto store = makeStore({"TC0P"});
  suite().set("HWFileLoggingSensorsKey", "TC0P");
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_EQ(suite().get("HWFileLoggingSensorsKey"), json("TC0P")) << "not overwritten";
  suite().set("HWFileLoggingSensorsKey", json::array({"TC0P", 5, json::array({"x"}), "F0Ac"}));
  EXPECT_EQ(store->fileLoggingSensorKeys(), (std::vector<std::string>{"TC0P", "F0Ac"}));
}

TEST_F(SettingsTest, WrongTypedValuesReadAsZeroNoOrTheDefault) {
  auto store = makeStore();
  suite().set("HWOpenAtLogin", "maybe");
  suite().set("HWUpdateFrequencyKey", json::object());
  suite().set("HWSyncStartTime", "soon");
  suite().set("HWFileLoggingPathKey", json::array({"/tmp"}));
  suite().set("HWReaderTimerStart_cpu", json::array());
  EXPECT_FALSE(store->openAtLogin());
  EXPECT_EQ(store->updateFrequency(), 0u);
  EXPECT_EQ(store->updateInterval(), 2);
  EXPECT_EQ(store->syncStartTime(), 0);
  EXPECT_EQ(store->fileLoggingPath(), files::documentsPath() + "/Corvane_Log.csv");
  EXPECT_EQ(store->getStartTimeOfReaderTimer("cpu"), 0.0);
}

// --- Delegates, driven by the global notifications of any writer.

class RecordingDelegate : public HWSettingsDataStoreDelegate {
 public:
  void settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) override { intervals.push_back(interval); }
  void settingsDataStoreFileLoggingSensorKeysDidChange(const std::optional<std::vector<std::string>>& keys) override {
    sensorKeys.push_back(keys);
  }
  std::vector<std::int64_t> intervals;
  std::vector<std::optional<std::vector<std::string>>> sensorKeys;
};

class NotASettingsDelegate : public HWDataStoreDelegate {};

TEST_F(SettingsTest, DelegatesHearChangesMadeByAnyWriter) {
  auto store = makeStore();
  auto other = makeStore();  // another writer on the same suite and centre
  auto first = std::make_shared<RecordingDelegate>();
  auto second = std::make_shared<RecordingDelegate>();
  store->addDelegate(first);
  store->addDelegate(std::make_shared<NotASettingsDelegate>());  // gone at once; and not a settings delegate
  store->addDelegate(second);
  auto bystander = std::make_shared<NotASettingsDelegate>();
  store->addDelegate(bystander);

  other->setUpdateFrequency(2);
  other->setFileLoggingSensorKeys(std::vector<std::string>{"TC0P"});
  clock_->runUntilIdle();
  EXPECT_EQ(first->intervals, std::vector<std::int64_t>{10});
  EXPECT_EQ(second->intervals, std::vector<std::int64_t>{10});
  ASSERT_EQ(first->sensorKeys.size(), 1u);
  EXPECT_EQ(first->sensorKeys[0], (std::vector<std::string>{"TC0P"}));

  // Someone else's notification of the same name also triggers a fresh read.
  suite().set("HWUpdateFrequencyKey", 1);
  platform::current().service<platform::GlobalNotifications>().post("HWUpdateFrequencyDidChangeNotification", {});
  second.reset();
  clock_->runUntilIdle();
  EXPECT_EQ(first->intervals, (std::vector<std::int64_t>{10, 5}));
}

TEST_F(SettingsTest, AGoneStoreIgnoresLaterNotifications) {
  auto store = makeStore();
  auto delegate = std::make_shared<RecordingDelegate>();
  store->addDelegate(delegate);
  store->setUpdateFrequency(1);
  store.reset();
  clock_->runUntilIdle();
  EXPECT_TRUE(delegate->intervals.empty());
}

// --- Hooks of the lower layers.

TEST_F(SettingsTest, InstalledHooksReadTheStoreUntilItGoes) {
  // A language the product has no texts for: localised texts then come back empty.
  suite().set("CURRENT_LANGUAGE_KEY", "xx-untranslated");
  auto store = makeStore();
  store->setSyncStartTime(1'700'000'060);
  ASSERT_EQ(strings::localizedStringForKey("corvane.test.missing"), "corvane.test.missing");
  settings::installHooks(store);
  EXPECT_EQ(syncStartTime(), 1'700'000'060);
  EXPECT_EQ(strings::localizedStringForKey("corvane.test.missing"), "");
  EXPECT_FALSE(colors::isDarkMode());
  suite().set("AppleInterfaceStyle", "Dark");
  EXPECT_TRUE(colors::isDarkMode());

  store.reset();
  EXPECT_EQ(syncStartTime(), 0);
  EXPECT_EQ(strings::localizedStringForKey("corvane.test.missing"), "corvane.test.missing");
}

// --- Theme.

struct DarkCase {
  std::optional<json> style;
  bool dark;
};

class DarkMode : public SettingsTest, public ::testing::WithParamInterface<DarkCase> {};

TEST_P(DarkMode, OnlyTheStringDarkIsDark) {
  if (GetParam().style) suite().set("AppleInterfaceStyle", *GetParam().style);
  EXPECT_EQ(HWThemeManager::isDarkMode(), GetParam().dark);
}

INSTANTIATE_TEST_SUITE_P(Table, DarkMode,
                         ::testing::Values(DarkCase{json("Dark"), true}, DarkCase{std::nullopt, false},
                                           DarkCase{json("Light"), false}, DarkCase{json("dark"), false},
                                           DarkCase{json(1), false}, DarkCase{json::array({"Dark"}), false}));

TEST_F(SettingsTest, ObserversRunLaterOnTheMainQueueAndADroppedTokenStopsCallsAlreadyQueued) {
  Received kept, dropped;
  auto record = [](Received& into) {
    return [&into](const std::string& name, const json& info) { into.emplace_back(name, info); };
  };
  auto keep = HWNotificationUtils::addObserver("A", record(kept));
  auto drop = HWNotificationUtils::addObserver(std::nullopt, record(dropped));
  platform::current().service<platform::GlobalNotifications>().post("A", {{"k", 1}});
  EXPECT_TRUE(kept.empty()) << "observers run on the main queue, not inside post";
  drop.reset();
  clock_->runUntilIdle();
  EXPECT_EQ(kept, (Received{{"A", {{"k", 1}}}}));
  EXPECT_TRUE(dropped.empty());
}

TEST_F(SettingsTest, TheThemeManagerReannouncesTheSystemsThemeChange) {
  HWNotificationUtils::setAppModeProvider([] { return std::uint64_t{2}; });
  HWThemeManager theme;
  platform::current().service<platform::GlobalNotifications>().post("AppleInterfaceThemeChangedNotification", {});
  clock_->runUntilIdle();
  HWNotificationUtils::setAppModeProvider(nullptr);
  EXPECT_EQ(received_, (Received{{"AppleInterfaceThemeChangedNotification", json::object()},
                                 {"HWThemeDidChangeNotification", {{"appMode", 2}}}}));
}

}  // namespace
}  // namespace corvane
