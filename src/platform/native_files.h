// The user's real file locations on this operating system (one implementation per OS folder).
#pragma once

#include <memory>

#include "corvane/platform/platform.h"

namespace corvane::platform {

std::shared_ptr<FileLocations> nativeFileLocations();

}  // namespace corvane::platform
