#include "corvane/settings/notification_utils.h"

#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/settings_keys.h"

namespace corvane {
namespace {

std::mutex gAppModeLock;
std::function<std::uint64_t()> gAppModeProvider;

}  // namespace

void HWNotificationUtils::postGlobalNotification(const std::string& name) { postGlobalNotification(name, std::nullopt); }

void HWNotificationUtils::postGlobalNotification(const std::string& name,
                                                 const std::optional<nlohmann::json>& userInfo) {
  // The centre of the platform installed now, so that a post made before the platform changes
  // still goes where the caller meant.
  auto centre = platform::current().service<platform::GlobalNotifications>().shared_from_this();
  nlohmann::json info = userInfo && userInfo->is_object() ? *userInfo : nlohmann::json::object();
  dispatch::mainQueue()->async([centre = std::move(centre), name, info = std::move(info)]() mutable {
    info[std::string(settings::kAppModeKey)] = appMode();
    centre->post(name, info);
  });
}

void HWNotificationUtils::setAppModeProvider(std::function<std::uint64_t()> provider) {
  std::lock_guard guard(gAppModeLock);
  gAppModeProvider = std::move(provider);
}

std::uint64_t HWNotificationUtils::appMode() {
  std::function<std::uint64_t()> provider;
  {
    std::lock_guard guard(gAppModeLock);
    provider = gAppModeProvider;
  }
  return provider ? provider() : 0;
}

}  // namespace corvane
