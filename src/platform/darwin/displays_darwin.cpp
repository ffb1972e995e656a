// The Mac's own active display list.
#include <CoreGraphics/CoreGraphics.h>

#include <algorithm>

#include "platform/displays_backends.h"

namespace corvane::platform {
namespace {

class CoreGraphicsDisplays final : public Displays {
 public:
  std::vector<Display> activeDisplays(std::size_t capacity) const override {
    // Callers ask for a few dozen; the cap only keeps a silly capacity from a silly allocation.
    std::vector<CGDirectDisplayID> ids(std::min<std::size_t>(capacity, 1024));
    uint32_t count = 0;
    std::vector<Display> displays;
    if (ids.empty() ||
        CGGetActiveDisplayList(static_cast<uint32_t>(ids.size()), ids.data(), &count) != kCGErrorSuccess) {
      return displays;
    }
    for (uint32_t i = 0; i < count; ++i) displays.push_back({ids[i], CGDisplayIsBuiltin(ids[i]) != 0, {}});
    return displays;
  }
};

}  // namespace

std::shared_ptr<Displays> nativeDisplays() { return std::make_shared<CoreGraphicsDisplays>(); }

}  // namespace corvane::platform
