// The real backend (Asio on Linux) with real threads. Waits are bounded condition-variable
// waits, never bare sleeps.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"

namespace corvane::dispatch {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr auto kPatience = std::chrono::seconds(10);

// Counts signals from other threads and lets the test wait for a number of them.
class Signals {
 public:
  void signal() {
    std::lock_guard guard(lock_);
    ++count_;
    changed_.notify_all();
  }
  bool waitFor(int count, std::chrono::milliseconds timeout) {
    std::unique_lock guard(lock_);
    return changed_.wait_for(guard, timeout, [&] { return count_ >= count; });
  }
  int count() {
    std::lock_guard guard(lock_);
    return count_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int count_ = 0;
};

TEST(RealBackendTest, SerialQueueNeverOverlapsAndKeepsEachSendersOrder) {
  auto queue = serialQueue("serial");
  constexpr int kPerSender = 400;
  std::atomic<int> active{0};
  std::atomic<int> maxActive{0};
  std::vector<int> seen[2];
  Signals done;
  auto sender = [&](int who) {
    for (int i = 0; i < kPerSender; ++i) {
      queue->async([&, who, i] {
        int now = ++active;
        int peak = maxActive.load();
        while (now > peak && !maxActive.compare_exchange_weak(peak, now)) {
        }
        seen[who].push_back(i);  // unguarded on purpose: serial work needs no lock
        --active;
        done.signal();
      });
    }
  };
  std::thread a(sender, 0), b(sender, 1);
  a.join();
  b.join();
  ASSERT_TRUE(done.waitFor(2 * kPerSender, kPatience));
  bool current = false;
  queue->sync([&] { current = queue->isCurrent(); });  // waits, and marks the queue current
  EXPECT_TRUE(current && !queue->isCurrent());
  EXPECT_EQ(maxActive.load(), 1);
  for (auto& list : seen) {
    ASSERT_EQ(list.size(), static_cast<std::size_t>(kPerSender));
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
  }
}

TEST(RealBackendTest, TimerRepeatsThenNeverFiresAfterCancel) {
  auto queue = serialQueue("timer");
  auto timer = makeTimer(queue);
  Signals ticks;
  std::atomic<bool> offQueue{false};
  timer->setHandler([&] {
    if (!queue->isCurrent()) offQueue = true;
    ticks.signal();
  });
  timer->schedule(nanoseconds(0), milliseconds(2), nanoseconds(0));
  timer->resume();
  ASSERT_TRUE(ticks.waitFor(5, kPatience));
  timer->cancel();
  queue->sync([] {});  // a tick already running has finished
  int atCancel = ticks.count();
  // Bounded wait for a tick that must not come: ten periods.
  EXPECT_FALSE(ticks.waitFor(atCancel + 1, milliseconds(20)));
  EXPECT_FALSE(offQueue.load());
}

}  // namespace
}  // namespace corvane::dispatch
