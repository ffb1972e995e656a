#include "corvane/monitors/monitor_timer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace corvane {
namespace {

std::mutex gProviderLock;
std::function<std::int64_t()> gSyncStartTimeProvider;  // guarded by gProviderLock

// The slack the system may add to each tick to save power.
constexpr std::chrono::nanoseconds kLeeway{100'000'000};

// interval × 1e9 as an unsigned count of nanoseconds, as the platform's timer takes it, then
// held in the signed count our timers use (saturating instead of overflowing).
std::chrono::nanoseconds repeatPeriod(double interval) {
  double nanos = interval * 1e9;
  std::uint64_t unsignedNanos = nanos >= 18446744073709551615.0 ? UINT64_MAX : static_cast<std::uint64_t>(nanos);
  return std::chrono::nanoseconds(static_cast<std::int64_t>(std::min<std::uint64_t>(unsignedNanos, INT64_MAX)));
}

}  // namespace

void setSyncStartTimeProvider(std::function<std::int64_t()> provider) {
  std::lock_guard guard(gProviderLock);
  gSyncStartTimeProvider = std::move(provider);
}

std::int64_t syncStartTime() {
  std::function<std::int64_t()> provider;
  {
    std::lock_guard guard(gProviderLock);
    provider = gSyncStartTimeProvider;
  }
  return provider ? provider() : 0;
}

HWMonitorTimer::HWMonitorTimer() : internalQueue_(dispatch::serialQueue("com.HWMonitorTimer.internalQueue")) {}

HWMonitorTimer::~HWMonitorTimer() { stop(); }

std::string HWMonitorTimer::identifier() const {
  std::lock_guard guard(lock_);
  return identifier_;
}

void HWMonitorTimer::setIdentifier(std::string identifier) {
  std::lock_guard guard(lock_);
  identifier_ = std::move(identifier);
}

double HWMonitorTimer::interval() const {
  std::lock_guard guard(lock_);
  return interval_;
}

void HWMonitorTimer::setInterval(double seconds) {
  std::lock_guard guard(lock_);
  interval_ = seconds;
}

double HWMonitorTimer::delay() const {
  std::lock_guard guard(lock_);
  return delay_;
}

void HWMonitorTimer::setDelay(double delay) {
  std::lock_guard guard(lock_);
  delay_ = delay;
}

std::function<void()> HWMonitorTimer::handler() const {
  std::lock_guard guard(lock_);
  return handler_;
}

void HWMonitorTimer::setHandler(std::function<void()> handler) {
  std::lock_guard guard(lock_);
  handler_.swap(handler);
}

std::shared_ptr<dispatch::TimerSource> HWMonitorTimer::timer() const {
  std::lock_guard guard(lock_);
  return timer_;
}

std::shared_ptr<dispatch::Queue> HWMonitorTimer::internalQueue() const {
  std::lock_guard guard(lock_);
  return internalQueue_;
}

void HWMonitorTimer::setInternalQueue(std::shared_ptr<dispatch::Queue> queue) {
  std::lock_guard guard(lock_);
  internalQueue_.swap(queue);
}

double HWMonitorTimer::alignedDelay(double now, std::int64_t syncStartTime, double interval) {
  if (syncStartTime < 1) return 0;
  double difference = now - static_cast<double>(syncStartTime);
  // Whole seconds; the bounds keep the conversions defined for absurd inputs.
  auto elapsed = static_cast<std::int64_t>(std::clamp(difference, 0.0, 9.0e18));
  auto period = std::isfinite(interval) ? static_cast<std::int64_t>(std::clamp(interval, 0.0, 9.0e18)) : 0;
  if (period == 0) return 0;  // a sub-second interval has no whole period to align on
  auto remainder = elapsed % period;
  return remainder != 0 ? static_cast<double>(period - remainder) : 0;
}

void HWMonitorTimer::start(bool sync) {
  if (!(interval() > 0)) return;
  stop();
  double now = dispatch::now();
  // Read outside the lock: the provider reaches into the settings store.
  std::int64_t syncStart = sync ? syncStartTime() : 0;

  std::shared_ptr<dispatch::TimerSource> replaced;
  {
    std::lock_guard guard(lock_);
    if (sync) delay_ = alignedDelay(now, syncStart, interval_);
    auto source = dispatch::makeTimer(internalQueue_);
    // The offset is taken as nanoseconds, not seconds: the first tick is shifted by a few
    // nanoseconds at most. Kept so on purpose, as the timers have always started that way.
    double offset = std::isfinite(delay_) ? std::clamp(delay_, -9.0e18, 9.0e18) : 0.0;
    source->schedule(std::chrono::nanoseconds(static_cast<std::int64_t>(offset)), repeatPeriod(interval_), kLeeway);
    source->setHandler(handler_);
    source->resume();
    // A start() racing this one may have installed a source since stop(): only one survives.
    replaced = std::exchange(timer_, std::move(source));
  }
  if (replaced) replaced->cancel();
}

void HWMonitorTimer::stop() {
  std::shared_ptr<dispatch::TimerSource> running;
  {
    std::lock_guard guard(lock_);
    running.swap(timer_);
  }
  if (running) running->cancel();
}

}  // namespace corvane
