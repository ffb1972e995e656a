// The backends of GlobalNotifications and the observer list they share.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/global_notifications.h"

namespace corvane::platform {

// The observers of one centre. A delivery calls each matching observer in registration order
// on the delivering thread, outside the registry's lock. Thread-safe.
class ObserverRegistry : public std::enable_shared_from_this<ObserverRegistry> {
 public:
  std::unique_ptr<GlobalNotifications::Token> add(std::optional<std::string> name,
                                                   GlobalNotifications::Observer observer);
  // Hands `name` and `userInfo` to every observer registered now for that name or for all.
  void deliver(const std::string& name, const nlohmann::json& userInfo);
  // Hands them only to the observers registered for exactly `observed` (nullopt: for all), for
  // centres that observe each name separately.
  void deliverToObserversOf(const std::optional<std::string>& observed, const std::string& name,
                            const nlohmann::json& userInfo);

  struct Entry {
    std::optional<std::string> name;
    GlobalNotifications::Observer observer;
    std::atomic<bool> live{true};
  };

 private:
  void erase(const std::shared_ptr<Entry>& entry);
  template <class Matches>
  void deliverIf(Matches matches, const std::string& name, const nlohmann::json& userInfo);
  friend class RegistryToken;

  mutable std::mutex lock_;
  std::vector<std::shared_ptr<Entry>> entries_;
};

// `userInfo` when it is an object, else an empty object: user info always travels as one.
nlohmann::json userInfoObject(const nlohmann::json& userInfo);

// The host's centre (defined in the folder of this operating system).
std::shared_ptr<GlobalNotifications> nativeGlobalNotifications();

#if defined(__linux__)
// A Unix socket named by a D-Bus address: a file path, or an abstract name (without its
// leading NUL).
struct BusSocket {
  std::string name;
  bool abstract = false;
  bool operator==(const BusSocket&) const = default;
};
// The entries of a D-Bus address list ("unix:path=/run/user/1000/bus,guid=…;tcp:host=…"), in
// order: the unescaped socket of each "unix:path=" or "unix:abstract=" entry, nullopt for an
// entry of any other kind.
std::vector<std::optional<BusSocket>> parseBusAddress(std::string_view address);

// The D-Bus session bus at `address`, or null (with `error` set) when it cannot be reached.
std::shared_ptr<GlobalNotifications> busNotifications(const std::string& address, std::string* error);
// The bus at `address` when one is given and reachable; else the in-process centre, saying so
// once per process through the console log.
std::shared_ptr<GlobalNotifications> busOrInProcessNotifications(const char* address);
#endif

}  // namespace corvane::platform
