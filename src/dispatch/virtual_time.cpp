// The virtual-time executor: one agenda for every queue, driven by the test's clock.
#include <algorithm>
#include <atomic>
#include <vector>

#include "dispatch/agenda.h"
#include "dispatch/backend.h"

namespace corvane::dispatch {
namespace {

std::mutex gInstallLock;
std::shared_ptr<VirtualTime::Agenda> gInstalled;      // guarded by gInstallLock
std::atomic<bool> gVirtual{false};                    // fast path for the real backend
std::atomic<std::uint64_t> gGeneration{0};

}  // namespace

namespace detail {

std::shared_ptr<VirtualTime::Agenda> installedAgenda() {
  if (!gVirtual.load(std::memory_order_acquire)) return nullptr;
  std::lock_guard guard(gInstallLock);
  return gInstalled;
}

std::uint64_t backendGeneration() { return gGeneration.load(std::memory_order_acquire); }

}  // namespace detail

void VirtualTime::Agenda::post(const Queue* queue, std::int64_t due, std::function<void()> run) {
  std::unique_lock guard(lock_);
  if (!alive_) {
    guard.unlock();  // the work's captures may post again when destroyed
    return;
  }
  items_.emplace(std::make_pair(std::max(due, clock_), sequence_++), Item{queue, std::move(run)});
}

void VirtualTime::Agenda::postAfter(const Queue* queue, std::int64_t delay, std::function<void()> run) {
  std::unique_lock guard(lock_);
  if (!alive_) {
    guard.unlock();
    return;
  }
  auto due = detail::addClamped(clock_, std::max<std::int64_t>(delay, 0));
  items_.emplace(std::make_pair(due, sequence_++), Item{queue, std::move(run)});
}

bool VirtualTime::Agenda::takeNext(std::int64_t limit, Item& out) {
  std::lock_guard guard(lock_);
  if (items_.empty()) return false;
  auto first = items_.begin();
  if (first->first.first > limit) return false;
  clock_ = std::max(clock_, first->first.first);
  out = std::move(first->second);
  items_.erase(first);
  return true;
}

std::size_t VirtualTime::Agenda::drainQueue(const Queue* queue) {
  std::size_t count = 0;
  for (;;) {
    Item item;
    {
      std::lock_guard guard(lock_);
      auto it = std::find_if(items_.begin(), items_.end(), [&](const auto& entry) {
        return entry.first.first <= clock_ && entry.second.queue == queue;
      });
      if (it == items_.end()) return count;
      item = std::move(it->second);
      items_.erase(it);
    }
    item.run();
    ++count;
  }
}

void VirtualTime::Agenda::shutdown() {
  decltype(items_) dropped;
  {
    std::lock_guard guard(lock_);
    alive_ = false;
    dropped.swap(items_);
  }
  // `dropped` dies here, outside the lock, since captures may post while they are destroyed.
}

std::int64_t VirtualTime::Agenda::clockNanos() const {
  std::lock_guard guard(lock_);
  return clock_;
}

void VirtualTime::Agenda::moveClockTo(std::int64_t to) {
  std::lock_guard guard(lock_);
  clock_ = std::max(clock_, to);
}

std::size_t VirtualTime::Agenda::size() const {
  std::lock_guard guard(lock_);
  return items_.size();
}

VirtualTime::VirtualTime(std::shared_ptr<Agenda> agenda) : agenda_(std::move(agenda)) {}

VirtualTime::~VirtualTime() {
  {
    std::lock_guard guard(gInstallLock);
    if (gInstalled == agenda_) {
      gInstalled.reset();
      gVirtual.store(false, std::memory_order_release);
      gGeneration.fetch_add(1, std::memory_order_acq_rel);
    }
  }
  agenda_->shutdown();
}

double VirtualTime::now() const { return agenda_->start + static_cast<double>(agenda_->clockNanos()) / 1e9; }

std::int64_t VirtualTime::elapsedNanos() const { return agenda_->clockNanos(); }

void VirtualTime::advance(std::chrono::nanoseconds by) {
  auto target = detail::addClamped(agenda_->clockNanos(), std::max<std::int64_t>(by.count(), 0));
  Agenda::Item item;
  while (agenda_->takeNext(target, item)) {
    item.run();
    item = {};  // release captures before the next item, as a real queue would
  }
  agenda_->moveClockTo(target);
}

std::size_t VirtualTime::runUntilIdle() {
  std::size_t count = 0;
  Agenda::Item item;
  while (agenda_->takeNext(agenda_->clockNanos(), item)) {
    item.run();
    item = {};
    ++count;
  }
  return count;
}

std::size_t VirtualTime::pendingCount() const { return agenda_->size(); }

std::shared_ptr<VirtualTime> installVirtualTime(double startSince1970) {
  auto agenda = std::make_shared<VirtualTime::Agenda>(startSince1970);
  auto time = std::make_shared<VirtualTime>(agenda);
  std::shared_ptr<VirtualTime::Agenda> replaced;
  {
    std::lock_guard guard(gInstallLock);
    replaced = std::move(gInstalled);
    gInstalled = agenda;
    gVirtual.store(true, std::memory_order_release);
    gGeneration.fetch_add(1, std::memory_order_acq_rel);
  }
  return time;
}

}  // namespace corvane::dispatch
