#include "corvane/settings/settings_data_store.h"

#include <map>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/monitor_timer.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/util/colors.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/strings.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using nlohmann::json;

class FixedSensorKeys : public LoggedSensorKeysSource {
 public:
  explicit FixedSensorKeys(std::vector<std::string> keys) : keys_(std::move(keys)) {}
  std::vector<std::string> visibleSensorKeys() override { return keys_; }

 private:
  std::vector<std::string> keys_;
};

// A fresh simulated platform (with its own settings file) on the virtual clock, recording every
// global notification it carries.
class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installSimulated(nullptr, dir_.path(), /*announce=*/false);
    clock_ = dispatch::installVirtualTime(1'700'000'000);
    token_ = HWNotificationUtils::addObserver(
        std::nullopt, [this](const std::string& name, const json& info) { received_.emplace_back(name, info); });
  }
  void TearDown() override {
    token_.reset();
    settings::uninstallHooks();
    HWNotificationUtils::setAppModeProvider(nullptr);
  }

  std::shared_ptr<HWSettingsDataStore> makeStore(std::vector<std::string> visible = {}, std::string preferred = "en") {
    return HWSettingsDataStore::create(std::make_shared<HWPrefData>(),
                                       std::make_shared<FixedSensorKeys>(std::move(visible)),
                                       [preferred] { return preferred; });
  }
  platform::DefaultsSuite& suite() { return platform::current().service<platform::DefaultsSuite>(); }

  testing::TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> clock_;
  std::unique_ptr<platform::GlobalNotifications::Token> token_;
  std::vector<std::pair<std::string, json>> received_;
};

// --- Every setter: what it stores and what it announces (the key table's notification or none).

TEST_F(SettingsTest, EverySetterStoresAtOnceAndAnnouncesAsTheKeyTableSays) {
  struct Write {
    std::function<void(HWSettingsDataStore&)> write;
    std::string key;
    std::optional<json> stored;  // nothing: the key is removed
  };
  const Write writes[] = {
      {[](auto& s) { s.setOpenAtLogin(true); }, "HWOpenAtLogin", json(true)},
      {[](auto& s) { s.setUpdateFrequency(1); }, "HWUpdateFrequencyKey", json(1)},
      {[](auto& s) { s.setCurrentLanguage("de"); }, "CURRENT_LANGUAGE_KEY", json("de")},
      {[](auto& s) { s.setFileLoggingPath(std::nullopt); }, "HWFileLoggingPathKey", std::nullopt},
      {[](auto& s) {
         s.setFileLoggingSensorKeys({{"TC0P", "F0Ac"}});
       },
       "HWFileLoggingSensorsKey", json::array({"TC0P", "F0Ac"})},
      {[](auto& s) { s.setFileLoggingSensorKeys(std::nullopt); }, "HWFileLoggingSensorsKey", std::nullopt},
      {[](auto& s) { s.setStartTime(12.5, "cpu_load"); }, "HWReaderTimerStart_cpu_load", json(12.5)}};
  auto store = makeStore();
  for (const auto& c : writes) {
    SCOPED_TRACE(c.key);
    received_.clear();
    store->prefData()->setObject(json("something before"), c.key);
    c.write(*store);
    EXPECT_EQ(suite().get(c.key), c.stored);
    EXPECT_TRUE(received_.empty()) << "announced later, from the main queue";
    clock_->runUntilIdle();
    const auto* row = settings::findSettingKey(c.key);
    ASSERT_NE(row, nullptr);
    json expected = {{"appMode", 0}};
    if (c.stored) expected[c.key] = *c.stored;
    if (row->notification.empty()) {
      EXPECT_TRUE(received_.empty());
    } else {
      EXPECT_EQ(received_, (decltype(received_){{std::string(row->notification), expected}}));
    }
  }
}

TEST_F(SettingsTest, UpdateIntervalFollowsTheStoredFrequency) {
  auto store = makeStore();
  const std::pair<json, std::int64_t> cases[] = {{json(0), 2},    {json(1), 5},   {json(2), 10},        {json(7), 2},
                                                 {json("2"), 10}, {json(1.9), 5}, {json::array({2}), 2}};
  for (const auto& [stored, interval] : cases) {
    suite().set("HWUpdateFrequencyKey", stored);
    EXPECT_EQ(store->updateInterval(), interval) << stored;
  }
}

TEST_F(SettingsTest, CurrentLanguageIsResolvedCachedAndStoredSilently) {
  struct Case {
    std::string preferred;
    std::optional<json> stored;
    std::string language, localeCode;
  };
  for (const auto& c :
       {Case{"pt-PT", std::nullopt, "pt-PT", "pt_PT"}, Case{"zh-Hant", std::nullopt, "zh-Hant", "zh_TW"},
        Case{"pt-BR", std::nullopt, "en", "en"}, Case{"DE", std::nullopt, "en", "en"},
        Case{"de", json("ko"), "ko", "ko"}, Case{"it", json(5), "it", "it"}}) {
    SCOPED_TRACE(c.preferred);
    suite().remove("CURRENT_LANGUAGE_KEY");
    if (c.stored) suite().set("CURRENT_LANGUAGE_KEY", *c.stored);
    auto store = makeStore({}, c.preferred);
    EXPECT_EQ(store->currentLanguage(), c.language);
    EXPECT_EQ(store->currentLocaleCode(), c.localeCode);
    EXPECT_EQ(suite().get("CURRENT_LANGUAGE_KEY"), json(c.language));
    // Cached: a change written by someone else is not seen by this store; its own present value posts nothing.
    suite().set("CURRENT_LANGUAGE_KEY", "tr");
    EXPECT_EQ(store->currentLanguage(), c.language);
    store->setCurrentLanguage(c.language);
  }
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty());
}

TEST(LocaleNames, MapToTheProductsCodes) {
  const std::pair<const char*, const char*> cases[] = {
      {"pt_PT.UTF-8", "pt-PT"}, {"pt", "pt"},   {"zh_SG.UTF-8", "zh-Hans"}, {"zh_HK.UTF-8", "zh-Hant"}, {"EN_US", "en"},
      {"de_DE@euro", "de"},     {"C.UTF-8", ""}};
  for (const auto& [locale, localization] : cases) {
    EXPECT_EQ(settings::localizationFromLocaleName(locale), localization) << locale;
  }
}

TEST(LocaleEnvironment, TakesTheFirstSetOfLcAllLcMessagesLang) {
  const std::map<std::string, const char*> values = {
      {"LC_ALL", ""}, {"LC_MESSAGES", "ja_JP.UTF-8"}, {"LANG", "pt_PT.UTF-8"}};
  auto getenv = [&](const char* name) -> const char* {
    auto found = values.find(name);
    return found == values.end() ? nullptr : found->second;
  };
  EXPECT_EQ(settings::preferredLocalizationFromEnvironment(getenv), "ja");
}

// --- Logged sensors.

TEST_F(SettingsTest, TheFirstReadOfLoggedSensorsStoresTheDefaultButReturnsNil) {
  auto store = makeStore({"TC0P", "TG0P", "F0Ac"});
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_EQ(suite().get("HWFileLoggingSensorsKey"), json::array({"TC0P", "TG0P", "F0Ac"}));
  EXPECT_EQ(store->fileLoggingSensorKeys(), (std::vector<std::string>{"TC0P", "TG0P", "F0Ac"}));
  clock_->runUntilIdle();
  EXPECT_TRUE(received_.empty()) << "the default is stored silently";
  // Wrong types read as nil (not overwritten) or as the strings they hold.
  suite().set("HWFileLoggingSensorsKey", "TC0P");
  EXPECT_EQ(store->fileLoggingSensorKeys(), std::nullopt);
  EXPECT_EQ(suite().get("HWFileLoggingSensorsKey"), json("TC0P"));
  suite().set("HWFileLoggingSensorsKey", json::array({"TC0P", 5, json::array({"x"}), "F0Ac"}));
  EXPECT_EQ(store->fileLoggingSensorKeys(), (std::vector<std::string>{"TC0P", "F0Ac"}));
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
  auto bystander = std::make_shared<NotASettingsDelegate>();  // not a settings delegate
  store->addDelegate(bystander);
  store->addDelegate(second);

  other->setUpdateFrequency(2);
  other->setFileLoggingSensorKeys(std::vector<std::string>{"TC0P"});
  clock_->runUntilIdle();
  EXPECT_EQ(second->intervals, std::vector<std::int64_t>{10});
  EXPECT_EQ(first->sensorKeys,
            (std::vector<std::optional<std::vector<std::string>>>{std::vector<std::string>{"TC0P"}}));

  // Someone else's notification of the same name also triggers a fresh read.
  suite().set("HWUpdateFrequencyKey", 1);
  platform::current().service<platform::GlobalNotifications>().post("HWUpdateFrequencyDidChangeNotification", {});
  second.reset();
  clock_->runUntilIdle();
  EXPECT_EQ(first->intervals, (std::vector<std::int64_t>{10, 5}));
  // A gone store ignores later notifications.
  store.reset();
  other->setUpdateFrequency(2);
  clock_->runUntilIdle();
  EXPECT_EQ(first->intervals, (std::vector<std::int64_t>{10, 5}));
}

TEST_F(SettingsTest, PostedUserInfoIsCopiedAndAppModeOverridesAStaleOne) {
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

TEST_F(SettingsTest, ObserversRunLaterOnTheMainQueueAndADroppedTokenStopsCallsAlreadyQueued) {
  decltype(received_) dropped;
  auto drop = HWNotificationUtils::addObserver(
      std::nullopt, [&dropped](const std::string& name, const json& info) { dropped.emplace_back(name, info); });
  platform::current().service<platform::GlobalNotifications>().post("A", {{"k", 1}});
  EXPECT_TRUE(received_.empty()) << "observers run on the main queue, not inside post";
  drop.reset();
  clock_->runUntilIdle();
  EXPECT_EQ(received_, (decltype(received_){{"A", {{"k", 1}}}}));
  EXPECT_TRUE(dropped.empty());
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
  suite().set("AppleInterfaceStyle", "dark");  // only the string "Dark" is dark
  EXPECT_FALSE(colors::isDarkMode());
  suite().set("AppleInterfaceStyle", "Dark");
  EXPECT_TRUE(colors::isDarkMode());

  store.reset();
  EXPECT_EQ(syncStartTime(), 0);
  EXPECT_EQ(strings::localizedStringForKey("corvane.test.missing"), "corvane.test.missing");
}

}  // namespace
}  // namespace corvane
