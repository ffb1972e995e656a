// The backends of PrivilegedExecution (internal).
#pragma once

#include <memory>

#include "corvane/platform/privileged_execution.h"

namespace corvane::platform {

// The host's privileged execution (defined in the folder of this operating system).
std::shared_ptr<PrivilegedExecution> nativePrivilegedExecution();

}  // namespace corvane::platform
