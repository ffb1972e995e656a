// Posting the product's global notifications, marked with the sender's app mode.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "corvane/platform/global_notifications.h"

namespace corvane {

class HWNotificationUtils {
 public:
  // Same as postGlobalNotification(name, nullopt).
  static void postGlobalNotification(const std::string& name);
  // Later, on the main queue: copies `userInfo` (an empty dictionary when absent or not a
  // dictionary), sets "appMode" to this process's app mode, and posts `name` for immediate
  // delivery to every process. Returns before the notification leaves. Thread-safe.
  static void postGlobalNotification(const std::string& name, const std::optional<nlohmann::json>& userInfo);

  // Calls `observer` on the main queue, one call at a time in the order of arrival, for every
  // global notification called `name` (every one when nullopt) that the centre of the platform
  // installed now receives, until the returned token goes. Destroying the token also drops the
  // calls already queued; destroy it on the main queue to be sure none is running.
  static std::unique_ptr<platform::GlobalNotifications::Token> addObserver(
      std::optional<std::string> name, platform::GlobalNotifications::Observer observer);

  // Installs where the app mode comes from (the data manager does, at start); null restores the
  // default, which answers 0. Thread-safe.
  static void setAppModeProvider(std::function<std::uint64_t()> provider);
  // This process's app mode as the provider answers it now.
  static std::uint64_t appMode();
};

}  // namespace corvane
