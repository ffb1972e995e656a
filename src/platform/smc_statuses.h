// The IOKit statuses and SMC result bytes that the SMC backends outside macOS answer with, so
// that callers see the same failures whichever backend stands behind the driver.
#pragma once

#include <cstdint>

#include "corvane/platform/smc_key_data.h"

namespace corvane::platform {

inline constexpr kern_return_t kIOReturnNotPrivileged = static_cast<kern_return_t>(0xE00002C1);
inline constexpr kern_return_t kIOReturnBadArgument = static_cast<kern_return_t>(0xE00002C2);
inline constexpr kern_return_t kIOReturnUnsupported = static_cast<kern_return_t>(0xE00002C7);
inline constexpr kern_return_t kIOReturnIOError = static_cast<kern_return_t>(0xE00002CA);
inline constexpr kern_return_t kIOReturnNotOpen = static_cast<kern_return_t>(0xE00002CD);
inline constexpr kern_return_t kIOReturnBusy = static_cast<kern_return_t>(0xE00002D5);
// The not-permitted status: a key this SMC does not let anyone write.
inline constexpr kern_return_t kIOReturnNotWritable = static_cast<kern_return_t>(0xE00002E2);
inline constexpr kern_return_t kIOReturnNotFound = static_cast<kern_return_t>(0xE00002F0);

inline constexpr uint8_t kSMCResultKeyNotFound = 0x84;
inline constexpr uint8_t kSMCResultBadArgument = 0x89;

}  // namespace corvane::platform
