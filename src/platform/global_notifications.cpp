#include "corvane/platform/global_notifications.h"

#include <algorithm>

#include "corvane/platform/platform.h"
#include "platform/global_notifications_backends.h"

namespace corvane::platform {

class RegistryToken final : public GlobalNotifications::Token {
 public:
  RegistryToken(std::weak_ptr<ObserverRegistry> registry, std::shared_ptr<ObserverRegistry::Entry> entry)
      : registry_(std::move(registry)), entry_(std::move(entry)) {}
  ~RegistryToken() override {
    entry_->live = false;
    if (auto registry = registry_.lock()) registry->erase(entry_);
  }

 private:
  std::weak_ptr<ObserverRegistry> registry_;
  std::shared_ptr<ObserverRegistry::Entry> entry_;
};

std::unique_ptr<GlobalNotifications::Token> ObserverRegistry::add(std::optional<std::string> name,
                                                                  GlobalNotifications::Observer observer) {
  auto entry = std::make_shared<Entry>();
  entry->name = std::move(name);
  entry->observer = std::move(observer);
  {
    std::lock_guard guard(lock_);
    entries_.push_back(entry);
  }
  return std::make_unique<RegistryToken>(weak_from_this(), std::move(entry));
}

void ObserverRegistry::deliver(const std::string& name, const nlohmann::json& userInfo) {
  deliverIf([&](const Entry& entry) { return !entry.name || *entry.name == name; }, name, userInfo);
}

void ObserverRegistry::deliverToObserversOf(const std::optional<std::string>& observed, const std::string& name,
                                            const nlohmann::json& userInfo) {
  deliverIf([&](const Entry& entry) { return entry.name == observed; }, name, userInfo);
}

template <class Matches>
void ObserverRegistry::deliverIf(Matches matches, const std::string& name, const nlohmann::json& userInfo) {
  std::vector<std::shared_ptr<Entry>> matching;
  {
    std::lock_guard guard(lock_);
    for (const auto& entry : entries_) {
      if (matches(*entry)) matching.push_back(entry);
    }
  }
  if (matching.empty()) return;
  const nlohmann::json info = userInfoObject(userInfo);
  for (const auto& entry : matching) {
    if (entry->live && entry->observer) entry->observer(name, info);
  }
}

void ObserverRegistry::erase(const std::shared_ptr<Entry>& entry) {
  std::lock_guard guard(lock_);
  entries_.erase(std::remove(entries_.begin(), entries_.end(), entry), entries_.end());
}

nlohmann::json userInfoObject(const nlohmann::json& userInfo) {
  return userInfo.is_object() ? userInfo : nlohmann::json::object();
}

std::shared_ptr<GlobalNotifications> GlobalNotifications::create(const Platform& platform) {
  if (platform.simulated()) return inProcess();
  return nativeGlobalNotifications();
}

}  // namespace corvane::platform
