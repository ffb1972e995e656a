// Notifications shown to the person at this computer (the desktop's notification bubbles).
#pragma once

#include <memory>
#include <string>

namespace corvane::platform {

class Platform;

// Shows a short message on the user's desktop. Thread-safe.
class DesktopNotifications {
 public:
  virtual ~DesktopNotifications() = default;

  // The host's desktop, also while the machine is simulated: an alert is meant for whoever sits
  // at this computer, whatever machine the sensors come from. On Linux, the notification server
  // of the D-Bus session bus; on macOS, the system's notification centre.
  static std::shared_ptr<DesktopNotifications> create(const Platform& platform);

  // Shows `summary` with `body` under the product's name. False, with `error` set when given,
  // when nothing on the desktop took it (no notification server, no session bus).
  virtual bool notify(const std::string& summary, const std::string& body, std::string* error) = 0;
};

}  // namespace corvane::platform
