// The Mac's power sources, through the power-source interface of IOKit.
#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>

#include "platform/darwin/cf_property_list.h"
#include "platform/power_sources_backends.h"

namespace corvane::platform {
namespace {

class IOKitPowerSources final : public PowerSources {
 public:
  std::vector<PowerSourceDescription> sources() const override {
    std::vector<PowerSourceDescription> sources;
    darwin::CFOwned info(IOPSCopyPowerSourcesInfo());
    if (!info) return sources;
    darwin::CFOwned list(IOPSCopyPowerSourcesList(info.get()));
    if (!list) return sources;
    const auto array = static_cast<CFArrayRef>(list.get());
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
      // The description belongs to the copied information: not released here.
      const CFDictionaryRef description = IOPSGetPowerSourceDescription(info.get(), CFArrayGetValueAtIndex(array, i));
      PowerSourceDescription source;
      if (description != nullptr) {
        const void* state = CFDictionaryGetValue(description, CFSTR(kIOPSPowerSourceStateKey));
        if (state != nullptr && CFGetTypeID(state) == CFStringGetTypeID()) {
          source.powerSourceState = darwin::toUtf8(static_cast<CFStringRef>(state));
        }
        const void* charging = CFDictionaryGetValue(description, CFSTR(kIOPSIsChargingKey));
        if (charging != nullptr && CFGetTypeID(charging) == CFBooleanGetTypeID()) {
          source.isCharging = CFBooleanGetValue(static_cast<CFBooleanRef>(charging)) != 0;
        }
      }
      sources.push_back(std::move(source));
    }
    return sources;
  }
};

}  // namespace

std::shared_ptr<PowerSources> nativePowerSources() { return std::make_shared<IOKitPowerSources>(); }

}  // namespace corvane::platform
