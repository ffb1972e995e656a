#include "corvane/settings/settings_data_store.h"

#include <cstdlib>
#include <filesystem>

#include "corvane/monitors/monitor_timer.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/util/dictionaries.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/settings/theme_manager.h"
#include "corvane/util/colors.h"
#include "corvane/util/hw_utils.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/strings.h"

namespace corvane {
namespace {

std::string key(std::string_view name) { return std::string(name); }

}  // namespace

namespace settings {

const std::vector<std::string>& allLanguageCodes() {
  static const std::vector<std::string> codes{"en", "vi", "zh-Hans", "zh-Hant", "fr", "de",
                                              "it", "ja", "ko",      "pt-PT",   "es", "tr"};
  return codes;
}

std::string localizationFromLocaleName(std::string_view localeName) {
  // "language[_territory][.codeset][@modifier]"
  std::string_view name = localeName.substr(0, localeName.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return {};
  const auto separator = name.find_first_of("_-");
  std::string language(name.substr(0, separator));
  for (auto& c : language) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  std::string region = separator == std::string_view::npos ? std::string() : std::string(name.substr(separator + 1));
  if (language == "zh") {
    if (region == "TW" || region == "HK" || region == "MO" || region == "Hant") return "zh-Hant";
    return "zh-Hans";
  }
  if (language == "pt" && !region.empty()) {
    for (auto& c : region) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return "pt-" + region;
  }
  return language;
}

std::string preferredLocalizationFromEnvironment(const std::function<const char*(const char*)>& getenv) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getenv ? getenv(variable) : nullptr;
    if (value != nullptr && value[0] != '\0') return localizationFromLocaleName(value);
  }
  return {};
}

std::string localeCodeForLanguage(std::string_view language) {
  if (language == "zh-Hans") return "zh_CN";
  if (language == "zh-Hant") return "zh_TW";
  if (language == "pt-PT") return "pt_PT";
  return std::string(language);
}

std::string defaultLanguageFor(std::string_view preferred) {
  for (const auto& language : allLanguageCodes()) {
    if (language == preferred) return language;
  }
  return allLanguageCodes().front();
}

std::string defaultFileLoggingPath() {
  return (std::filesystem::path(files::documentsPath()) / "Corvane_Log.csv").string();
}

std::int64_t updateIntervalForFrequency(std::int64_t frequency) {
  if (frequency == 2) return 10;
  if (frequency == 1) return 5;
  return 2;
}

void installHooks(const std::shared_ptr<HWSettingsDataStore>& store) {
  std::weak_ptr<HWSettingsDataStore> weak = store;
  setSyncStartTimeProvider([weak]() -> std::int64_t {
    auto live = weak.lock();
    return live ? live->syncStartTime() : 0;
  });
  strings::setCurrentLanguageProvider([weak]() -> std::string {
    auto live = weak.lock();
    return live ? live->currentLanguage() : std::string();
  });
  colors::setDarkModeProvider([] { return HWThemeManager::isDarkMode(); });
  HWSystemDevice::setLocaleCodeProvider([weak]() -> std::string {
    auto live = weak.lock();
    if (!live) return std::string();
    if (auto code = live->currentLocaleCode(); !code.empty()) return code;
    // Not read yet: the language reading would settle on, without storing its default (a
    // program that only shows the uptime writes no settings).
    const auto stored = live->prefData()->stringForKey(std::string(settings::kCurrentLanguageKey));
    return settings::localeCodeForLanguage(stored ? *stored : live->defaultLanguage());
  });
  installUnitPreferencesHook(store->prefData());
}

void installUnitPreferencesHook(std::shared_ptr<const HWPrefData> prefData) {
  // The sensor data store owns these two keys; until it exists they are read here, with their
  // defaults (Celsius, rpm) when absent.
  setUnitPreferencesProvider([prefData = std::move(prefData)]() -> UnitPreferences {
    if (!prefData) return {};
    UnitPreferences units;
    units.tempUnitCelsius =
        dictionaries::boolValue(prefData->objectForKey(std::string(kTempUnitCelsiusKey), true));
    units.fanValueType = static_cast<uint64_t>(prefData->integerForKey(std::string(kFanValueTypeKey)));
    return units;
  });
}

void uninstallHooks() {
  setSyncStartTimeProvider(nullptr);
  strings::setCurrentLanguageProvider(nullptr);
  colors::setDarkModeProvider(nullptr);
  HWSystemDevice::setLocaleCodeProvider(nullptr);
  setUnitPreferencesProvider(nullptr);
}

}  // namespace settings

std::shared_ptr<HWSettingsDataStore> HWSettingsDataStore::create(std::shared_ptr<HWPrefData> prefData,
                                                                 std::shared_ptr<LoggedSensorKeysSource> sensorKeys,
                                                                 LocalizationProvider preferredLocalization) {
  auto store = std::make_shared<HWSettingsDataStore>(Passkey{}, std::move(prefData), std::move(sensorKeys),
                                                     std::move(preferredLocalization));
  store->registerNotifications();
  return store;
}

HWSettingsDataStore::HWSettingsDataStore(Passkey, std::shared_ptr<HWPrefData> prefData,
                                         std::shared_ptr<LoggedSensorKeysSource> sensorKeys,
                                         LocalizationProvider preferredLocalization)
    : prefData_(prefData ? std::move(prefData) : std::make_shared<HWPrefData>()),
      sensorKeys_(std::move(sensorKeys)),
      preferredLocalization_(std::move(preferredLocalization)),
      allLanguages_(settings::allLanguageCodes()) {
  if (!preferredLocalization_) {
    preferredLocalization_ = [] { return settings::preferredLocalizationFromEnvironment(std::getenv); };
  }
}

HWSettingsDataStore::~HWSettingsDataStore() = default;

void HWSettingsDataStore::registerNotifications() {
  std::weak_ptr<HWSettingsDataStore> weak = weak_from_this();
  observations_.push_back(HWNotificationUtils::addObserver(
      key(settings::kUpdateFrequencyDidChangeNotification), [weak](const std::string&, const nlohmann::json&) {
        if (auto live = weak.lock()) live->updateFrequencyDidChangeNotification();
      }));
  observations_.push_back(HWNotificationUtils::addObserver(
      key(settings::kFileLoggingSensorKeysDidChangeNotification), [weak](const std::string&, const nlohmann::json&) {
        if (auto live = weak.lock()) live->fileLoggingSensorKeysDidChangeNotification();
      }));
}

void HWSettingsDataStore::updateFrequencyDidChangeNotification() {
  forEachDelegate<HWSettingsDataStoreDelegate>(
      [&](HWSettingsDataStoreDelegate& delegate) { delegate.settingsDataStoreUpdateFrequencyDidChange(updateInterval()); });
}

void HWSettingsDataStore::fileLoggingSensorKeysDidChangeNotification() {
  forEachDelegate<HWSettingsDataStoreDelegate>([&](HWSettingsDataStoreDelegate& delegate) {
    delegate.settingsDataStoreFileLoggingSensorKeysDidChange(fileLoggingSensorKeys());
  });
}

bool HWSettingsDataStore::openAtLogin() const { return prefData_->boolForKey(key(settings::kOpenAtLoginKey)); }

void HWSettingsDataStore::setOpenAtLogin(bool open) { prefData_->setObject(open, key(settings::kOpenAtLoginKey)); }

std::uint64_t HWSettingsDataStore::updateFrequency() const {
  return static_cast<std::uint64_t>(prefData_->integerForKey(key(settings::kUpdateFrequencyKey)));
}

void HWSettingsDataStore::setUpdateFrequency(std::uint64_t frequency) {
  prefData_->setObject(frequency, key(settings::kUpdateFrequencyKey),
                       key(settings::kUpdateFrequencyDidChangeNotification));
}

std::int64_t HWSettingsDataStore::updateInterval() const {
  return settings::updateIntervalForFrequency(prefData_->integerForKey(key(settings::kUpdateFrequencyKey)));
}

std::uint64_t HWSettingsDataStore::graphTimeRange() const {
  return static_cast<std::uint64_t>(prefData_->integerForKey(key(settings::kGraphTimeRangeKey)));
}

void HWSettingsDataStore::setGraphTimeRange(std::uint64_t range) {
  prefData_->setObject(range, key(settings::kGraphTimeRangeKey));
}

std::string HWSettingsDataStore::currentLanguage() {
  std::lock_guard guard(languageLock_);
  if (currentLanguage_) return *currentLanguage_;
  if (auto stored = prefData_->objectForKey(key(settings::kCurrentLanguageKey)); stored && stored->is_string()) {
    currentLanguage_ = stored->get<std::string>();
    return *currentLanguage_;
  }
  currentLanguage_ = defaultLanguage();
  prefData_->setObject(*currentLanguage_, key(settings::kCurrentLanguageKey));
  return *currentLanguage_;
}

std::string HWSettingsDataStore::defaultLanguage() const {
  return settings::defaultLanguageFor(preferredLocalization_ ? preferredLocalization_() : std::string());
}

void HWSettingsDataStore::setCurrentLanguage(const std::string& language) {
  {
    std::lock_guard guard(languageLock_);
    if (language == currentLanguage_) return;
    currentLanguage_ = language;
  }
  prefData_->setObject(language, key(settings::kCurrentLanguageKey), key(settings::kLanguageDidChangeNotification));
}

std::string HWSettingsDataStore::currentLocaleCode() const {
  std::lock_guard guard(languageLock_);
  return currentLanguage_ ? settings::localeCodeForLanguage(*currentLanguage_) : std::string();
}

bool HWSettingsDataStore::fileLoggingEnabled() const {
  return prefData_->boolForKey(key(settings::kFileLoggingEnabledKey));
}

void HWSettingsDataStore::setFileLoggingEnabled(bool enabled) {
  prefData_->setObject(enabled, key(settings::kFileLoggingEnabledKey));
}

std::string HWSettingsDataStore::fileLoggingPath() const {
  if (auto stored = prefData_->stringForKey(key(settings::kFileLoggingPathKey))) return *stored;
  return settings::defaultFileLoggingPath();
}

void HWSettingsDataStore::setFileLoggingPath(const std::optional<std::string>& path) {
  prefData_->setObject(path ? std::optional<nlohmann::json>(*path) : std::nullopt, key(settings::kFileLoggingPathKey));
}

std::optional<std::vector<std::string>> HWSettingsDataStore::fileLoggingSensorKeys() {
  const std::string name = key(settings::kFileLoggingSensorsKey);
  if (auto stored = prefData_->objectForKey(name)) {
    if (!stored->is_array()) return std::nullopt;
    std::vector<std::string> keys;
    for (const auto& element : *stored) {
      if (element.is_string()) keys.push_back(element.get<std::string>());
    }
    return keys;
  }
  std::vector<std::string> visible = sensorKeys_ ? sensorKeys_->visibleSensorKeys() : std::vector<std::string>();
  if (!visible.empty()) prefData_->setObject(nlohmann::json(visible), name);
  // Deliberately nothing on this first read: the stored default comes back from the next one.
  return std::nullopt;
}

void HWSettingsDataStore::setFileLoggingSensorKeys(const std::optional<std::vector<std::string>>& keys) {
  prefData_->setObject(keys ? std::optional<nlohmann::json>(nlohmann::json(*keys)) : std::nullopt,
                       key(settings::kFileLoggingSensorsKey), key(settings::kFileLoggingSensorKeysDidChangeNotification));
}

std::uint64_t HWSettingsDataStore::fileLoggingResetMode() const {
  return static_cast<std::uint64_t>(prefData_->integerForKey(key(settings::kFileLoggingResetModeKey)));
}

void HWSettingsDataStore::setFileLoggingResetMode(std::uint64_t mode) {
  prefData_->setObject(mode, key(settings::kFileLoggingResetModeKey));
}

std::int64_t HWSettingsDataStore::syncStartTime() const {
  return prefData_->integerForKey(key(settings::kSyncStartTimeKey));
}

void HWSettingsDataStore::setSyncStartTime(std::int64_t seconds) {
  prefData_->setObject(seconds, key(settings::kSyncStartTimeKey));
}

double HWSettingsDataStore::getStartTimeOfReaderTimer(const std::string& timerName) const {
  return prefData_->doubleForKey(settings::readerTimerStartKey(timerName));
}

void HWSettingsDataStore::setStartTime(double startTime, const std::string& timerName) {
  prefData_->setObject(startTime, settings::readerTimerStartKey(timerName));
}

const std::vector<HWHotkeyItem>& HWSettingsDataStore::hotkeyItems() {
  std::call_once(hotkeysOnce_, [this] {
    const auto list = HWUtils::loadJSONArrayFromFileName("hotkey_items");
    if (!list || !list->is_array()) return;
    for (const auto& element : *list) {
      if (auto item = HWHotkeyItem::itemFromDictionary(element)) hotkeyItems_.push_back(std::move(*item));
    }
  });
  return hotkeyItems_;
}

void HWSettingsDataStore::clearData() {
  setFileLoggingPath(std::nullopt);
  setFileLoggingSensorKeys(std::nullopt);
}

}  // namespace corvane
