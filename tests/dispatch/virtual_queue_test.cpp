// Queues on the virtual clock: ordering, due times, sync and the current-queue marking.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"

namespace corvane::dispatch {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

class VirtualQueueTest : public ::testing::Test {
 protected:
  std::shared_ptr<VirtualTime> time_ = installVirtualTime(1'000'000.0);
};

TEST_F(VirtualQueueTest, NothingRunsUntilTheClockIsDriven) {
  auto queue = serialQueue("q");
  int ran = 0;
  queue->async([&] { ++ran; });
  EXPECT_EQ(ran, 0);
  EXPECT_EQ(time_->pendingCount(), 1U);
  EXPECT_EQ(time_->runUntilIdle(), 1U);
  EXPECT_EQ(ran, 1);
}

TEST_F(VirtualQueueTest, OneQueueRunsItsWorkInSubmissionOrder) {
  auto queue = serialQueue("q");
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) queue->async([&order, i] { order.push_back(i); });
  time_->runUntilIdle();
  ASSERT_EQ(order.size(), 50U);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

struct DelayedCase {
  std::vector<int> delaysMs;    // one item per delay, submitted in this order
  std::vector<int> expected;    // submission indices in the order they must run
};

class DelayedOrderTest : public VirtualQueueTest, public ::testing::WithParamInterface<DelayedCase> {};

TEST_P(DelayedOrderTest, RunsInDueOrderThenSubmissionOrder) {
  const auto& param = GetParam();
  auto a = serialQueue("a");
  auto b = serialQueue("b");
  std::vector<int> order;
  std::vector<double> clockSeen;
  double start = now();
  for (std::size_t i = 0; i < param.delaysMs.size(); ++i) {
    // Alternate queues: the agenda orders across queues too.
    auto& queue = (i % 2 == 0) ? a : b;
    queue->asyncAfter(milliseconds(param.delaysMs[i]), [&order, &clockSeen, i] {
      order.push_back(static_cast<int>(i));
      clockSeen.push_back(now());
    });
  }
  time_->advance(seconds(1));
  EXPECT_EQ(order, param.expected);
  // While an item runs, the clock reads its due time.
  ASSERT_EQ(clockSeen.size(), order.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    int delay = std::max(0, param.delaysMs[static_cast<std::size_t>(order[k])]);  // negative means now
    EXPECT_NEAR(clockSeen[k] - start, delay / 1000.0, 1e-6);
  }
  EXPECT_NEAR(now() - start, 1.0, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(DelayedOrders, DelayedOrderTest,
                         ::testing::Values(DelayedCase{{30, 10, 20}, {1, 2, 0}},
                                           DelayedCase{{10, 10, 10, 10}, {0, 1, 2, 3}},
                                           DelayedCase{{0, 500, 0, 250, 250}, {0, 2, 3, 4, 1}},
                                           DelayedCase{{-5, 0}, {0, 1}}));

TEST_F(VirtualQueueTest, AdvanceRunsOnlyWhatIsDue) {
  auto queue = serialQueue("q");
  int ran = 0;
  queue->asyncAfter(seconds(5), [&] { ++ran; });
  time_->advance(seconds(4));
  EXPECT_EQ(ran, 0);
  time_->advance(milliseconds(999));
  EXPECT_EQ(ran, 0);
  time_->advance(milliseconds(1));
  EXPECT_EQ(ran, 1);
}

TEST_F(VirtualQueueTest, WorkPostedByWorkRunsInTheSameDrive) {
  auto queue = serialQueue("q");
  auto other = serialQueue("other");
  std::vector<std::string> seen;
  queue->async([&] {
    seen.push_back("first");
    other->async([&] { seen.push_back("posted now"); });
    queue->asyncAfter(seconds(2), [&] { seen.push_back("posted for later"); });
  });
  EXPECT_EQ(time_->runUntilIdle(), 2U);
  EXPECT_EQ(seen, (std::vector<std::string>{"first", "posted now"}));
  time_->advance(seconds(2));
  EXPECT_EQ(seen.back(), "posted for later");
}

TEST_F(VirtualQueueTest, ClockFollowsAdvance) {
  EXPECT_DOUBLE_EQ(now(), 1'000'000.0);
  auto before = monotonicNanos();
  time_->advance(milliseconds(2500));
  EXPECT_DOUBLE_EQ(now(), 1'000'002.5);
  EXPECT_DOUBLE_EQ(time_->now(), 1'000'002.5);
  EXPECT_EQ(monotonicNanos() - before, 2'500'000'000);
  EXPECT_EQ(time_->elapsedNanos(), 2'500'000'000);
}

TEST_F(VirtualQueueTest, IsCurrentOnlyInsideTheQueuesOwnWork) {
  auto a = serialQueue("a");
  auto b = serialQueue("b");
  EXPECT_FALSE(a->isCurrent());
  bool aInA = false, bInA = true, mainInA = true;
  a->async([&] {
    aInA = a->isCurrent();
    bInA = b->isCurrent();
    mainInA = mainQueue()->isCurrent();
  });
  time_->runUntilIdle();
  EXPECT_TRUE(aInA);
  EXPECT_FALSE(bInA);
  EXPECT_FALSE(mainInA);
  EXPECT_FALSE(a->isCurrent());
}

TEST_F(VirtualQueueTest, SyncRunsTheQueuesDueWorkFirstThenReturns) {
  auto queue = serialQueue("q");
  auto unrelated = serialQueue("unrelated");
  std::vector<std::string> seen;
  queue->async([&] { seen.push_back("earlier"); });
  queue->asyncAfter(seconds(1), [&] { seen.push_back("later"); });
  unrelated->async([&] { seen.push_back("unrelated"); });
  bool current = false;
  queue->sync([&] {
    current = queue->isCurrent();
    seen.push_back("sync");
  });
  EXPECT_TRUE(current);
  EXPECT_EQ(seen, (std::vector<std::string>{"earlier", "sync"}));
  EXPECT_EQ(time_->pendingCount(), 2U);
}

TEST_F(VirtualQueueTest, SyncFromAnotherQueuesWorkMarksTheTargetCurrent) {
  auto a = serialQueue("a");
  auto b = serialQueue("b");
  bool bCurrentInSync = false, aCurrentAfterSync = false;
  a->async([&] {
    b->sync([&] { bCurrentInSync = b->isCurrent() && !a->isCurrent(); });
    aCurrentAfterSync = a->isCurrent();
  });
  time_->runUntilIdle();
  EXPECT_TRUE(bCurrentInSync);
  EXPECT_TRUE(aCurrentAfterSync);
}

TEST_F(VirtualQueueTest, SyncFromTheQueueItselfRunsInline) {
  auto queue = serialQueue("q");
  int inner = 0;
  queue->async([&] { queue->sync([&] { ++inner; }); });
  time_->runUntilIdle();
  EXPECT_EQ(inner, 1);
}

TEST_F(VirtualQueueTest, PendingWorkIsDroppedWhenTheClockGoes) {
  auto queue = serialQueue("q");
  auto token = std::make_shared<int>(0);
  std::weak_ptr<int> watch = token;
  bool ran = false;
  queue->asyncAfter(seconds(1), [&ran, token = std::move(token)] { ran = true; });
  EXPECT_FALSE(watch.expired());
  time_.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(ran);
}

TEST_F(VirtualQueueTest, QueuesMadeBeforeInstallationFollowTheNewClock) {
  auto queue = serialQueue("made earlier");
  time_.reset();
  auto later = installVirtualTime(50.0);
  int ran = 0;
  queue->asyncAfter(seconds(3), [&] { ++ran; });
  later->advance(seconds(3));
  EXPECT_EQ(ran, 1);
  EXPECT_DOUBLE_EQ(now(), 53.0);
}

TEST_F(VirtualQueueTest, ReplacedClockDoesNotUninstallItsSuccessor) {
  auto second = installVirtualTime(10.0);
  time_.reset();  // the first one goes; the second stays in force
  EXPECT_DOUBLE_EQ(now(), 10.0);
  auto queue = serialQueue("q");
  int ran = 0;
  queue->async([&] { ++ran; });
  EXPECT_EQ(second->runUntilIdle(), 1U);
  EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace corvane::dispatch
