// The console log on macOS: the unified log, which keeps concurrent entries whole.
#include <os/log.h>

#include "platform/log.h"

namespace corvane::platform {

void log(const std::string& line) { os_log(OS_LOG_DEFAULT, "%{public}s", line.c_str()); }

}  // namespace corvane::platform
