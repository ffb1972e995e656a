// Listener lists, the monitor and reader bases.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/monitors/base_monitor.h"
#include "corvane/monitors/base_reader.h"
#include "util/weak_list.h"

namespace corvane {
namespace {

struct Item {
  explicit Item(int v) : value(v) {}
  int value;
};

std::vector<int> values(const WeakList<Item>& list) {
  std::vector<int> seen;
  list.forEach([&](Item& item) { seen.push_back(item.value); });
  return seen;
}

TEST(WeakListTest, KeepsRegistrationOrderIgnoringNullDuplicatesAndGoneEntries) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), b = std::make_shared<Item>(2), c = std::make_shared<Item>(3);
  auto twin = std::make_shared<Item>(1);
  EXPECT_TRUE(list.add(b));
  EXPECT_TRUE(list.add(a));
  EXPECT_FALSE(list.add(b));
  EXPECT_FALSE(list.add(nullptr));
  EXPECT_TRUE(list.add(c));
  EXPECT_TRUE(list.add(twin)) << "an equal but distinct object is not a duplicate";
  EXPECT_EQ(values(list), (std::vector<int>{2, 1, 3, 1}));
  std::weak_ptr<Item> watch = b;
  b.reset();
  twin.reset();
  EXPECT_TRUE(watch.expired()) << "the list does not keep its listeners alive";
  EXPECT_EQ(values(list), (std::vector<int>{1, 3}));
  auto d = std::make_shared<Item>(4);  // perhaps at the address of a gone one: still new
  EXPECT_TRUE(list.add(d));
  EXPECT_EQ(list.size(), 3U);
}

TEST(WeakListTest, AddingDuringAWalkIsSeenNextWalkAndReleasingKeepsTheCurrentEntryAlive) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), b = std::make_shared<Item>(2), late = std::make_shared<Item>(9);
  list.add(a);
  list.add(b);
  std::vector<int> seen;
  list.forEach([&](Item& item) {
    list.add(late);
    a.reset();
    b.reset();  // `item` stays valid until its call ends
    seen.push_back(item.value);
  });
  EXPECT_EQ(seen, (std::vector<int>{1}));
  EXPECT_EQ(values(list), (std::vector<int>{9}));
}

// Two protocols, as monitors declare them.
class PingDelegate : public virtual HWMonitorDelegate {
 public:
  virtual void monitorDidPing(int /*value*/) {}
};
class PongDelegate : public virtual HWMonitorDelegate {
 public:
  virtual void monitorDidPong() {}
};

class PingMonitor : public HWBaseMonitor {
 public:
  void ping(int value) {
    forEachDelegate<PingDelegate>([&](PingDelegate& d) { d.monitorDidPing(value); });
  }
  void pong() {
    forEachDelegate<PongDelegate>([](PongDelegate& d) { d.monitorDidPong(); });
  }
};

// Implements one protocol and leaves the default of the other.
class PingOnly : public PingDelegate {
 public:
  PingOnly(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}
  void monitorDidPing(int value) override { log_.push_back(name_ + " ping " + std::to_string(value)); }

 protected:
  std::string name_;
  std::vector<std::string>& log_;
};

class Listener : public PingOnly, public PongDelegate {
 public:
  using PingOnly::PingOnly;
  void monitorDidPong() override { log_.push_back(name_ + " pong"); }
};

TEST(HWBaseMonitorTest, OnlyListenersOfTheProtocolAreCalledAndGoneOnesAreSkipped) {
  std::vector<std::string> log;
  PingMonitor monitor;
  auto both = std::make_shared<Listener>("both", log);
  auto pingOnly = std::make_shared<PingOnly>("only", log);
  auto gone = std::make_shared<Listener>("gone", log);
  monitor.addDelegate(pingOnly);
  monitor.addDelegate(gone);
  monitor.addDelegate(both);
  gone.reset();
  monitor.ping(1);
  monitor.pong();
  EXPECT_EQ(log, (std::vector<std::string>{"only ping 1", "both ping 1", "both pong"}));
}

class Counter : public HWBaseReader<std::vector<int>> {
 public:
  void read() override {
    ++reads_;
    deliverResult({reads_, reads_ * 10});
  }

 private:
  int reads_ = 0;
};

class Receiver : public HWBaseReaderDelegate<std::vector<int>> {
 public:
  void readerDidReadWithResult(HWBaseReader<std::vector<int>>& reader, const std::vector<int>& values) override {
    from = &reader;
    last = values;
  }
  HWReader* from = nullptr;
  std::vector<int> last;
};

TEST(HWBaseReaderTest, HandsResultsToItsWeakDelegate) {
  Counter reader;
  reader.read();  // no delegate: nothing happens
  auto receiver = std::make_shared<Receiver>();
  reader.setDelegate(receiver);
  reader.read();
  EXPECT_EQ(receiver->from, &reader);
  EXPECT_EQ(receiver->last, (std::vector<int>{2, 20}));
  std::weak_ptr<Receiver> watch = receiver;
  receiver.reset();
  EXPECT_TRUE(watch.expired()) << "the reader must not keep its delegate alive";
  EXPECT_EQ(reader.delegate(), nullptr);
  reader.read();
  HWBaseReader<std::vector<int>> a, b;  // the base reads nothing; each reader has its own queue
  EXPECT_NE(a.internalQueue(), b.internalQueue());
}

}  // namespace
}  // namespace corvane
