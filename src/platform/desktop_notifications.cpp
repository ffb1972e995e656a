#include "corvane/platform/desktop_notifications.h"

#include "platform/desktop_notifications_backends.h"

namespace corvane::platform {

std::shared_ptr<DesktopNotifications> DesktopNotifications::create(const Platform& /*platform*/) {
  return nativeDesktopNotifications();
}

}  // namespace corvane::platform
