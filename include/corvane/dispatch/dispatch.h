// Queues, timers and the clock the periodic engine runs on.
//
// Three backends sit behind one interface: libdispatch on macOS (a host application's main
// queue is the library's), Asio on Linux (the program runs the main queue on its main thread
// with runMainQueue()), and a virtual-time executor for tests and simulations.
//
// Virtual time is chosen per call, not per queue: every queue made by serialQueue() or
// mainQueue() checks at each async/asyncAfter/sync whether virtual time is installed and, if
// so, puts the work on the virtual agenda. Queues and timers may therefore be made before or
// after installVirtualTime(); only work submitted while it is installed runs virtually. Work
// still pending on the agenda when the VirtualTime object goes is dropped, and a timer armed
// on a virtual clock stops when that clock goes (re-arm it, e.g. by restarting its owner).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace corvane::dispatch {

// A serial queue: work runs one item at a time, in submission order (delayed work in due
// order). Shared by its users; pending work keeps the queue alive.
class Queue {
 public:
  virtual ~Queue();
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  // The label given at creation (for diagnostics; not unique).
  const std::string& label() const { return label_; }
  // Runs `work` on the queue after what was submitted before. Thread-safe.
  virtual void async(std::function<void()> work) = 0;
  // Runs `work` on the queue once `delay` (ns, ≤ 0 means now) has passed. Thread-safe.
  virtual void asyncAfter(std::chrono::nanoseconds delay, std::function<void()> work) = 0;
  // Runs `work` at the monotonic instant `deadline` (the clock of monotonicNanos()).
  // Thread-safe. The default converts to a delay.
  virtual void asyncAt(std::int64_t deadlineNanos, std::function<void()> work);
  // Runs `work` on the queue and waits for it. Never call it from the queue itself (done
  // anyway, it runs the work at once rather than deadlock). Thread-safe.
  void sync(const std::function<void()>& work);
  // True when called from work running on this queue.
  bool isCurrent() const;

 protected:
  explicit Queue(std::string label);
  // Runs one item as this queue's work: isCurrent() is true while it runs.
  void runAsCurrent(const std::function<void()>& work);
  // How sync() waits; the default posts with async() and blocks on a condition variable.
  virtual void syncImpl(const std::function<void()>& work);

 private:
  std::string label_;
};

// The process's main queue (on Linux, run by runMainQueue(); on macOS, the system's).
std::shared_ptr<Queue> mainQueue();
// A new private serial queue labelled `label`.
std::shared_ptr<Queue> serialQueue(std::string label);
// Wall-clock seconds since 1970 (the virtual clock while virtual time is installed).
double now();
// Monotonic nanoseconds since an arbitrary origin (the virtual clock while installed); the
// clock of Queue::asyncAt and of timers.
std::int64_t monotonicNanos();

// A repeating timer source on a queue, the platform's dispatch timer: made suspended, armed by
// schedule(), started by resume(). Ticks run the handler on the queue, never overlapping; ticks
// missed while the handler ran late are coalesced into one, keeping the phase of the schedule.
// Once cancelled it never fires again. Destroying the last reference cancels it. Thread-safe.
class TimerSource {
 public:
  explicit TimerSource(std::shared_ptr<Queue> queue);
  ~TimerSource();
  TimerSource(const TimerSource&) = delete;
  TimerSource& operator=(const TimerSource&) = delete;

  // First tick `start` after now, then every `interval` (≤ 0: once). `leeway` is the slack the
  // system may add to save power (recorded; Asio and virtual time fire on the deadline).
  // Re-scheduling a running source replaces its schedule.
  void schedule(std::chrono::nanoseconds start, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds leeway);
  // The work of each tick, run on the queue.
  void setHandler(std::function<void()> handler);
  // Lets the source fire (it is made suspended). Further calls do nothing.
  void resume();
  // Stops for good and releases the handler (after a running tick finishes).
  void cancel();
  bool isCancelled() const;
  const std::shared_ptr<Queue>& queue() const;
  std::chrono::nanoseconds interval() const;
  std::chrono::nanoseconds leeway() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

// A new suspended timer source whose handler runs on `queue` (null: the main queue).
std::shared_ptr<TimerSource> makeTimer(std::shared_ptr<Queue> queue);

// Runs the main queue on the calling thread until stopMainQueue() (the programs' main loop);
// call it from one thread only (on macOS, the main thread: it runs the main run loop, which
// drains the system's main queue). On Linux a stop requested while it is not running ends the
// next run at once. Returns at once while virtual time is installed.
void runMainQueue();
// Makes runMainQueue() return after the item it is running. Thread-safe.
void stopMainQueue();

// Deterministic time for tests and simulations: while installed, every queue and timer of the
// process runs on one virtual clock and nothing runs until the test advances it. Work runs on
// the thread that calls advance()/runUntilIdle()/sync(), one item at a time; other threads may
// submit work but must not drive the clock concurrently.
class VirtualTime {
 public:
  struct Agenda;
  explicit VirtualTime(std::shared_ptr<Agenda> agenda);
  ~VirtualTime();  // uninstalls (if still installed) and drops pending work
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  // Seconds since 1970 on the virtual clock.
  double now() const;
  // Nanoseconds the clock has advanced since installation.
  std::int64_t elapsedNanos() const;
  // Moves the clock forward by `by`, running everything due on the way, in due order (equal
  // times in submission order), with the clock reading each item's due time as it runs.
  void advance(std::chrono::nanoseconds by);
  // Runs what is due now, including work that this work posts for now; returns the count of
  // items run (a tick of a timer cancelled since it was armed counts, though it does nothing).
  std::size_t runUntilIdle();
  // Items waiting on the agenda (due now or later).
  std::size_t pendingCount() const;

 private:
  std::shared_ptr<Agenda> agenda_;
};

// Installs a virtual clock reading `startSince1970` seconds; it replaces the backend for every
// queue until the returned object goes.
std::shared_ptr<VirtualTime> installVirtualTime(double startSince1970);

}  // namespace corvane::dispatch
