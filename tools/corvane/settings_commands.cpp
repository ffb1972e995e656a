// `corvane settings get|set|list` over the shared settings suite, and `corvane watch`, which
// prints every global notification of the product as it arrives.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "stop_on_signal.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/setting_text.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

using settings::SettingKey;
using settings::SettingType;

std::shared_ptr<HWSettingsDataStore> openStore() {
  return HWSettingsDataStore::create(std::make_shared<HWPrefData>(), nullptr);
}

// Runs what is waiting on the main queue (the announcements of the writes just made), so that
// they have left before the program ends.
void flushMainQueue() {
  dispatch::mainQueue()->async([] { dispatch::stopMainQueue(); });
  dispatch::runMainQueue();
}

// The default of a key not stored, as shown: the value with " (default)", or how the owner
// builds it. Computed without a store, so that reading announces and observes nothing.
std::string defaultText(const SettingKey& row, const std::string& key) {
  if (!row.defaultJson.empty()) return std::string(row.defaultJson) + " (default)";
  if (key == settings::kCurrentLanguageKey) {
    const std::string preferred = settings::preferredLocalizationFromEnvironment(std::getenv);
    return json_text::dump(nlohmann::json(settings::defaultLanguageFor(preferred))) + " (default)";
  }
  if (key == settings::kFileLoggingPathKey) {
    return json_text::dump(nlohmann::json(settings::defaultFileLoggingPath())) + " (default)";
  }
  if (row.defaultNote == "absent") return "(not set)";
  return "(default: " + std::string(row.defaultNote) + ")";
}

int getSetting(Context& context, const std::string& key) {
  if (!context.installPlatform()) return context.exitCode;
  HWPrefData prefData;
  if (auto value = prefData.objectForKey(key)) {
    std::printf("%s\n", json_text::dump(*value).c_str());
    return kExitOk;
  }
  const SettingKey* row = settings::findSettingKey(key);
  if (row == nullptr) {
    std::fprintf(stderr, "corvane: '%s' is not set and is not a setting of the product\n", key.c_str());
    return kExitFailure;
  }
  std::printf("%s\n", defaultText(*row, key).c_str());
  return kExitOk;
}

int listSettings(Context& context) {
  if (!context.installPlatform()) return context.exitCode;
  HWPrefData prefData;
  const auto show = [](const std::string& key, const std::string& text) {
    std::printf("%-48s %s\n", key.c_str(), text.c_str());
  };
  for (const auto& row : settings::kSettingKeys) {
    if (row.prefix) {
      bool any = false;
      for (const auto& key : prefData.userDefaults().keys()) {
        const SettingKey* owner = settings::findSettingKey(key);
        if (owner == nullptr || !owner->prefix || owner->key != row.key) continue;
        if (auto value = prefData.objectForKey(key)) {
          show(key, json_text::dump(*value));
          any = true;
        }
      }
      if (!any) show(settings::readerTimerStartKey("<timer>"), std::string(row.defaultJson) + " (default)");
      continue;
    }
    const std::string key(row.key);
    if (auto value = prefData.objectForKey(key)) {
      show(key, json_text::dump(*value));
    } else {
      show(key, defaultText(row, key));
    }
  }
  return kExitOk;
}

// Writes through the store's own setter where it has one, so that what it announces is announced.
void writeSetting(HWSettingsDataStore& store, const SettingKey& row, const std::string& key,
                  const nlohmann::json& value) {
  if (row.prefix) {
    store.setStartTime(value.get<double>(), key.substr(row.key.size() + 1));
  } else if (key == settings::kOpenAtLoginKey) {
    store.setOpenAtLogin(value.get<bool>());
  } else if (key == settings::kUpdateFrequencyKey) {
    store.setUpdateFrequency(value.get<std::uint64_t>());
  } else if (key == settings::kGraphTimeRangeKey) {
    store.setGraphTimeRange(value.get<std::uint64_t>());
  } else if (key == settings::kSyncStartTimeKey) {
    store.setSyncStartTime(value.get<std::int64_t>());
  } else if (key == settings::kCurrentLanguageKey) {
    store.setCurrentLanguage(value.get<std::string>());
  } else if (key == settings::kFileLoggingEnabledKey) {
    store.setFileLoggingEnabled(value.get<bool>());
  } else if (key == settings::kFileLoggingPathKey) {
    store.setFileLoggingPath(value.get<std::string>());
  } else if (key == settings::kFileLoggingSensorsKey) {
    store.setFileLoggingSensorKeys(value.get<std::vector<std::string>>());
  } else if (key == settings::kFileLoggingResetModeKey) {
    store.setFileLoggingResetMode(value.get<std::uint64_t>());
  } else {
    std::optional<std::string> notification;
    if (!row.notification.empty()) notification = std::string(row.notification);
    store.prefData()->setObject(value, key, notification);
  }
}

int setSetting(Context& context, const std::string& key, const std::string& text) {
  const SettingKey* row = settings::findSettingKey(key);
  if (row == nullptr) {
    std::fprintf(stderr, "corvane: '%s' is not a setting of the product (see corvane settings list)\n", key.c_str());
    return kExitBadInput;
  }
  std::string error;
  auto value = settings::parseSettingText(row->type, text, &error);
  if (!value) {
    std::fprintf(stderr, "corvane: '%s' is not a value for %s: %s\n", text.c_str(), key.c_str(), error.c_str());
    return kExitBadInput;
  }
  if (!context.installPlatform()) return context.exitCode;
  auto store = openStore();
  writeSetting(*store, *row, key, *value);
  flushMainQueue();
  if (store->prefData()->objectForKey(key) != value) {
    std::fprintf(stderr, "corvane: the settings suite did not keep %s\n", key.c_str());
    return kExitFailure;
  }
  return kExitOk;
}

int watch(Context& context) {
  // Before any other thread starts, so that they all leave the signals to the waiter.
  StopOnSignal stop;
  if (!context.installPlatform()) return context.exitCode;
  useSessionBus();
  auto observation = HWNotificationUtils::addObserver(std::nullopt, [](const std::string& name, const nlohmann::json& userInfo) {
    std::printf("%s %s\n", name.c_str(), json_text::dump(userInfo).c_str());
    std::fflush(stdout);
  });
  dispatch::runMainQueue();
  return kExitOk;
}

}  // namespace

void registerSettingsCommands(CLI::App& app, Context& context) {
  CLI::App* group = app.add_subcommand("settings", "The settings every process of the product shares");
  group->require_subcommand(1);

  auto* get = group->add_subcommand("get", "One setting: its stored value as JSON, or its default");
  auto getKey = std::make_shared<std::string>();
  get->add_option("KEY", *getKey, "The setting's key, e.g. HWUpdateFrequencyKey")->required();
  get->callback([&context, getKey] { context.exitCode = getSetting(context, *getKey); });

  auto* set = group->add_subcommand("set", "Store one setting, announcing it as the product does");
  auto setKey = std::make_shared<std::string>();
  auto setValue = std::make_shared<std::string>();
  set->add_option("KEY", *setKey, "The setting's key")->required();
  set->add_option("VALUE", *setValue, "The value, as the key's type reads it (number, true/false, text, JSON array)")
      ->required();
  set->callback([&context, setKey, setValue] { context.exitCode = setSetting(context, *setKey, *setValue); });

  auto* list = group->add_subcommand("list", "Every setting with its value, or its default marked (default)");
  list->callback([&context] { context.exitCode = listSettings(context); });

  auto* watchCommand = app.add_subcommand("watch", "Print every global notification until interrupted");
  watchCommand->callback([&context] { context.exitCode = watch(context); });
}

}  // namespace corvane::cli
