// Notifications that every process of the product receives (the change announcements).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace corvane::platform {

class Platform;

// A broadcast centre across the processes of the user's session: a posted name and user info
// (a JSON object) reach every observer of every process, the posting one included.
//
// Backends: the distributed notification centre on macOS (immediate delivery); the D-Bus
// session bus on Linux, falling back to a centre inside this process when no bus is reachable;
// and that in-process centre on simulated platforms. Thread-safe.
class GlobalNotifications : public std::enable_shared_from_this<GlobalNotifications> {
 public:
  // Called with the posted name and user info (an object, maybe empty) on the thread that
  // delivers: inside post() for a centre of this process only, else on the centre's receiving
  // thread. Observers that want the main queue hop there themselves
  // (HWNotificationUtils::addObserver does).
  using Observer = std::function<void(const std::string& name, const nlohmann::json& userInfo)>;

  // Keeps an observer registered; destroying it removes the observer, so no later call starts.
  // A call already running on another thread may still be finishing.
  class Token {
   public:
    virtual ~Token() = default;
  };

  virtual ~GlobalNotifications() = default;

  // Makes the centre for `platform`: in-process when the platform is simulated, else the host's.
  static std::shared_ptr<GlobalNotifications> create(const Platform& platform);
  // A centre that reaches this process only (what simulated platforms use), for tests.
  static std::shared_ptr<GlobalNotifications> inProcess();

  // Posts `name` with `userInfo` (an object; anything else is sent as an empty object) to every
  // process. Returns once the notification has left this process.
  virtual void post(const std::string& name, const nlohmann::json& userInfo) = 0;
  // Calls `observer` for every notification called `name`, or for every notification when
  // `name` is nullopt, until the returned token goes.
  virtual std::unique_ptr<Token> addObserver(std::optional<std::string> name, Observer observer) = 0;
  // True when notifications go beyond this process (false for the in-process centre and the
  // fallback used when no bus is reachable).
  virtual bool crossesProcesses() const = 0;
};

}  // namespace corvane::platform
