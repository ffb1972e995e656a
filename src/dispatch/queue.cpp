// Queues that follow the backend in force: each call goes to the virtual agenda while virtual
// time is installed, else to the real backend of this operating system.
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "dispatch/agenda.h"
#include "dispatch/backend.h"

namespace corvane::dispatch {
namespace {

// The queue whose item the calling thread is running (null outside queue work).
thread_local const Queue* tCurrentQueue = nullptr;

class CurrentQueueScope {
 public:
  explicit CurrentQueueScope(const Queue* queue) : previous_(tCurrentQueue) { tCurrentQueue = queue; }
  ~CurrentQueueScope() { tCurrentQueue = previous_; }
  CurrentQueueScope(const CurrentQueueScope&) = delete;
  CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

 private:
  const Queue* previous_;
};

class RoutedQueue final : public Queue, public std::enable_shared_from_this<RoutedQueue> {
 public:
  RoutedQueue(std::string label, bool isMain) : Queue(std::move(label)), isMain_(isMain) {}

  void async(std::function<void()> work) override {
    auto item = wrap(std::move(work));
    if (auto agenda = detail::installedAgenda()) {
      agenda->postAfter(this, 0, std::move(item));
    } else {
      real().post(std::move(item));
    }
  }

  void asyncAfter(std::chrono::nanoseconds delay, std::function<void()> work) override {
    auto item = wrap(std::move(work));
    if (auto agenda = detail::installedAgenda()) {
      agenda->postAfter(this, delay.count(), std::move(item));
    } else {
      postAtReal(detail::addClamped(detail::realMonotonicNanos(), delay.count()), std::move(item));
    }
  }

  void asyncAt(std::int64_t deadlineNanos, std::function<void()> work) override {
    auto item = wrap(std::move(work));
    if (auto agenda = detail::installedAgenda()) {
      agenda->post(this, deadlineNanos, std::move(item));
    } else {
      postAtReal(deadlineNanos, std::move(item));
    }
  }

 protected:
  void syncImpl(const std::function<void()>& work) override {
    if (auto agenda = detail::installedAgenda()) {
      // One thread drives virtual time, so waiting would never end: run what this queue owes
      // first, then the work, here.
      agenda->drainQueue(this);
      runAsCurrent(work);
    } else {
      Queue::syncImpl(work);
    }
  }

 private:
  std::function<void()> wrap(std::function<void()> work) {
    return [self = shared_from_this(), work = std::move(work)] { self->runAsCurrent(work); };
  }

  // Work already due skips the backend's timers (a late timer's catch-up tick comes this way).
  void postAtReal(std::int64_t deadline, std::function<void()> item) {
    if (deadline <= detail::realMonotonicNanos()) {
      real().post(std::move(item));
    } else {
      real().postAt(deadline, std::move(item));
    }
  }

  detail::RealQueueCore& real() {
    std::call_once(realOnce_, [this] { real_ = detail::makeRealQueueCore(label(), isMain_); });
    return *real_;
  }

  const bool isMain_;
  std::once_flag realOnce_;
  std::unique_ptr<detail::RealQueueCore> real_;
};

}  // namespace

Queue::Queue(std::string label) : label_(std::move(label)) {}

Queue::~Queue() = default;

void Queue::asyncAt(std::int64_t deadlineNanos, std::function<void()> work) {
  asyncAfter(std::chrono::nanoseconds(deadlineNanos - monotonicNanos()), std::move(work));
}

void Queue::sync(const std::function<void()>& work) {
  if (isCurrent()) {
    work();
    return;
  }
  syncImpl(work);
}

bool Queue::isCurrent() const { return tCurrentQueue == this; }

void Queue::runAsCurrent(const std::function<void()>& work) {
  CurrentQueueScope scope(this);
  work();
}

void Queue::syncImpl(const std::function<void()>& work) {
  std::mutex lock;
  std::condition_variable finished;
  bool done = false;
  async([&] {
    work();
    // Notify under the lock: once it is released the waiter may return and destroy both.
    std::lock_guard guard(lock);
    done = true;
    finished.notify_one();
  });
  std::unique_lock wait(lock);
  finished.wait(wait, [&] { return done; });
}

std::shared_ptr<Queue> mainQueue() {
  // Never destroyed: work pending at exit may still refer to it.
  static auto* queue = new std::shared_ptr<RoutedQueue>(std::make_shared<RoutedQueue>("com.apple.main-thread", true));
  return *queue;
}

std::shared_ptr<Queue> serialQueue(std::string label) {
  return std::make_shared<RoutedQueue>(std::move(label), false);
}

double now() {
  if (auto agenda = detail::installedAgenda()) {
    return agenda->start + static_cast<double>(agenda->clockNanos()) / 1e9;
  }
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

std::int64_t monotonicNanos() {
  if (auto agenda = detail::installedAgenda()) return agenda->clockNanos();
  return detail::realMonotonicNanos();
}

void runMainQueue() {
  if (detail::installedAgenda()) return;
  detail::realRunMain();
}

void stopMainQueue() { detail::realStopMain(); }

}  // namespace corvane::dispatch
