// The monitor timer on the virtual clock: alignment, first tick, restart, stop, destruction.

#include <gtest/gtest.h>

#include "corvane/monitors/monitor_timer.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

TEST(AlignmentTest, DelayUpToTheNextWholePeriod) {
  struct AlignmentCase {
    double now;
    std::int64_t syncStartTime;
    double interval;
    double delay;
  };

  for (const AlignmentCase& c : std::initializer_list<AlignmentCase>{{107.9, 100, 5, 3},    // elapsed 7, r 2
                                                                     {110.0, 100, 5, 0},    // on a period
                                                                     {107.9, 0, 5, 0},      // no sync start
                                                                     {107.9, 1, 5, 4},      // elapsed 106, r 1
                                                                     {99.0, 100, 5, 0},     // start in the future
                                                                     {107.9, 100, 5.9, 3},  // period truncated to 5
                                                                     {107.9, 100, 0.5, 0},  // period 0: no modulo
                                                                     {1.7e9 + 61, 1'700'000'000, 60, 59}}) {
    EXPECT_DOUBLE_EQ(HWMonitorTimer::alignedDelay(c.now, c.syncStartTime, c.interval), c.delay);
  }
}

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

TEST_F(MonitorTimerTest, OnlySyncAlignsTheDelayWhichIsAppliedAsNanoseconds) {
  setSyncStartTimeProvider([] { return std::int64_t{100}; });
  auto timer = countingTimer(5);
  timer->start(true);
  EXPECT_DOUBLE_EQ(timer->delay(), 3);
  auto source = timer->timer();
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->interval(), seconds(5));
  time_->advance(nanoseconds(2));
  EXPECT_EQ(ticks_, 0);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 1);
  time_->advance(seconds(5) - nanoseconds(1));
  EXPECT_EQ(ticks_, 1);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 2);

  timer->setDelay(7);
  timer->start(false);  // without sync the delay is left as it is
  EXPECT_EQ(timer->delay(), 7);
  time_->advance(nanoseconds(6));
  EXPECT_EQ(ticks_, 2);
  time_->advance(nanoseconds(1));
  EXPECT_EQ(ticks_, 3);
  setSyncStartTimeProvider(nullptr);  // and with sync but no start time it is zero
  timer->setDelay(42);
  timer->start(true);
  EXPECT_EQ(timer->delay(), 0);
}

TEST_F(MonitorTimerTest, ARestartLeavesOneSourceAndStopOrDestructionEndsTheTicks) {
  auto timer = countingTimer(2);
  timer->stop();  // idle: nothing to do
  timer->start(false);
  auto first = timer->timer();
  timer->start(false);
  EXPECT_TRUE(first->isCancelled());
  time_->advance(seconds(20));
  EXPECT_EQ(ticks_, 11);  // at once, then every 2 s
  timer->stop();
  timer->stop();
  time_->advance(seconds(5));
  EXPECT_EQ(ticks_, 11);
  timer->start(false);  // and it starts again
  time_->runUntilIdle();
  EXPECT_EQ(ticks_, 12);
  timer.reset();  // and destruction stops it too
  time_->advance(seconds(5));
  EXPECT_EQ(ticks_, 12);
}

TEST_F(MonitorTimerTest, HandlerIsInstalledAtStartAndRunsOnTheTimersQueue) {
  auto timer = countingTimer(1);
  timer->start(false);
  int onQueue = 0, offQueue = 0;
  timer->setHandler([&] { (timer->internalQueue()->isCurrent() ? onQueue : offQueue)++; });
  time_->advance(seconds(1));
  EXPECT_EQ(ticks_, 2);
  EXPECT_EQ(onQueue + offQueue, 0);
  timer->start(false);
  time_->advance(seconds(1));
  EXPECT_EQ(onQueue, 2);
  EXPECT_EQ(offQueue, 0);
  timer->stop();
}

}  // namespace
}  // namespace corvane
