// Every key of the shared settings suite, with its type, its default and the global notification
// a write posts; and the names of the other global notifications. The stores that own the keys
// (settings, sensor data, CPU data, menus, alerts) all take their names from here.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace corvane::settings {

// User-info key of every global notification: the sender's app mode (unsigned integer).
inline constexpr std::string_view kAppModeKey = "appMode";

// --- Keys of the settings store.
inline constexpr std::string_view kOpenAtLoginKey = "HWOpenAtLogin";
inline constexpr std::string_view kUpdateFrequencyKey = "HWUpdateFrequencyKey";
inline constexpr std::string_view kGraphTimeRangeKey = "HWGraphTimeRangeKey";
inline constexpr std::string_view kSyncStartTimeKey = "HWSyncStartTime";
inline constexpr std::string_view kCurrentLanguageKey = "CURRENT_LANGUAGE_KEY";
inline constexpr std::string_view kFileLoggingEnabledKey = "HWFileLoggingEnabledKey";
inline constexpr std::string_view kFileLoggingPathKey = "HWFileLoggingPathKey";
inline constexpr std::string_view kFileLoggingSensorsKey = "HWFileLoggingSensorsKey";
inline constexpr std::string_view kFileLoggingResetModeKey = "HWFileLoggingResetModeKey";
// Prefix of the per-timer start keys: "HWReaderTimerStart_<timer name>".
inline constexpr std::string_view kReaderTimerStartPrefix = "HWReaderTimerStart";

// --- Keys of the sensor data store.
inline constexpr std::string_view kTempUnitCelsiusKey = "HWTempUnitCelsius";
inline constexpr std::string_view kShowUnknownSensorsKey = "HWShowUnknownSensorsKey";
inline constexpr std::string_view kShowHIDSensorsKey = "HWShowHIDSensorsKey";
inline constexpr std::string_view kShowComputedSensorsKey = "HWShowComputedSensorsKey";
inline constexpr std::string_view kFanValueTypeKey = "HWFanValueTypeKey";
inline constexpr std::string_view kMainSensorKey = "HWMainSensor";
inline constexpr std::string_view kFanControllerModeKey = "HWFanControllerModeKey";
inline constexpr std::string_view kFanControllerManualFanSetIdKey = "HWFanControllerManualFanSetIdKey";
inline constexpr std::string_view kFanControllerFanSetNameKey = "HWFanControllerFanSetNameKey";  // older form, only read
inline constexpr std::string_view kFanControllerManualLinkEnabledKey = "HWFanControllerManualLinkEnabledKey";
inline constexpr std::string_view kFanControllerAutoBoostNotificationEnabledKey =
    "HWFanControllerAutoBoostNotificationEnabledKey";
inline constexpr std::string_view kFanControllerDidAutoBoostKey = "HWFanControllerDidAutoBoostKey";

// --- Key of the CPU data store.
inline constexpr std::string_view kNumOfTopProcessesKey = "num_of_top_processes";

// --- Keys of the menu stores (the sensor drop-down key has no prefix, as stored settings have it).
inline constexpr std::string_view kSensorMenuActiveItemsKey = "HWSensorMenuActiveItems";
inline constexpr std::string_view kSensorMenuDropdownItemsKey = "sensorMenuDropdownItems";
inline constexpr std::string_view kSensorMenuDataEnabledKey = "HWSensorMenuDataEnabledKey";
inline constexpr std::string_view kMenuSensorsKey = "HWMenuSensors";  // older form, only read
inline constexpr std::string_view kCPUMenuActiveItemsKey = "HWCPUMenuActiveItems";
inline constexpr std::string_view kCPUMenuDropdownItemsKey = "HWCPUMenuDropdownItems";
inline constexpr std::string_view kCPUMenuDataEnabledKey = "HWCPUMenuDataEnabledKey";

// --- Key of the alert store.
inline constexpr std::string_view kNotificationsKey = "HWNotificationsKey";

// --- Global notifications posted when a key is written.
inline constexpr std::string_view kUpdateFrequencyDidChangeNotification = "HWUpdateFrequencyDidChangeNotification";
inline constexpr std::string_view kLanguageDidChangeNotification = "HWLanguageDidChangeNotification";
inline constexpr std::string_view kFileLoggingSensorKeysDidChangeNotification =
    "HWFileLoggingSensorKeysDidChangeNotification";
inline constexpr std::string_view kSensorSettingsDidChangeNotification = "HWSensorSettingsDidChangeNotification";
inline constexpr std::string_view kFanSettingsDidChangeNotification = "HWFanSettingsDidChangeNotification";
inline constexpr std::string_view kSensorDataMainSensorDidChangeNotification =
    "HWSensorDataMainSensorDidChangeNotification";
inline constexpr std::string_view kFanControlSettingsDidChangeNotification = "HWFanControlSettingsDidChangeNotification";
inline constexpr std::string_view kNumOfTopProcessesDidChangeNotification = "HWNumOfTopProcessesDidChangeNotification";
inline constexpr std::string_view kSensorMenuDataActiveItemsDidChangeNotification =
    "HWSensorMenuDataActiveItemsDidChangeNotification";
inline constexpr std::string_view kSensorMenuDataDropdownItemsDidChangeNotification =
    "HWSensorMenuDataDropdownItemsDidChangeNotification";
inline constexpr std::string_view kSensorMenuDataEnabledDidChangeNotification =
    "HWSensorMenuDataEnabledDidChangeNotification";
inline constexpr std::string_view kCPUMenuDataActiveItemsDidChangeNotification =
    "HWCPUMenuDataActiveItemsDidChangeNotification";
inline constexpr std::string_view kCPUMenuDataDropdownItemsDidChangeNotification =
    "HWCPUMenuDataDropdownItemsDidChangeNotification";
inline constexpr std::string_view kCPUMenuDataEnabledDidChangeNotification = "HWCPUMenuDataEnabledDidChangeNotification";
inline constexpr std::string_view kNotificationDataStoreNotificationsDidChangeNotification =
    "HWNotificationDataStoreNotificationsDidChangeNotification";

// --- Other global notifications.
inline constexpr std::string_view kSensorDataStoreDataDidWriteNotification = "HWSensorDataStoreDataDidWriteNotification";
inline constexpr std::string_view kFanControllerShouldUpdateNotification = "HWFanControllerShouldUpdateNotification";
inline constexpr std::string_view kFanControllerAutoBoostActiveNotification =
    "HWFanControllerAutoBoostActiveNotification";
inline constexpr std::string_view kThemeDidChangeNotification = "HWThemeDidChangeNotification";
// Posted by the system when the user switches between light and dark appearance.
inline constexpr std::string_view kInterfaceThemeChangedNotification = "AppleInterfaceThemeChangedNotification";

// The kind of value a key holds.
enum class SettingType {
  Bool,             // true/false
  UnsignedInteger,  // a whole number ≥ 0
  Integer,          // a signed whole number
  Double,           // a floating-point number
  String,           // text
  StringArray,      // an array of strings (sensor keys)
  ItemList,         // an array of dictionaries (menu items, alert rules), owned by their store
};

// One row of the key table.
struct SettingKey {
  std::string_view key;           // the key as stored (for a prefix row, the prefix)
  SettingType type;
  std::string_view defaultJson;   // the default as JSON text; empty when it is built or absent
  std::string_view defaultNote;   // how a built default is made; "absent" when there is none
  std::string_view notification;  // posted when the owner writes the key; empty: none
  std::string_view owner;         // the store that reads and writes the key
  bool prefix = false;            // true: the row stands for every key "<key>_<name>"
};

// The whole table, in the order the settings are presented.
inline constexpr std::array kSettingKeys{
    SettingKey{kOpenAtLoginKey, SettingType::Bool, "false", "", "", "settings"},
    SettingKey{kUpdateFrequencyKey, SettingType::UnsignedInteger, "0", "", kUpdateFrequencyDidChangeNotification,
               "settings"},
    SettingKey{kGraphTimeRangeKey, SettingType::UnsignedInteger, "0", "", "", "settings"},
    SettingKey{kSyncStartTimeKey, SettingType::Integer, "0", "", "", "settings"},
    SettingKey{kCurrentLanguageKey, SettingType::String, "",
               "the preferred localisation when it is one of the product's languages, else \"en\"",
               kLanguageDidChangeNotification, "settings"},
    SettingKey{kFileLoggingEnabledKey, SettingType::Bool, "false", "", "", "settings"},
    SettingKey{kFileLoggingPathKey, SettingType::String, "", "the documents folder + \"/Corvane_Log.csv\"", "",
               "settings"},
    SettingKey{kFileLoggingSensorsKey, SettingType::StringArray, "",
               "every visible sensor's key, stored by the first read", kFileLoggingSensorKeysDidChangeNotification,
               "settings"},
    SettingKey{kFileLoggingResetModeKey, SettingType::UnsignedInteger, "0", "", "", "settings"},
    SettingKey{kReaderTimerStartPrefix, SettingType::Double, "0.0", "", "", "settings", true},
    SettingKey{kTempUnitCelsiusKey, SettingType::Bool, "true", "", kSensorSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kShowUnknownSensorsKey, SettingType::Bool, "false", "", kSensorSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kShowHIDSensorsKey, SettingType::Bool, "false", "", kSensorSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kShowComputedSensorsKey, SettingType::Bool, "true", "", kSensorSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kFanValueTypeKey, SettingType::UnsignedInteger, "0", "", kFanSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kMainSensorKey, SettingType::String, "", "chosen by the sensor data store",
               kSensorDataMainSensorDidChangeNotification, "sensor data store"},
    SettingKey{kFanControllerModeKey, SettingType::UnsignedInteger, "0", "", kFanControlSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kFanControllerManualFanSetIdKey, SettingType::String, "",
               "taken over from \"HWFanControllerFanSetNameKey\"", kFanControlSettingsDidChangeNotification,
               "sensor data store"},
    SettingKey{kFanControllerFanSetNameKey, SettingType::String, "", "absent", "", "sensor data store"},
    SettingKey{kFanControllerManualLinkEnabledKey, SettingType::Bool, "true", "",
               kFanControlSettingsDidChangeNotification, "sensor data store"},
    SettingKey{kFanControllerAutoBoostNotificationEnabledKey, SettingType::Bool, "false", "", "",
               "sensor data store"},
    SettingKey{kFanControllerDidAutoBoostKey, SettingType::Bool, "false", "", "", "sensor data store"},
    SettingKey{kNumOfTopProcessesKey, SettingType::UnsignedInteger, "12", "", kNumOfTopProcessesDidChangeNotification,
               "CPU data store"},
    SettingKey{kSensorMenuActiveItemsKey, SettingType::ItemList, "", "built from the sensor menu items",
               kSensorMenuDataActiveItemsDidChangeNotification, "sensor menu store"},
    SettingKey{kSensorMenuDropdownItemsKey, SettingType::ItemList, "", "built from the sensor drop-down items",
               kSensorMenuDataDropdownItemsDidChangeNotification, "sensor menu store"},
    SettingKey{kSensorMenuDataEnabledKey, SettingType::Bool, "true", "", kSensorMenuDataEnabledDidChangeNotification,
               "sensor menu store"},
    SettingKey{kMenuSensorsKey, SettingType::StringArray, "", "absent", "", "sensor menu store"},
    SettingKey{kCPUMenuActiveItemsKey, SettingType::ItemList, "", "built from the CPU menu items",
               kCPUMenuDataActiveItemsDidChangeNotification, "CPU menu store"},
    SettingKey{kCPUMenuDropdownItemsKey, SettingType::ItemList, "", "built from the CPU drop-down items",
               kCPUMenuDataDropdownItemsDidChangeNotification, "CPU menu store"},
    SettingKey{kCPUMenuDataEnabledKey, SettingType::Bool, "true", "", kCPUMenuDataEnabledDidChangeNotification,
               "CPU menu store"},
    SettingKey{kNotificationsKey, SettingType::ItemList, "", "one rule for the main sensor",
               kNotificationDataStoreNotificationsDidChangeNotification, "alert store"},
};

// The key under which the reader timer called `timerName` keeps its start time.
inline std::string readerTimerStartKey(std::string_view timerName) {
  return std::string(kReaderTimerStartPrefix) + "_" + std::string(timerName);
}

// The table row of `key` (a reader-timer key finds the prefix row), or null for a key the
// product does not use.
inline const SettingKey* findSettingKey(std::string_view key) {
  for (const auto& row : kSettingKeys) {
    if (!row.prefix && row.key == key) return &row;
    if (row.prefix && key.size() > row.key.size() + 1 && key.substr(0, row.key.size()) == row.key &&
        key[row.key.size()] == '_') {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace corvane::settings
