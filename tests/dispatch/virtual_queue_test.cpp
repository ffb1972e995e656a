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

TEST_F(VirtualQueueTest, DelayedWorkRunsInDueOrderThenSubmissionOrderWithTheClockAtItsDueTime) {
  for (const auto& [delaysMs, expected] : std::initializer_list<std::pair<std::vector<int>, std::vector<int>>>{
           {{30, 10, 20}, {1, 2, 0}}, {{0, 500, 0, 250, 250}, {0, 2, 3, 4, 1}}, {{-5, 0}, {0, 1}}}) {
    auto a = serialQueue("a");
    auto b = serialQueue("b");
    std::vector<int> order;
    std::vector<double> clockSeen;
    const double start = now();
    for (std::size_t i = 0; i < delaysMs.size(); ++i) {
      // Alternate queues: the agenda orders across queues too.
      (i % 2 == 0 ? a : b)->asyncAfter(milliseconds(delaysMs[i]), [&order, &clockSeen, i] {
        order.push_back(static_cast<int>(i));
        clockSeen.push_back(now());
      });
    }
    time_->advance(seconds(1));
    EXPECT_EQ(order, expected);
    ASSERT_EQ(clockSeen.size(), order.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
      const int delay = std::max(0, delaysMs[static_cast<std::size_t>(order[k])]);  // negative means now
      EXPECT_NEAR(clockSeen[k] - start, delay / 1000.0, 1e-6);
    }
    EXPECT_NEAR(now() - start, 1.0, 1e-9);
  }
}

TEST_F(VirtualQueueTest, WorkDueInThePastRunsNowAfterWhatIsAlreadyDue) {
  auto queue = serialQueue("q");
  std::vector<int> order;
  const auto start = monotonicNanos();
  queue->async([&] { order.push_back(1); });
  queue->asyncAt(start - 1'000'000'000, [&] { order.push_back(2); });
  time_->runUntilIdle();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_EQ(monotonicNanos(), start);
}

TEST_F(VirtualQueueTest, AdvanceRunsOnlyWhatIsDueAndMovesTheClock) {
  auto queue = serialQueue("q");
  int ran = 0;
  queue->asyncAfter(seconds(5), [&] { ++ran; });
  const auto before = monotonicNanos();
  time_->advance(milliseconds(4999));
  EXPECT_EQ(ran, 0);
  EXPECT_DOUBLE_EQ(now(), 1'000'004.999);
  EXPECT_EQ(monotonicNanos() - before, 4'999'000'000);
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

TEST_F(VirtualQueueTest, SyncFromAnotherQueuesWorkMarksTheTargetCurrentAndFromItselfRunsInline) {
  auto a = serialQueue("a");
  auto b = serialQueue("b");
  bool bCurrentInSync = false, aCurrentAfterSync = false;
  int inner = 0;
  a->async([&] {
    b->sync([&] { bCurrentInSync = b->isCurrent() && !a->isCurrent(); });
    aCurrentAfterSync = a->isCurrent();
    a->sync([&] { ++inner; });
  });
  time_->runUntilIdle();
  EXPECT_TRUE(bCurrentInSync && aCurrentAfterSync);
  EXPECT_EQ(inner, 1);
}

TEST_F(VirtualQueueTest, QueuesMadeBeforeFollowANewClockThatItsPredecessorDoesNotUninstall) {
  auto queue = serialQueue("made earlier");
  auto second = installVirtualTime(50.0);
  time_.reset();  // the first one goes; the second stays in force
  int ran = 0;
  queue->asyncAfter(seconds(3), [&] { ++ran; });
  second->advance(seconds(3));
  EXPECT_EQ(ran, 1);
  EXPECT_DOUBLE_EQ(now(), 53.0);
}

}  // namespace
}  // namespace corvane::dispatch
