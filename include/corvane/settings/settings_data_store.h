// The general settings (launch at login, update frequency, graph range, language, file logging,
// timer start times) over the shared suite, and the change callbacks of any process's writes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/global_notifications.h"
#include "corvane/settings/menu_items.h"
#include "corvane/settings/pref_data.h"
#include "corvane/store/data_store.h"

namespace corvane {

// Where the default list of logged sensors comes from (the sensor data store implements it).
class LoggedSensorKeysSource {
 public:
  virtual ~LoggedSensorKeysSource() = default;
  // The key of every sensor the current visibility settings let through, category by category
  // in category order, each category's sensors in order. Called on the caller's thread.
  virtual std::vector<std::string> visibleSensorKeys() = 0;
};

// Told of changes to the settings, whichever process made them; called on the main queue.
class HWSettingsDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  // The update frequency changed; `interval` is the new update interval in seconds.
  virtual void settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) { (void)interval; }
  // The logged sensors changed; `keys` is the list as it reads now (nil when absent).
  virtual void settingsDataStoreFileLoggingSensorKeysDidChange(const std::optional<std::vector<std::string>>& keys) {
    (void)keys;
  }
};

// The typed façade over the general settings. Made once per process (by the data manager) and
// held by std::shared_ptr. Reads and writes are thread-safe; delegates are called on the main
// queue.
class HWSettingsDataStore : public HWDataStore, public std::enable_shared_from_this<HWSettingsDataStore> {
  struct Passkey {};

 public:
  // Answers the first preferred localisation of the user (a language code such as "pt-PT").
  using LocalizationProvider = std::function<std::string()>;

  // A store over `prefData`, consulting `sensorKeys` (may be null: no default sensor list) for
  // the default logged sensors, and `preferredLocalization` (null: the process environment)
  // for the default language. Observes the update-frequency and logged-sensors notifications.
  static std::shared_ptr<HWSettingsDataStore> create(std::shared_ptr<HWPrefData> prefData,
                                                     std::shared_ptr<LoggedSensorKeysSource> sensorKeys,
                                                     LocalizationProvider preferredLocalization = {});
  HWSettingsDataStore(Passkey, std::shared_ptr<HWPrefData> prefData, std::shared_ptr<LoggedSensorKeysSource> sensorKeys,
                      LocalizationProvider preferredLocalization);
  ~HWSettingsDataStore() override;

  const std::shared_ptr<HWPrefData>& prefData() const { return prefData_; }
  // The 12 language codes of the product; the first ("en") is the fallback.
  const std::vector<std::string>& allLanguages() const { return allLanguages_; }

  bool openAtLogin() const;
  void setOpenAtLogin(bool open);
  // 0, 1 or 2 (default 0); announced on write.
  std::uint64_t updateFrequency() const;
  void setUpdateFrequency(std::uint64_t frequency);
  // Seconds between readings: frequency 2 → 10, 1 → 5, anything else → 2.
  std::int64_t updateInterval() const;
  // Index of the graph time range (default 0).
  std::uint64_t graphTimeRange() const;
  void setGraphTimeRange(std::uint64_t range);

  // The language code in use: the cached one; else the stored one; else the preferred
  // localisation when it is one of allLanguages(), else "en" — stored (silently) and cached.
  std::string currentLanguage();
  // The language a suite without one resolves to: the preferred localisation when it is one of
  // allLanguages(), else "en". Reads and writes nothing.
  std::string defaultLanguage() const;
  // Caches and stores `language`, announcing it; does nothing when it equals the cached one.
  void setCurrentLanguage(const std::string& language);
  // The locale of the cached language ("zh-Hans" → "zh_CN", "zh-Hant" → "zh_TW", "pt-PT" →
  // "pt_PT", others unchanged); "" until currentLanguage() has been read.
  std::string currentLocaleCode() const;

  bool fileLoggingEnabled() const;
  void setFileLoggingEnabled(bool enabled);
  // The stored path, else the documents folder + "/Corvane_Log.csv" (not written back).
  std::string fileLoggingPath() const;
  void setFileLoggingPath(const std::optional<std::string>& path);
  // The stored list (its string entries; a stored value that is not an array reads as nil).
  // With nothing stored: stores the visible sensors' keys when there are any, and returns nil
  // all the same — only later reads return the list.
  std::optional<std::vector<std::string>> fileLoggingSensorKeys();
  // Stores the list (nil removes it), announcing the change.
  void setFileLoggingSensorKeys(const std::optional<std::vector<std::string>>& keys);
  std::uint64_t fileLoggingResetMode() const;
  void setFileLoggingResetMode(std::uint64_t mode);

  // The global shortcuts the product offers, from its resource list (elements that do not
  // convert are left out); read once and kept for the life of the store.
  const std::vector<HWHotkeyItem>& hotkeyItems();

  // Whole seconds since 1970 to which the monitor timers align (0: no alignment).
  std::int64_t syncStartTime() const;
  void setSyncStartTime(std::int64_t seconds);
  // Start time of the reader timer called `timerName` (key "HWReaderTimerStart_<name>"), 0.0
  // when none is stored.
  double getStartTimeOfReaderTimer(const std::string& timerName) const;
  void setStartTime(double startTime, const std::string& timerName);

  // Removes the log path and the logged sensors (announcing the latter).
  void clearData() override;

 private:
  void registerNotifications();
  void updateFrequencyDidChangeNotification();
  void fileLoggingSensorKeysDidChangeNotification();

  std::shared_ptr<HWPrefData> prefData_;
  std::shared_ptr<LoggedSensorKeysSource> sensorKeys_;
  LocalizationProvider preferredLocalization_;
  std::vector<std::string> allLanguages_;
  mutable std::mutex languageLock_;
  std::optional<std::string> currentLanguage_;  // nothing until first read or set
  std::once_flag hotkeysOnce_;
  std::vector<HWHotkeyItem> hotkeyItems_;
  std::vector<std::unique_ptr<platform::GlobalNotifications::Token>> observations_;
};

namespace settings {

// The product's languages, in order; the first is the fallback.
const std::vector<std::string>& allLanguageCodes();

// The localisation a POSIX locale name asks for, in the product's code style: the encoding and
// modifier dropped, Chinese by script ("zh_CN", "zh_SG" → "zh-Hans"; "zh_TW", "zh_HK", "zh_MO" →
// "zh-Hant"), Portuguese with its region ("pt_PT" → "pt-PT", "pt_BR" → "pt-BR"), any other
// language without its region ("en_US" → "en"). "C", "POSIX" and "" ask for nothing ("").
std::string localizationFromLocaleName(std::string_view localeName);

// The preferred localisation of an environment, read with `getenv`: the first set of LC_ALL,
// LC_MESSAGES and LANG, mapped by localizationFromLocaleName.
std::string preferredLocalizationFromEnvironment(const std::function<const char*(const char*)>& getenv);

// The locale code of a language code ("zh-Hans" → "zh_CN", "zh-Hant" → "zh_TW", "pt-PT" →
// "pt_PT"; any other code is its own).
std::string localeCodeForLanguage(std::string_view language);

// The language a suite without one resolves to for `preferred` (a localisation): that code when
// it is one of allLanguageCodes() (compared exactly), else "en".
std::string defaultLanguageFor(std::string_view preferred);

// The log file when none is set: the documents folder + "/Corvane_Log.csv".
std::string defaultFileLoggingPath();

// Updates interval in seconds for a stored update frequency (2 → 10, 1 → 5, else 2).
std::int64_t updateIntervalForFrequency(std::int64_t frequency);

// Makes the lower layers read their values from `store`: the monitor timers' sync start time,
// the language of localised texts, the locale of the uptime text, and dark mode (from
// HWThemeManager::isDarkMode). Holds the store weakly: once it is gone, each hook answers its
// default. Programs call it once after making the store; call before other threads use those
// values.
void installHooks(const std::shared_ptr<HWSettingsDataStore>& store);
// Makes the value formatting follow the temperature unit and fan scale stored in `prefData`
// (part of installHooks; one-shot programs that need only the units call it alone).
void installUnitPreferencesHook(std::shared_ptr<const HWPrefData> prefData);
// Puts the hooks back to their defaults (for tests).
void uninstallHooks();

}  // namespace settings
}  // namespace corvane
