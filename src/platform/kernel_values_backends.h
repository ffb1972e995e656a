// The backends of KernelValues and the byte encodings they share.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "corvane/platform/kernel_values.h"

namespace corvane::platform {

// The host's kernel values (defined in the folder of this operating system).
std::shared_ptr<KernelValues> nativeKernelValues();

namespace kernel_bytes {

// A string value as the kernel hands it out: the text and its terminating NUL.
inline std::string fromString(std::string_view text) {
  std::string bytes(text);
  bytes.push_back('\0');
  return bytes;
}

// A 4-byte integer in host order.
inline std::string fromInt32(int32_t value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// An 8-byte integer in host order.
inline std::string fromInt64(int64_t value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

}  // namespace kernel_bytes

namespace sim {

// True for the names whose value the Mac's kernel hands out as an 8-byte integer.
bool isSixtyFourBitValue(std::string_view name);

// The bytes of one recorded "sysctl" entry: strings with a NUL; integral numbers as 8 bytes for
// the 64-bit names, else 4 bytes when they fit in an int32 and 8 when not; booleans as a 4-byte
// 0 or 1. Anything else (non-integral numbers, arrays, objects, null) gives nothing.
std::optional<std::string> encodeSysctlValue(std::string_view name, const nlohmann::json& value);

// Kernel values answered from a recorded "sysctl" map (an object; anything else is empty).
std::shared_ptr<KernelValues> kernelValuesFromSysctl(const nlohmann::json& sysctl);

}  // namespace sim
}  // namespace corvane::platform
