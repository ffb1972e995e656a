#include "corvane/settings/notification_utils.h"

#include <atomic>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/settings_keys.h"

namespace corvane {
namespace {

std::mutex gAppModeLock;
std::function<std::uint64_t()> gAppModeProvider;

// Keeps the centre's registration, and stops the calls it has already queued.
class MainQueueToken final : public platform::GlobalNotifications::Token {
 public:
  MainQueueToken(std::shared_ptr<std::atomic<bool>> live, std::unique_ptr<platform::GlobalNotifications::Token> inner)
      : live_(std::move(live)), inner_(std::move(inner)) {}
  ~MainQueueToken() override {
    *live_ = false;
    inner_.reset();
  }

 private:
  std::shared_ptr<std::atomic<bool>> live_;
  std::unique_ptr<platform::GlobalNotifications::Token> inner_;
};

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

std::unique_ptr<platform::GlobalNotifications::Token> HWNotificationUtils::addObserver(
    std::optional<std::string> name, platform::GlobalNotifications::Observer observer) {
  auto live = std::make_shared<std::atomic<bool>>(true);
  auto shared = std::make_shared<const platform::GlobalNotifications::Observer>(std::move(observer));
  auto inner = platform::current().service<platform::GlobalNotifications>().addObserver(
      std::move(name), [live, shared](const std::string& posted, const nlohmann::json& userInfo) {
        dispatch::mainQueue()->async([live, shared, posted, userInfo] {
          if (*live && *shared) (*shared)(posted, userInfo);
        });
      });
  return std::make_unique<MainQueueToken>(std::move(live), std::move(inner));
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
