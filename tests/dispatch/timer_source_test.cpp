// Timer sources on the virtual clock: first tick, period, re-scheduling, coalescing, cancel.
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"

namespace corvane::dispatch {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

class TimerSourceTest : public ::testing::Test {
 protected:
  // Seconds since installation at each tick.
  std::function<void()> recordTicks() {
    return [this] { ticks_.push_back(static_cast<double>(time_->elapsedNanos()) / 1e9); };
  }

  std::shared_ptr<VirtualTime> time_ = installVirtualTime(0.0);
  std::shared_ptr<Queue> queue_ = serialQueue("timer");
  std::vector<double> ticks_;
};

TEST_F(TimerSourceTest, MadeSuspendedThenTicksFromStartEveryInterval) {
  auto timer = makeTimer(queue_);
  timer->schedule(seconds(1), seconds(2), milliseconds(100));
  timer->setHandler(recordTicks());
  time_->advance(seconds(5));
  EXPECT_TRUE(ticks_.empty()) << "a source is made suspended";
  timer->resume();  // the start deadline was taken at schedule(): 1 s, already passed
  timer->resume();  // and resuming twice arms it once
  time_->advance(seconds(4));
  EXPECT_EQ(ticks_, (std::vector<double>{5, 7, 9}));
}

TEST_F(TimerSourceTest, RescheduleReplacesTheRunningScheduleAndAZeroIntervalFiresOnce) {
  auto timer = makeTimer(queue_);
  timer->setHandler(recordTicks());
  timer->resume();
  timer->schedule(nanoseconds(0), seconds(2), nanoseconds(0));
  time_->advance(seconds(3));                               // ticks at 0 and 2
  timer->schedule(seconds(1), seconds(5), nanoseconds(0));  // from 3: 4, 9, 14
  time_->advance(seconds(12));
  timer->schedule(seconds(1), nanoseconds(0), nanoseconds(0));  // a zero interval fires once: at 16
  time_->advance(seconds(10));
  EXPECT_EQ(ticks_, (std::vector<double>{0, 2, 4, 9, 14, 16}));
  EXPECT_EQ(time_->pendingCount(), 0U);
}

TEST_F(TimerSourceTest, CancelStopsForGoodAndReleasesTheHandler) {
  auto timer = makeTimer(queue_);
  auto token = std::make_shared<int>(0);
  std::weak_ptr<int> watch = token;
  int ticks = 0;
  timer->setHandler([&ticks, token = std::move(token)] { ++ticks; });
  timer->schedule(nanoseconds(0), seconds(1), nanoseconds(0));
  timer->resume();
  time_->advance(seconds(2));
  EXPECT_EQ(ticks, 3);
  timer->cancel();
  EXPECT_TRUE(timer->isCancelled());
  EXPECT_TRUE(watch.expired());
  // Neither re-scheduling nor resuming brings it back.
  timer->schedule(nanoseconds(0), seconds(1), nanoseconds(0));
  timer->setHandler([&] { ticks += 100; });
  timer->resume();
  time_->advance(seconds(5));
  EXPECT_EQ(ticks, 3);
}

TEST_F(TimerSourceTest, CancelFromItsOwnHandlerOrDestroyingTheSourceEndsTheTicks) {
  auto timer = makeTimer(queue_);
  auto other = makeTimer(queue_);
  int ticks = 0, otherTicks = 0;
  timer->setHandler([&] {
    if (++ticks == 2) timer->cancel();
  });
  other->setHandler([&] { ++otherTicks; });
  for (auto* source : {&timer, &other}) {
    (*source)->schedule(nanoseconds(0), seconds(1), nanoseconds(0));
    (*source)->resume();
  }
  time_->runUntilIdle();
  other.reset();
  time_->advance(seconds(10));
  EXPECT_EQ(ticks, 2);
  EXPECT_EQ(otherTicks, 1);
}

TEST_F(TimerSourceTest, LateTicksAreCoalescedAndKeepThePhase) {
  auto timer = makeTimer(queue_);
  timer->setHandler([&] {
    ticks_.push_back(static_cast<double>(time_->elapsedNanos()) / 1e9);
    // The second tick overruns by a lot: the clock moves on while it runs.
    if (ticks_.size() == 2) time_->advance(milliseconds(7500));
  });
  timer->schedule(nanoseconds(0), seconds(2), nanoseconds(0));
  timer->resume();
  time_->advance(seconds(14));
  // 0, 2 (runs until 9.5): the ticks due at 4, 6 and 8 become one at 9.5; then 10, 12, 14
  // (phase kept from the start, not from 9.5).
  EXPECT_EQ(ticks_, (std::vector<double>{0, 2, 9.5, 10, 12, 14}));
}

}  // namespace
}  // namespace corvane::dispatch
