// The monitor timer on the virtual clock: alignment, first tick, restart, stop, destruction.
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <thread>

#include <gtest/gtest.h>

#include "corvane/monitors/monitor_timer.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

struct AlignmentCase {
  double now;
  std::int64_t syncStartTime;
  double interval;
  double delay;
};

class AlignmentTest : public ::testing::TestWithParam<AlignmentCase> {};

TEST_P(AlignmentTest, DelayUpToTheNextWholePeriod) {
  const auto& c = GetParam();
  EXPECT_DOUBLE_EQ(HWMonitorTimer::alignedDelay(c.now, c.syncStartTime, c.interval), c.delay);
}

INSTANTIATE_TEST_SUITE_P(AlignmentCases, AlignmentTest,
                         ::testing::Values(AlignmentCase{107.9, 100, 5, 3},      // elapsed 7, r 2
                                           AlignmentCase{110.0, 100, 5, 0},      // on a period
                                           AlignmentCase{107.9, 0, 5, 0},        // no sync start
                                           AlignmentCase{107.9, -20, 5, 0},
                                           AlignmentCase{107.9, 1, 5, 4},        // elapsed 106, r 1
                                           AlignmentCase{99.0, 100, 5, 0},       // start in the future
                                           AlignmentCase{107.9, 100, 5.9, 3},    // period truncated to 5
                                           AlignmentCase{107.9, 100, 0.5, 0},    // period 0: no modulo
                                           AlignmentCase{1.7e9 + 61, 1'700'000'000, 60, 59},
                                           AlignmentCase{107.9, 100, 10, 3}));

class MonitorTimerTest : public ::testing::Test {
 protected:
  void TearDown() override { setSyncStartTimeProvider(nullptr); }

  // A timer counting its ticks into ticks_.
  std::shared_ptr<HWMonitorTimer> countingTimer(double interval) {
    auto timer = std::make_shared<HWMonitorTimer>();
    timer->setInterval(interval);
    timer->setHandler([this] { ++ticks_; });
    return timer;
  }

  std::shared_ptr<dispatch::VirtualTime> time_ = dispatch::installVirtualTime(107.9);
  int ticks_ = 0;
};

TEST_F(MonitorTimerTest, StartsIdleWithItsOwnQueue) {
  HWMonitorTimer timer;
  EXPECT_EQ(timer.timer(), nullptr);
  EXPECT_EQ(timer.delay(), 0);
  EXPECT_EQ(timer.interval(), 0);
  EXPECT_TRUE(timer.identifier().empty());
  ASSERT_NE(timer.internalQueue(), nullptr);
  EXPECT_EQ(timer.internalQueue()->label(), "com.HWMonitorTimer.internalQueue");
  EXPECT_NE(HWMonitorTimer().internalQueue(), timer.internalQueue());
}

TEST_F(MonitorTimerTest, SyncAlignsTheDelayAndAppliesItAsNanoseconds) {
  setSyncStartTimeProvider([] { return std::int64_t{100}; });
  auto timer = countingTimer(5);
  timer->start(true);
  EXPECT_DOUBLE_EQ(timer->delay(), 3);
  auto source = timer->timer();
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->interval(), seconds(5));
  EXPECT_EQ(source->leeway(), milliseconds(100));
  EXPECT_EQ(time_->runUntilIdle(), 0U);
  time_->advance(nanoseconds(2));
  EXPECT_EQ(ticks_, 0);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 1);
  time_->advance(seconds(5) - nanoseconds(1));
  EXPECT_EQ(ticks_, 1);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 2);
}

TEST_F(MonitorTimerTest, SyncWithoutSyncStartTimeStartsAtOnce) {
  auto timer = countingTimer(5);  // default provider: 0
  timer->setDelay(42);
  timer->start(true);
  EXPECT_EQ(timer->delay(), 0);
  time_->runUntilIdle();
  EXPECT_EQ(ticks_, 1);
}

TEST_F(MonitorTimerTest, WithoutSyncTheDelayIsLeftAsItIs) {
  setSyncStartTimeProvider([] { return std::int64_t{100}; });
  auto timer = countingTimer(5);
  timer->setDelay(7);
  timer->start(false);
  EXPECT_EQ(timer->delay(), 7);
  time_->advance(nanoseconds(6));
  EXPECT_EQ(ticks_, 0);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 1);
}

TEST_F(MonitorTimerTest, FirstTickAtOnceThenEveryInterval) {
  auto timer = countingTimer(2);
  timer->start(false);
  time_->runUntilIdle();
  EXPECT_EQ(ticks_, 1);
  time_->advance(seconds(20));
  EXPECT_EQ(ticks_, 11);
  time_->advance(milliseconds(1999));
  EXPECT_EQ(ticks_, 11);
}

TEST_F(MonitorTimerTest, RestartLeavesExactlyOneRunningSource) {
  auto timer = countingTimer(2);
  timer->start(false);
  auto first = timer->timer();
  timer->start(false);
  EXPECT_TRUE(first->isCancelled());
  EXPECT_NE(timer->timer(), first);
  time_->runUntilIdle();
  time_->advance(seconds(10));
  EXPECT_EQ(ticks_, 6);  // 0, 2, 4, 6, 8, 10 once each
}

TEST_F(MonitorTimerTest, RestartTakesTheNewInterval) {
  auto timer = countingTimer(2);
  timer->start(false);
  time_->advance(seconds(4));  // 0, 2, 4
  timer->setInterval(10);
  EXPECT_EQ(timer->timer()->interval(), seconds(2)) << "no effect until the next start";
  timer->start(false);  // 4 (at once), 14
  time_->advance(seconds(10));
  EXPECT_EQ(ticks_, 5);
}

class NotAboveZeroTest : public MonitorTimerTest, public ::testing::WithParamInterface<double> {};

TEST_P(NotAboveZeroTest, StartDoesNothingAndKeepsARunningTimerRunning) {
  auto idle = countingTimer(GetParam());
  idle->start(false);
  EXPECT_EQ(idle->timer(), nullptr);

  auto running = countingTimer(1);
  running->start(false);
  auto source = running->timer();
  running->setInterval(GetParam());
  running->start(true);
  EXPECT_EQ(running->timer(), source);
  time_->advance(seconds(3));
  EXPECT_EQ(ticks_, 4);
}

INSTANTIATE_TEST_SUITE_P(NotAboveZeroIntervals, NotAboveZeroTest, ::testing::Values(0.0, -1.0, -0.0, std::nan("")));

TEST_F(MonitorTimerTest, StopEndsTicksAndTwiceIsHarmless) {
  auto timer = countingTimer(1);
  timer->stop();  // idle: nothing to do
  timer->start(false);
  time_->advance(seconds(2));
  EXPECT_EQ(ticks_, 3);
  timer->stop();
  EXPECT_EQ(timer->timer(), nullptr);
  timer->stop();
  time_->advance(seconds(5));
  EXPECT_EQ(ticks_, 3);
  timer->start(false);  // and it starts again
  time_->runUntilIdle();
  EXPECT_EQ(ticks_, 4);
}

TEST_F(MonitorTimerTest, DestructionStopsTicks) {
  auto timer = countingTimer(1);
  timer->start(false);
  time_->advance(seconds(1));
  EXPECT_EQ(ticks_, 2);
  timer.reset();
  time_->advance(seconds(5));
  EXPECT_EQ(ticks_, 2);
}

TEST_F(MonitorTimerTest, HandlerRunsOnTheTimersQueue) {
  auto timer = std::make_shared<HWMonitorTimer>();
  timer->setInterval(1);
  int onQueue = 0, offQueue = 0;
  timer->setHandler([&] { (timer->internalQueue()->isCurrent() ? onQueue : offQueue)++; });
  timer->start(false);
  time_->advance(seconds(2));
  EXPECT_EQ(onQueue, 3);
  EXPECT_EQ(offQueue, 0);
  timer->stop();
}

TEST_F(MonitorTimerTest, HandlerIsInstalledAtStart) {
  auto timer = countingTimer(1);
  timer->start(false);
  int replaced = 0;
  timer->setHandler([&] { ++replaced; });
  time_->advance(seconds(1));
  EXPECT_EQ(ticks_, 2);
  EXPECT_EQ(replaced, 0);
  timer->start(false);
  time_->runUntilIdle();
  EXPECT_EQ(replaced, 1);
}

TEST(MonitorTimerRealTest, TicksOfOneTimerNeverOverlapEvenWhenLate) {
  // The real backend: a 1 ms timer whose handler takes about 2 ms.
  HWMonitorTimer timer;
  timer.setInterval(0.001);
  std::atomic<int> active{0}, maxActive{0}, ticks{0};
  std::mutex lock;
  std::condition_variable changed;
  timer.setHandler([&] {
    int now = ++active;
    if (now > maxActive) maxActive = now;
    auto until = std::chrono::steady_clock::now() + milliseconds(2);
    while (std::chrono::steady_clock::now() < until) {
    }
    --active;
    std::lock_guard guard(lock);
    ++ticks;
    changed.notify_all();
  });
  timer.start(false);
  {
    std::unique_lock guard(lock);
    ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(10), [&] { return ticks >= 6; }));
  }
  timer.stop();
  timer.internalQueue()->sync([] {});
  EXPECT_EQ(maxActive.load(), 1);
}

}  // namespace
}  // namespace corvane
