// The backends of ProcessorLoad.
#pragma once

#include <memory>

#include "corvane/platform/processor_load.h"

namespace corvane::platform {

// The host's counters (defined in the folder of this operating system).
std::shared_ptr<ProcessorLoad> nativeProcessorLoad();

}  // namespace corvane::platform
