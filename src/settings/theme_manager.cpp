#include "corvane/settings/theme_manager.h"

#include "corvane/platform/defaults_suite.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_keys.h"

namespace corvane {

HWThemeManager& HWThemeManager::shared() {
  static HWThemeManager* instance = new HWThemeManager();  // lives as long as the process
  return *instance;
}

HWThemeManager::HWThemeManager() {
  observation_ = HWNotificationUtils::addObserver(
      std::string(settings::kInterfaceThemeChangedNotification),
      [](const std::string&, const nlohmann::json&) { handleInterfaceThemeChangedNotification(); });
}

HWThemeManager::~HWThemeManager() = default;

bool HWThemeManager::isDarkMode() {
  auto style = platform::current().service<platform::DefaultsSuite>().globalValue("AppleInterfaceStyle");
  return style && style->is_string() && style->get_ref<const std::string&>() == "Dark";
}

void HWThemeManager::handleInterfaceThemeChangedNotification() {
  HWNotificationUtils::postGlobalNotification(std::string(settings::kThemeDidChangeNotification));
}

}  // namespace corvane
