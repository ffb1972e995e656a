#include "platform/darwin/cf_property_list.h"

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::platform::darwin {

CFOwned makeString(const std::string& text) {
  return CFOwned(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                         static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

std::string toUtf8(CFStringRef string) {
  if (string == nullptr) return {};
  const CFIndex length = CFStringGetLength(string);
  const CFIndex capacity = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8) + 1;
  std::vector<char> buffer(static_cast<std::size_t>(capacity));
  if (!CFStringGetCString(string, buffer.data(), capacity, kCFStringEncodingUTF8)) return {};
  return std::string(buffer.data());
}

CFOwned toPropertyList(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::boolean:
      return CFOwned(CFRetain(value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse));
    case nlohmann::json::value_t::number_unsigned:
    case nlohmann::json::value_t::number_integer: {
      const long long number = value.get<long long>();
      return CFOwned(CFNumberCreate(kCFAllocatorDefault, kCFNumberLongLongType, &number));
    }
    case nlohmann::json::value_t::number_float: {
      const double number = value.get<double>();
      return CFOwned(CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &number));
    }
    case nlohmann::json::value_t::string:
      return makeString(value.get_ref<const std::string&>());
    case nlohmann::json::value_t::array: {
      CFOwned array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
      for (const auto& element : value) {
        CFOwned item = toPropertyList(element);
        if (!item) return CFOwned();
        CFArrayAppendValue(static_cast<CFMutableArrayRef>(const_cast<void*>(array.get())), item.get());
      }
      return array;
    }
    case nlohmann::json::value_t::object: {
      CFOwned dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                                   &kCFTypeDictionaryValueCallBacks));
      for (const auto& [key, element] : value.items()) {
        CFOwned name = makeString(key);
        CFOwned item = toPropertyList(element);
        if (!item) return CFOwned();
        CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(dictionary.get())), name.get(),
                             item.get());
      }
      return dictionary;
    }
    default:
      return CFOwned();
  }
}

nlohmann::json toJson(CFTypeRef plist) {
  if (plist == nullptr) return nullptr;
  const CFTypeID type = CFGetTypeID(plist);
  if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(plist)) != 0;
  if (type == CFNumberGetTypeID()) {
    auto number = static_cast<CFNumberRef>(plist);
    if (CFNumberIsFloatType(number)) {
      double value = 0;
      CFNumberGetValue(number, kCFNumberDoubleType, &value);
      return value;
    }
    long long value = 0;
    CFNumberGetValue(number, kCFNumberLongLongType, &value);
    if (value >= 0) return static_cast<std::uint64_t>(value);
    return static_cast<std::int64_t>(value);
  }
  if (type == CFStringGetTypeID()) return toUtf8(static_cast<CFStringRef>(plist));
  if (type == CFDateGetTypeID()) {
    return CFDateGetAbsoluteTime(static_cast<CFDateRef>(plist)) + kCFAbsoluteTimeIntervalSince1970;
  }
  if (type == CFArrayGetTypeID()) {
    auto array = static_cast<CFArrayRef>(plist);
    nlohmann::json result = nlohmann::json::array();
    for (CFIndex i = 0, count = CFArrayGetCount(array); i < count; ++i) {
      nlohmann::json element = toJson(CFArrayGetValueAtIndex(array, i));
      if (!element.is_null()) result.push_back(std::move(element));
    }
    return result;
  }
  if (type == CFDictionaryGetTypeID()) {
    auto dictionary = static_cast<CFDictionaryRef>(plist);
    const CFIndex count = CFDictionaryGetCount(dictionary);
    std::vector<const void*> keys(static_cast<std::size_t>(count)), values(static_cast<std::size_t>(count));
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    nlohmann::json result = nlohmann::json::object();
    for (CFIndex i = 0; i < count; ++i) {
      if (CFGetTypeID(keys[i]) != CFStringGetTypeID()) continue;
      nlohmann::json element = toJson(values[i]);
      if (!element.is_null()) result[toUtf8(static_cast<CFStringRef>(keys[i]))] = std::move(element);
    }
    return result;
  }
  return nullptr;
}

}  // namespace corvane::platform::darwin
