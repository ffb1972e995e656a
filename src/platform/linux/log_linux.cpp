// The console log on Linux: standard error, one line per entry.
#include <cstdio>
#include <mutex>

#include "platform/log.h"

namespace corvane::platform {

void log(const std::string& line) {
  static std::mutex lock;
  std::lock_guard guard(lock);
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
}

}  // namespace corvane::platform
