// The backends of DesktopNotifications.
#pragma once

#include <memory>
#include <string>

#include "corvane/platform/desktop_notifications.h"

namespace corvane::platform {

// The host's desktop (defined in the folder of this operating system).
std::shared_ptr<DesktopNotifications> nativeDesktopNotifications();

#if defined(__linux__)
// The notification server of the D-Bus bus at `address` (empty: the session bus the environment
// names). The bus is reached on the first notification, and again after it went away.
std::shared_ptr<DesktopNotifications> busDesktopNotifications(std::string address);
#endif

}  // namespace corvane::platform
