// The pieces each real backend (Asio, libdispatch) provides to the shared queue code.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace corvane::dispatch::detail {

// One serial queue of the real backend. Items already carry the "current queue" marking.
class RealQueueCore {
 public:
  virtual ~RealQueueCore() = default;
  // Runs `work` after everything posted before it. Thread-safe.
  virtual void post(std::function<void()> work) = 0;
  // Runs `work` once realMonotonicNanos() reaches `deadline`. Thread-safe.
  virtual void postAt(std::int64_t deadline, std::function<void()> work) = 0;
};

// Makes the core of a private serial queue (`isMain` false) or of the main queue.
std::unique_ptr<RealQueueCore> makeRealQueueCore(const std::string& label, bool isMain);
// The real monotonic clock in nanoseconds, the one postAt deadlines use.
std::int64_t realMonotonicNanos();
// The real main loop (see runMainQueue/stopMainQueue).
void realRunMain();
void realStopMain();

// Saturating addition for deadlines (intervals may be as large as the type allows).
inline std::int64_t addClamped(std::int64_t a, std::int64_t b) {
  if (b > 0 && a > INT64_MAX - b) return INT64_MAX;
  if (b < 0 && a < INT64_MIN - b) return INT64_MIN;
  return a + b;
}

}  // namespace corvane::dispatch::detail
