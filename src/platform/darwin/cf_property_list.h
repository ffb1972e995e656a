// Property lists of CoreFoundation and their JSON form, for the settings suite and the
// distributed notifications.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <utility>

#include <nlohmann/json.hpp>

namespace corvane::platform::darwin {

// Owns one CoreFoundation reference (released when it goes).
class CFOwned {
 public:
  explicit CFOwned(CFTypeRef ref = nullptr) : ref_(ref) {}
  ~CFOwned() {
    if (ref_ != nullptr) CFRelease(ref_);
  }
  CFOwned(CFOwned&& other) noexcept : ref_(other.ref_) { other.ref_ = nullptr; }
  CFOwned& operator=(CFOwned&& other) noexcept {
    std::swap(ref_, other.ref_);
    return *this;
  }
  CFOwned(const CFOwned&) = delete;
  CFOwned& operator=(const CFOwned&) = delete;
  CFTypeRef get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }

 private:
  CFTypeRef ref_;
};

// A new CFString of UTF-8 `text`.
CFOwned makeString(const std::string& text);
// `string` as UTF-8 ("" when it cannot be converted).
std::string toUtf8(CFStringRef string);
// The property list of `value` (null when `value` holds null or binary anywhere).
CFOwned toPropertyList(const nlohmann::json& value);
// The JSON form of `plist`: dates become seconds since 1970; data and unknown types, and
// dictionary entries whose key is not a string, are dropped (null at the top).
nlohmann::json toJson(CFTypeRef plist);

}  // namespace corvane::platform::darwin
