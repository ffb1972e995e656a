// The Mac's own I/O registry.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <utility>

#include "platform/io_registry_backends.h"

namespace corvane::platform {
namespace {

// An I/O registry object (service or iterator), released when the wrapper goes.
class IOObject {
 public:
  explicit IOObject(io_object_t object = 0) : object_(object) {}
  ~IOObject() {
    if (object_ != 0) IOObjectRelease(object_);
  }
  IOObject(const IOObject&) = delete;
  IOObject& operator=(const IOObject&) = delete;
  io_object_t get() const { return object_; }
  io_object_t* out() { return &object_; }

 private:
  io_object_t object_;
};

// A Core Foundation object obtained under the create rule, released when the wrapper goes.
class CFObject {
 public:
  explicit CFObject(CFTypeRef object) : object_(object) {}
  ~CFObject() {
    if (object_ != nullptr) CFRelease(object_);
  }
  CFObject(const CFObject&) = delete;
  CFObject& operator=(const CFObject&) = delete;
  CFTypeRef get() const { return object_; }

 private:
  CFTypeRef object_;
};

class IOKitRegistry final : public IORegistry {
 public:
  std::optional<std::vector<PciDevice>> pciDevices() const override {
    IOObject iterator;
    // MACH_PORT_NULL asks for the default main port; the matching dictionary is consumed.
    if (IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("IOPCIDevice"),
                                     iterator.out()) != KERN_SUCCESS) {
      return std::nullopt;
    }
    std::vector<PciDevice> devices;
    while (true) {
      IOObject device(IOIteratorNext(iterator.get()));
      if (device.get() == 0) break;
      PciDevice entry;
      CFObject model(IORegistryEntryCreateCFProperty(device.get(), CFSTR("model"),
                                                     kCFAllocatorDefault, 0));
      if (model.get() != nullptr && CFGetTypeID(model.get()) == CFDataGetTypeID()) {
        const auto data = static_cast<CFDataRef>(model.get());
        const auto* bytes = reinterpret_cast<const char*>(CFDataGetBytePtr(data));
        entry.model = std::string(bytes, static_cast<std::size_t>(CFDataGetLength(data)));
      }
      devices.push_back(std::move(entry));
    }
    return devices;
  }

  SmartBattery smartBattery() const override {
    // A machine without a battery has no such service: every property then reads as absent.
    IOObject service(IOServiceGetMatchingService(MACH_PORT_NULL, IOServiceMatching("AppleSmartBattery")));
    const auto property = [&](CFStringRef name) -> std::optional<int64_t> {
      if (service.get() == 0) return std::nullopt;
      CFObject value(IORegistryEntryCreateCFProperty(service.get(), name, kCFAllocatorDefault, 0));
      if (value.get() == nullptr || CFGetTypeID(value.get()) != CFNumberGetTypeID()) return std::nullopt;
      int64_t number = 0;
      if (!CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberSInt64Type, &number)) return std::nullopt;
      return number;
    };
    SmartBattery battery;
    battery.cycleCount = property(CFSTR("CycleCount"));
    battery.maxCapacity = property(CFSTR("MaxCapacity"));
    battery.appleRawMaxCapacity = property(CFSTR("AppleRawMaxCapacity"));
    battery.designCapacity = property(CFSTR("DesignCapacity"));
    return battery;
  }
};

}  // namespace

std::shared_ptr<IORegistry> nativeIORegistry() { return std::make_shared<IOKitRegistry>(); }

}  // namespace corvane::platform
