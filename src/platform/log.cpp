#include "platform/log.h"

#include <cstdio>
#include <mutex>

#if defined(__APPLE__)
#include <os/log.h>
#endif

namespace corvane::platform {

void log(const std::string& line) {
#if defined(__APPLE__)
  os_log(OS_LOG_DEFAULT, "%{public}s", line.c_str());
#else
  static std::mutex lock;
  std::lock_guard guard(lock);
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
#endif
}

}  // namespace corvane::platform
