// Follows the system's light/dark appearance and re-announces its changes under the product's
// own notification name.
#pragma once

#include <atomic>
#include <memory>

#include "corvane/platform/global_notifications.h"

namespace corvane {

class HWThemeManager {
 public:
  // The process's theme manager, made on first use (thread-safe) on the platform installed then.
  static HWThemeManager& shared();
  // Observes "AppleInterfaceThemeChangedNotification"; each one is re-posted as
  // "HWThemeDidChangeNotification" (with "appMode") to every process.
  HWThemeManager();
  ~HWThemeManager();
  HWThemeManager(const HWThemeManager&) = delete;
  HWThemeManager& operator=(const HWThemeManager&) = delete;

  // True when the user's "AppleInterfaceStyle" setting is the string "Dark". macOS keeps it in
  // the user's global settings; Linux has no such setting of its own, so there it is the key
  // "AppleInterfaceStyle" of the product's settings suite. Thread-safe.
  static bool isDarkMode();

  // Set by the host process when it is the menu-bar process; nothing here reads it.
  bool isMenuApp() const { return isMenuApp_; }
  void setIsMenuApp(bool menuApp) { isMenuApp_ = menuApp; }

 private:
  static void handleInterfaceThemeChangedNotification();

  std::unique_ptr<platform::GlobalNotifications::Token> observation_;
  std::atomic<bool> isMenuApp_{false};
};

}  // namespace corvane
