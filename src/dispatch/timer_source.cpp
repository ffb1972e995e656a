// Repeating timer sources built on the queues' deadline posting, so that the same code runs on
// the real backends and on virtual time.
#include <algorithm>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "dispatch/agenda.h"
#include "dispatch/backend.h"

namespace corvane::dispatch {

// Each arming posts one tick for one deadline; a tick carries the arming id it was made for,
// so a tick left over from an earlier schedule (or from before cancel) does nothing.
struct TimerSource::State : std::enable_shared_from_this<TimerSource::State> {
  explicit State(std::shared_ptr<Queue> q) : queue(std::move(q)) {}

  void arm(std::unique_lock<std::mutex>& guard, std::int64_t when, std::int64_t deadline) {
    auto id = ++armId;
    generation = detail::backendGeneration();
    guard.unlock();
    queue->asyncAt(when, [self = shared_from_this(), id, deadline] { self->fire(id, deadline); });
  }

  void fire(std::uint64_t id, std::int64_t deadline) {
    std::unique_lock guard(lock);
    if (cancelled || id != armId) return;
    if (generation != detail::backendGeneration()) {
      // The clock was swapped (virtual time installed) since this tick was armed: its
      // deadline belongs to the other clock, so start over on the current one.
      auto next = detail::addClamped(monotonicNanos(), interval > 0 ? interval : 0);
      arm(guard, next, next);
      return;
    }
    if (interval > 0) {
      // A tick that comes late (resumed after its start, or a busy queue) stands for every
      // deadline that passed meanwhile; the next one keeps the schedule's phase.
      auto arrived = monotonicNanos();
      if (arrived > deadline) deadline = detail::addClamped(deadline, (arrived - deadline) / interval * interval);
    }
    auto work = handler;
    guard.unlock();
    if (work && *work) (*work)();
    work.reset();  // if cancelled meanwhile, the handler's captures go here, unlocked
    guard.lock();
    if (cancelled || id != armId || interval <= 0) return;
    auto current = monotonicNanos();
    auto next = detail::addClamped(deadline, interval);
    if (next > current) {
      arm(guard, next, next);
    } else {
      // Late: ticks missed while the handler ran become one tick now, and the schedule keeps
      // its phase from the last deadline that passed.
      auto missed = (current - deadline) / interval;
      arm(guard, current, detail::addClamped(deadline, missed * interval));
    }
  }

  const std::shared_ptr<Queue> queue;
  std::mutex lock;
  std::shared_ptr<std::function<void()>> handler;
  bool scheduled = false;
  bool resumed = false;
  bool cancelled = false;
  std::int64_t firstDeadline = 0;
  std::int64_t interval = 0;
  std::int64_t leeway = 0;
  std::uint64_t armId = 0;
  std::uint64_t generation = 0;
};

TimerSource::TimerSource(std::shared_ptr<Queue> queue)
    : state_(std::make_shared<State>(queue ? std::move(queue) : mainQueue())) {}

TimerSource::~TimerSource() { cancel(); }

void TimerSource::schedule(std::chrono::nanoseconds start, std::chrono::nanoseconds interval,
                           std::chrono::nanoseconds leeway) {
  std::unique_lock guard(state_->lock);
  if (state_->cancelled) return;
  state_->scheduled = true;
  state_->firstDeadline = detail::addClamped(monotonicNanos(), std::max<std::int64_t>(start.count(), 0));
  state_->interval = interval.count();
  state_->leeway = leeway.count();
  if (state_->resumed) {
    state_->arm(guard, state_->firstDeadline, state_->firstDeadline);
  }
}

void TimerSource::setHandler(std::function<void()> handler) {
  auto replacement = std::make_shared<std::function<void()>>(std::move(handler));
  std::unique_lock guard(state_->lock);
  if (state_->cancelled) return;
  state_->handler.swap(replacement);
  guard.unlock();  // the old handler's captures are released outside the lock
}

void TimerSource::resume() {
  std::unique_lock guard(state_->lock);
  if (state_->cancelled || state_->resumed) return;
  state_->resumed = true;
  if (state_->scheduled) {
    state_->arm(guard, state_->firstDeadline, state_->firstDeadline);
  }
}

void TimerSource::cancel() {
  std::shared_ptr<std::function<void()>> released;
  std::lock_guard guard(state_->lock);
  state_->cancelled = true;
  released.swap(state_->handler);
  ++state_->armId;
}

bool TimerSource::isCancelled() const {
  std::lock_guard guard(state_->lock);
  return state_->cancelled;
}

const std::shared_ptr<Queue>& TimerSource::queue() const { return state_->queue; }

std::chrono::nanoseconds TimerSource::interval() const {
  std::lock_guard guard(state_->lock);
  return std::chrono::nanoseconds(state_->interval);
}

std::chrono::nanoseconds TimerSource::leeway() const {
  std::lock_guard guard(state_->lock);
  return std::chrono::nanoseconds(state_->leeway);
}

std::shared_ptr<TimerSource> makeTimer(std::shared_ptr<Queue> queue) {
  return std::make_shared<TimerSource>(std::move(queue));
}

}  // namespace corvane::dispatch
