// The virtual-time agenda and how queues find the backend in force.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "corvane/dispatch/dispatch.h"

namespace corvane::dispatch {

// Every queue's work while virtual time is installed, ordered by due time then submission.
// Locked for posting from any thread; items run on the thread that drives the clock.
struct VirtualTime::Agenda {
  explicit Agenda(double startSince1970) : start(startSince1970) {}

  struct Item {
    const Queue* queue = nullptr;     // for sync(), which first runs that queue's due items
    std::function<void()> run;        // already marks its queue current while it runs
  };

  // Adds `run` for `queue`, due at `due` ns (clamped to the clock). Dropped once shut down.
  void post(const Queue* queue, std::int64_t due, std::function<void()> run);
  // Adds `run` for `queue`, due `delay` ns after the clock.
  void postAfter(const Queue* queue, std::int64_t delay, std::function<void()> run);
  // Takes the earliest item due at or before `limit`, moving the clock to its due time.
  bool takeNext(std::int64_t limit, Item& out);
  // Runs the items of `queue` due now, in order; returns how many ran.
  std::size_t drainQueue(const Queue* queue);
  // Drops everything and refuses further work.
  void shutdown();
  std::int64_t clockNanos() const;
  void moveClockTo(std::int64_t to);
  std::size_t size() const;

  const double start;

 private:
  mutable std::mutex lock_;
  std::int64_t clock_ = 0;
  std::uint64_t sequence_ = 0;
  bool alive_ = true;
  std::map<std::pair<std::int64_t, std::uint64_t>, Item> items_;
};

namespace detail {
// The installed agenda, or null when the real backend is in force.
std::shared_ptr<VirtualTime::Agenda> installedAgenda();
// Changes whenever virtual time is installed or removed, so timers notice a new clock.
std::uint64_t backendGeneration();
}  // namespace detail

}  // namespace corvane::dispatch
