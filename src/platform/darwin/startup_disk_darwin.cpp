// The Mac's start-up disk, as Disk Arbitration describes the medium under "/".
#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include "platform/startup_disk_backends.h"

namespace corvane::platform {
namespace {

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

std::optional<std::string> stringOf(CFDictionaryRef description, CFStringRef key) {
  const auto value = CFDictionaryGetValue(description, key);
  if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return std::nullopt;
  const auto string = static_cast<CFStringRef>(value);
  const auto length = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
  std::string buffer(static_cast<std::size_t>(length), '\0');
  if (!CFStringGetCString(string, buffer.data(), length, kCFStringEncodingUTF8)) return std::nullopt;
  buffer.resize(std::char_traits<char>::length(buffer.c_str()));
  return buffer;
}

class DiskArbitrationStartupDisk final : public StartupDisk {
 public:
  std::optional<StartupDiskDescription> describe() const override {
    CFObject session(DASessionCreate(kCFAllocatorDefault));
    CFObject url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                         reinterpret_cast<const UInt8*>("/"), 1, true));
    if (session.get() == nullptr || url.get() == nullptr) return std::nullopt;
    CFObject disk(DADiskCreateFromVolumePath(kCFAllocatorDefault, static_cast<DASessionRef>(const_cast<void*>(session.get())),
                                             static_cast<CFURLRef>(url.get())));
    if (disk.get() == nullptr) return std::nullopt;
    CFObject copied(DADiskCopyDescription(static_cast<DADiskRef>(const_cast<void*>(disk.get()))));
    if (copied.get() == nullptr) return std::nullopt;
    const auto description = static_cast<CFDictionaryRef>(copied.get());
    StartupDiskDescription result;
    result.mediaName = stringOf(description, kDADiskDescriptionMediaNameKey);
    result.deviceModel = stringOf(description, kDADiskDescriptionDeviceModelKey);
    const auto removable = CFDictionaryGetValue(description, kDADiskDescriptionMediaRemovableKey);
    result.removable = removable != nullptr && CFGetTypeID(removable) == CFBooleanGetTypeID() &&
                       CFBooleanGetValue(static_cast<CFBooleanRef>(removable));
    const auto size = CFDictionaryGetValue(description, kDADiskDescriptionMediaSizeKey);
    int64_t bytes = 0;
    if (size != nullptr && CFGetTypeID(size) == CFNumberGetTypeID() &&
        CFNumberGetValue(static_cast<CFNumberRef>(size), kCFNumberSInt64Type, &bytes) && bytes > 0) {
      result.mediaSize = static_cast<uint64_t>(bytes);
    }
    return result;
  }
};

}  // namespace

std::shared_ptr<StartupDisk> nativeStartupDisk() { return std::make_shared<DiskArbitrationStartupDisk>(); }

}  // namespace corvane::platform
