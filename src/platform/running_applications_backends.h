// The backends of RunningApplications.
#pragma once

#include <memory>

#include "corvane/platform/running_applications.h"

namespace corvane::platform {

// The host's applications (defined in the folder of this operating system).
std::shared_ptr<RunningApplications> nativeRunningApplications();

}  // namespace corvane::platform
