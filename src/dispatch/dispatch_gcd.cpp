// The real backend on macOS: libdispatch, so that a host application's main queue is the
// library's own. Built only on Apple systems (see sources.cmake).
#ifdef __APPLE__

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <time.h>

#include "dispatch/backend.h"

namespace corvane::dispatch::detail {
namespace {

void runBoxed(void* context) {
  std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(context));
  (*work)();
}

class GcdQueueCore final : public RealQueueCore {
 public:
  GcdQueueCore(const std::string& label, bool isMain)
      : queue_(isMain ? dispatch_get_main_queue() : dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL)),
        owned_(!isMain) {}
  ~GcdQueueCore() override {
    if (owned_) dispatch_release(queue_);
  }
  GcdQueueCore(const GcdQueueCore&) = delete;
  GcdQueueCore& operator=(const GcdQueueCore&) = delete;

  void post(std::function<void()> work) override {
    dispatch_async_f(queue_, new std::function<void()>(std::move(work)), runBoxed);
  }

  void postAt(std::int64_t deadline, std::function<void()> work) override {
    auto delay = deadline - realMonotonicNanos();
    dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, delay > 0 ? delay : 0), queue_,
                     new std::function<void()>(std::move(work)), runBoxed);
  }

 private:
  dispatch_queue_t queue_;
  bool owned_;
};

}  // namespace

std::unique_ptr<RealQueueCore> makeRealQueueCore(const std::string& label, bool isMain) {
  return std::make_unique<GcdQueueCore>(label, isMain);
}

// The clock dispatch_time(DISPATCH_TIME_NOW, …) counts from.
std::int64_t realMonotonicNanos() { return static_cast<std::int64_t>(clock_gettime_nsec_np(CLOCK_UPTIME_RAW)); }

// The main run loop also drains the main dispatch queue.
void realRunMain() { CFRunLoopRun(); }

void realStopMain() { CFRunLoopStop(CFRunLoopGetMain()); }

}  // namespace corvane::dispatch::detail

#endif  // __APPLE__
