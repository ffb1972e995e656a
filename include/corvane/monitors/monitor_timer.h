// The monitor timer: a block called at a fixed period on the timer's own serial queue.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "corvane/dispatch/dispatch.h"

namespace corvane {

// Where the monitor timer finds the shared sync start time (whole seconds since 1970) when it
// aligns its ticks. The settings store installs the real source; until then it reads 0 (no
// alignment). Thread-safe; null restores the default.
void setSyncStartTimeProvider(std::function<std::int64_t()> provider);
// The current sync start time through the installed provider.
std::int64_t syncStartTime();

// A repeating timer for monitors: idle (no source) or running (one source on internalQueue()).
// Held by std::shared_ptr by its monitor. start/stop and the accessors are thread-safe; the
// handler always runs on internalQueue(), so ticks of one timer never overlap.
class HWMonitorTimer {
 public:
  // Creates the timer's queue, labelled "com.HWMonitorTimer.internalQueue"; idle, interval 0.
  HWMonitorTimer();
  // Stops the timer: no tick starts after destruction begins.
  ~HWMonitorTimer();
  HWMonitorTimer(const HWMonitorTimer&) = delete;
  HWMonitorTimer& operator=(const HWMonitorTimer&) = delete;

  // A label for the timer (e.g. "cpu_load"); empty when none. Not used by the timer.
  std::string identifier() const;
  void setIdentifier(std::string identifier);
  // The period in seconds; a timer whose interval is not above 0 never starts. Takes effect at
  // the next start().
  double interval() const;
  void setInterval(double seconds);
  // The start offset computed by start(true); 0 until then.
  double delay() const;
  void setDelay(double delay);
  // The work of each tick; installed by start(), so a change takes effect at the next start().
  std::function<void()> handler() const;
  void setHandler(std::function<void()> handler);
  // The running source, or null while idle.
  std::shared_ptr<dispatch::TimerSource> timer() const;
  // The queue the handler runs on.
  std::shared_ptr<dispatch::Queue> internalQueue() const;
  void setInternalQueue(std::shared_ptr<dispatch::Queue> queue);

  // Starts, or restarts, ticking every interval() seconds with the first tick at once. With
  // `sync`, delay() is first aligned on the sync start time. Does nothing (and leaves a running
  // timer running) when interval() is not above 0.
  void start(bool sync);
  // Cancels the running source, if any. Harmless when idle.
  void stop();

  // The alignment of start(true): with whole seconds elapsed = max(0, now − syncStartTime) and
  // period = whole seconds of `interval`, the delay up to the next multiple of the period
  // (0 when already on one, when the period is 0, or when syncStartTime < 1).
  static double alignedDelay(double now, std::int64_t syncStartTime, double interval);

 private:
  mutable std::mutex lock_;
  std::string identifier_;
  double interval_ = 0;
  double delay_ = 0;
  std::function<void()> handler_;
  std::shared_ptr<dispatch::TimerSource> timer_;
  std::shared_ptr<dispatch::Queue> internalQueue_;
};

}  // namespace corvane
