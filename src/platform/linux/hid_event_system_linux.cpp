// Linux has no HID sensor services of a Mac; the recorded machine answers instead (see
// HidEventSystem::create), so this event system only stands in when no machine could be loaded.
#include "platform/hid_event_system_backends.h"

namespace corvane::platform {
namespace {

class NoHidEventSystem final : public HidEventSystem {
 public:
  bool present() const override { return false; }
  bool copyServices(int, int, int, std::vector<HidService>& into) const override {
    into.clear();
    return false;
  }
};

}  // namespace

std::shared_ptr<HidEventSystem> nativeHidEventSystem() { return std::make_shared<NoHidEventSystem>(); }

}  // namespace corvane::platform
