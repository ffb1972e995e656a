// Linux shows desktop notifications through the notification server of the D-Bus session bus
// (the freedesktop interface every desktop and bar daemon implements): one Notify call each.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "platform/desktop_notifications_backends.h"

namespace corvane::platform {
namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kObjectPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr const char* kAppName = "Corvane";
// A server that takes the call answers at once; one that hangs must not hold the caller long.
constexpr std::uint64_t kCallTimeoutMicroseconds = 5'000'000;
// Let the server choose how long the bubble stays.
constexpr std::int32_t kServerDefaultExpiry = -1;

class BusDesktopNotifications final : public DesktopNotifications {
 public:
  explicit BusDesktopNotifications(std::string address) : address_(std::move(address)) {}

  bool notify(const std::string& summary, const std::string& body, std::string* error) override {
    std::lock_guard guard(lock_);
    try {
      if (!proxy_) connect();
      auto call = proxy_->createMethodCall(kInterface, "Notify");
      call << std::string(kAppName) << std::uint32_t{0} << std::string() << summary << body
           << std::vector<std::string>() << std::map<std::string, sdbus::Variant>() << kServerDefaultExpiry;
      auto reply = proxy_->callMethod(call, kCallTimeoutMicroseconds);
      std::uint32_t id = 0;
      reply >> id;
      return true;
    } catch (const sdbus::Error& e) {
      // The bus may have gone with the session; the next notification connects afresh.
      proxy_.reset();
      connection_.reset();
      if (error != nullptr) *error = e.getMessage().empty() ? e.getName() : e.getMessage();
      return false;
    }
  }

 private:
  void connect() {
    if (!address_.empty()) {
      connection_ = sdbus::createSessionBusConnectionWithAddress(address_);
    } else {
      const char* named = std::getenv("DBUS_SESSION_BUS_ADDRESS");
      if (named == nullptr || named[0] == '\0') {
        throw sdbus::Error("org.freedesktop.DBus.Error.NoServer", "no session bus (DBUS_SESSION_BUS_ADDRESS is unset)");
      }
      connection_ = sdbus::createSessionBusConnectionWithAddress(named);
    }
    // No event loop: the calls are synchronous and the reply is all this connection waits for.
    proxy_ = sdbus::createProxy(*connection_, kService, kObjectPath);
  }

  std::mutex lock_;
  std::string address_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> proxy_;
};

}  // namespace

std::shared_ptr<DesktopNotifications> busDesktopNotifications(std::string address) {
  return std::make_shared<BusDesktopNotifications>(std::move(address));
}

std::shared_ptr<DesktopNotifications> nativeDesktopNotifications() { return busDesktopNotifications({}); }

}  // namespace corvane::platform
