// Global notifications that stay inside this process: the simulated platforms' centre, and the
// fallback when no session bus can be reached.
#include "platform/global_notifications_backends.h"

namespace corvane::platform {
namespace {

class InProcessNotifications final : public GlobalNotifications {
 public:
  void post(const std::string& name, const nlohmann::json& userInfo) override { registry_->deliver(name, userInfo); }
  std::unique_ptr<Token> addObserver(std::optional<std::string> name, Observer observer) override {
    return registry_->add(std::move(name), std::move(observer));
  }
  bool crossesProcesses() const override { return false; }

 private:
  std::shared_ptr<ObserverRegistry> registry_ = std::make_shared<ObserverRegistry>();
};

}  // namespace

std::shared_ptr<GlobalNotifications> GlobalNotifications::inProcess() {
  return std::make_shared<InProcessNotifications>();
}

}  // namespace corvane::platform
