// macOS: the sensor services of the HID event system. The client interface is private, so its
// few functions are declared here; every object it hands out is released by a CFRef.
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>

#include "platform/hid_event_system_backends.h"

extern "C" {
typedef struct __IOHIDEventSystemClient* IOHIDEventSystemClientRef;
typedef struct __IOHIDServiceClient* IOHIDServiceClientRef;
typedef struct __IOHIDEvent* IOHIDEventRef;

IOHIDEventSystemClientRef IOHIDEventSystemClientCreate(CFAllocatorRef allocator);
int IOHIDEventSystemClientSetMatching(IOHIDEventSystemClientRef client, CFDictionaryRef match);
CFArrayRef IOHIDEventSystemClientCopyServices(IOHIDEventSystemClientRef client);
CFTypeRef IOHIDServiceClientCopyProperty(IOHIDServiceClientRef service, CFStringRef property);
IOHIDEventRef IOHIDServiceClientCopyEvent(IOHIDServiceClientRef service, int64_t type, int32_t options, int64_t timestamp);
double IOHIDEventGetFloatValue(IOHIDEventRef event, int32_t field);
}

namespace corvane::platform {
namespace {

// Owns one Core Foundation reference (a Create or Copy result).
template <class T>
class CFRef {
 public:
  explicit CFRef(T ref = nullptr) : ref_(ref) {}
  ~CFRef() {
    if (ref_ != nullptr) CFRelease(ref_);
  }
  CFRef(const CFRef&) = delete;
  CFRef& operator=(const CFRef&) = delete;
  T get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }

 private:
  T ref_;
};

CFRef<CFNumberRef> makeNumber(int value) { return CFRef<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value)); }

std::optional<std::string> utf8(CFTypeRef value) {
  if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return std::nullopt;
  auto text = static_cast<CFStringRef>(value);
  if (const char* fast = CFStringGetCStringPtr(text, kCFStringEncodingUTF8)) return std::string(fast);
  const CFIndex capacity = CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
  std::string buffer(static_cast<std::size_t>(capacity), '\0');
  if (!CFStringGetCString(text, buffer.data(), capacity, kCFStringEncodingUTF8)) return std::nullopt;
  buffer.resize(std::char_traits<char>::length(buffer.c_str()));
  return buffer;
}

class DarwinHidEventSystem final : public HidEventSystem {
 public:
  bool present() const override {
#if defined(__arm64__) || defined(__aarch64__)
    return true;
#else
    return false;
#endif
  }

  bool copyServices(int usagePage, int usage, int eventType, std::vector<HidService>& into) const override {
    into.clear();
    CFRef<CFNumberRef> page = makeNumber(usagePage);
    CFRef<CFNumberRef> use = makeNumber(usage);
    if (!page || !use) return false;
    const void* keys[] = {CFSTR("PrimaryUsagePage"), CFSTR("PrimaryUsage")};
    const void* values[] = {page.get(), use.get()};
    CFRef<CFDictionaryRef> matching(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 2,
                                                       &kCFTypeDictionaryKeyCallBacks,
                                                       &kCFTypeDictionaryValueCallBacks));
    CFRef<IOHIDEventSystemClientRef> client(IOHIDEventSystemClientCreate(kCFAllocatorDefault));
    if (!matching || !client) return false;
    IOHIDEventSystemClientSetMatching(client.get(), matching.get());
    CFRef<CFArrayRef> services(IOHIDEventSystemClientCopyServices(client.get()));
    if (!services) return false;

    const CFIndex count = CFArrayGetCount(services.get());
    for (CFIndex i = 0; i < count; ++i) {
      auto service = static_cast<IOHIDServiceClientRef>(const_cast<void*>(CFArrayGetValueAtIndex(services.get(), i)));
      if (service == nullptr) continue;
      HidService entry;
      CFRef<CFTypeRef> product(IOHIDServiceClientCopyProperty(service, CFSTR("Product")));
      entry.product = utf8(product.get());
      CFRef<IOHIDEventRef> event(IOHIDServiceClientCopyEvent(service, eventType, 0, 0));
      if (event) entry.value = IOHIDEventGetFloatValue(event.get(), static_cast<int32_t>(eventType) << 16);
      into.push_back(std::move(entry));
    }
    return true;
  }
};

}  // namespace

std::shared_ptr<HidEventSystem> nativeHidEventSystem() { return std::make_shared<DarwinHidEventSystem>(); }

}  // namespace corvane::platform
