// macOS carries global notifications on the distributed notification centre, posted for
// immediate delivery. One CoreFoundation observation per observed name feeds the shared
// observer list (the system no longer lets ordinary processes observe every name at once).
#include <algorithm>
#include <mutex>
#include <vector>

#include "platform/darwin/cf_property_list.h"
#include "platform/global_notifications_backends.h"

namespace corvane::platform {
namespace {

// What CoreFoundation calls back with for one observed name (nullopt: every name); it lives as
// long as the centre. A notification matching two observations reaches each observer once,
// through the observation of the name it registered for.
struct CallbackContext {
  std::weak_ptr<ObserverRegistry> registry;
  std::optional<std::string> observed;
};

void received(CFNotificationCenterRef, void* observer, CFNotificationName name, const void*,
              CFDictionaryRef userInfo) {
  auto* context = static_cast<CallbackContext*>(observer);
  auto registry = context->registry.lock();
  if (!registry || name == nullptr) return;
  registry->deliverToObserversOf(context->observed, darwin::toUtf8(name), darwin::toJson(userInfo));
}

class DistributedNotifications final : public GlobalNotifications {
 public:
  ~DistributedNotifications() override {
    for (const auto& context : contexts_) {
      CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), context.get());
    }
  }

  void post(const std::string& name, const nlohmann::json& userInfo) override {
    darwin::CFOwned cfName = darwin::makeString(name);
    darwin::CFOwned info = darwin::toPropertyList(userInfoObject(userInfo));
    CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterGetDistributedCenter(),
                                                    static_cast<CFStringRef>(cfName.get()), nullptr,
                                                    static_cast<CFDictionaryRef>(info.get()),
                                                    kCFNotificationDeliverImmediately);
  }

  std::unique_ptr<Token> addObserver(std::optional<std::string> name, Observer observer) override {
    {
      std::lock_guard guard(lock_);
      const bool known = std::any_of(contexts_.begin(), contexts_.end(),
                                     [&](const auto& context) { return context->observed == name; });
      if (!known) {
        contexts_.push_back(std::make_unique<CallbackContext>(CallbackContext{registry_, name}));
        darwin::CFOwned cfName = name ? darwin::makeString(*name) : darwin::CFOwned();
        CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), contexts_.back().get(), received,
                                        static_cast<CFStringRef>(cfName.get()), nullptr,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
      }
    }
    return registry_->add(std::move(name), std::move(observer));
  }

  bool crossesProcesses() const override { return true; }

 private:
  std::shared_ptr<ObserverRegistry> registry_ = std::make_shared<ObserverRegistry>();
  std::mutex lock_;
  std::vector<std::unique_ptr<CallbackContext>> contexts_;
};

}  // namespace

std::shared_ptr<GlobalNotifications> nativeGlobalNotifications() {
  return std::make_shared<DistributedNotifications>();
}

}  // namespace corvane::platform
