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

TEST(WeakListTest, KeepsRegistrationOrderAndIgnoresNullAndDuplicates) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), b = std::make_shared<Item>(2), c = std::make_shared<Item>(3);
  EXPECT_TRUE(list.add(b));
  EXPECT_TRUE(list.add(a));
  EXPECT_FALSE(list.add(b));
  EXPECT_FALSE(list.add(nullptr));
  EXPECT_TRUE(list.add(c));
  EXPECT_EQ(values(list), (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(list.size(), 3U);
}

TEST(WeakListTest, SkipsListenersThatHaveGoneAndDoesNotKeepThemAlive) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), b = std::make_shared<Item>(2), c = std::make_shared<Item>(3);
  list.add(a);
  list.add(b);
  list.add(c);
  std::weak_ptr<Item> watch = b;
  b.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(values(list), (std::vector<int>{1, 3}));
  EXPECT_EQ(list.size(), 2U);
}

TEST(WeakListTest, AnEqualButDistinctObjectIsNotADuplicate) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), twin = std::make_shared<Item>(1);
  list.add(a);
  EXPECT_TRUE(list.add(twin));
  EXPECT_EQ(list.size(), 2U);
}

TEST(WeakListTest, AnObjectAtTheAddressOfAGoneOneIsNew) {
  // A gone entry does not count as present: re-adding after release works.
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1);
  list.add(a);
  a.reset();
  auto b = std::make_shared<Item>(2);
  EXPECT_TRUE(list.add(b));
  EXPECT_EQ(values(list), (std::vector<int>{2}));
}

TEST(WeakListTest, AddingDuringAWalkIsSeenOnTheNextWalk) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), late = std::make_shared<Item>(9);
  list.add(a);
  std::vector<int> seen;
  list.forEach([&](Item& item) {
    seen.push_back(item.value);
    list.add(late);
  });
  EXPECT_EQ(seen, (std::vector<int>{1}));
  EXPECT_EQ(values(list), (std::vector<int>{1, 9}));
}

TEST(WeakListTest, ReleasingDuringAWalkKeepsTheCurrentEntryAlive) {
  WeakList<Item> list;
  auto a = std::make_shared<Item>(1), b = std::make_shared<Item>(2);
  list.add(a);
  list.add(b);
  std::vector<int> seen;
  list.forEach([&](Item& item) {
    a.reset();
    b.reset();  // `item` stays valid until its call ends
    seen.push_back(item.value);
  });
  EXPECT_EQ(seen, (std::vector<int>{1}));
  EXPECT_EQ(list.size(), 0U);
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

class Listener : public PingDelegate, public PongDelegate {
 public:
  Listener(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}
  void monitorDidPing(int value) override { log_.push_back(name_ + " ping " + std::to_string(value)); }
  void monitorDidPong() override { log_.push_back(name_ + " pong"); }

 private:
  std::string name_;
  std::vector<std::string>& log_;
};

// Implements one protocol and leaves the default of the other.
class PingOnly : public PingDelegate {
 public:
  explicit PingOnly(std::vector<std::string>& log) : log_(log) {}
  void monitorDidPing(int value) override { log_.push_back("only ping " + std::to_string(value)); }

 private:
  std::vector<std::string>& log_;
};

TEST(HWBaseMonitorTest, AddDelegateIgnoresNullAndDuplicatesAndKeepsOrder) {
  std::vector<std::string> log;
  PingMonitor monitor;
  auto first = std::make_shared<Listener>("first", log);
  auto second = std::make_shared<Listener>("second", log);
  monitor.addDelegate(nullptr);
  EXPECT_TRUE(monitor.delegates().empty());
  monitor.addDelegate(second);
  monitor.addDelegate(first);
  monitor.addDelegate(second);
  EXPECT_EQ(monitor.delegates().size(), 2U);
  monitor.ping(7);
  EXPECT_EQ(log, (std::vector<std::string>{"second ping 7", "first ping 7"}));
}

TEST(HWBaseMonitorTest, OnlyListenersOfTheProtocolAreCalledAndGoneOnesAreSkipped) {
  std::vector<std::string> log;
  PingMonitor monitor;
  auto both = std::make_shared<Listener>("both", log);
  auto pingOnly = std::make_shared<PingOnly>(log);
  auto gone = std::make_shared<Listener>("gone", log);
  monitor.addDelegate(pingOnly);
  monitor.addDelegate(gone);
  monitor.addDelegate(both);
  gone.reset();
  monitor.ping(1);
  monitor.pong();
  EXPECT_EQ(log, (std::vector<std::string>{"only ping 1", "both ping 1", "both pong"}));
}

TEST(HWBaseMonitorTest, LifeCycleOfTheBaseDoesNothing) {
  std::vector<std::string> log;
  PingMonitor monitor;
  auto listener = std::make_shared<Listener>("l", log);
  monitor.addDelegate(listener);
  monitor.setup();
  monitor.start();
  monitor.stop();
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(monitor.delegates().size(), 1U);
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

// A second kind of reader, so one receiver takes two result types, as the CPU monitor will.
class Labeller : public HWBaseReader<std::string> {
 public:
  void read() override { deliverResult("label"); }
};

class Receiver : public HWBaseReaderDelegate<std::vector<int>>, public HWBaseReaderDelegate<std::string> {
 public:
  void readerDidReadWithResult(HWBaseReader<std::vector<int>>& reader, const std::vector<int>& values) override {
    from = &reader;
    last = values;
  }
  void readerDidReadWithResult(HWBaseReader<std::string>&, const std::string& text) override { label = text; }
  HWReader* from = nullptr;
  std::vector<int> last;
  std::string label;
};

TEST(HWBaseReaderTest, HandsResultsToItsWeakDelegate) {
  Counter reader;
  reader.read();  // no delegate: nothing happens
  auto receiver = std::make_shared<Receiver>();
  reader.setDelegate(receiver);
  reader.read();
  EXPECT_EQ(receiver->from, &reader);
  EXPECT_EQ(receiver->last, (std::vector<int>{2, 20}));
  Labeller labeller;
  labeller.setDelegate(receiver);
  labeller.read();
  EXPECT_EQ(receiver->label, "label");
  EXPECT_EQ(receiver->last, (std::vector<int>{2, 20})) << "each result type reaches its own method";
  std::weak_ptr<Receiver> watch = receiver;
  receiver.reset();
  EXPECT_TRUE(watch.expired()) << "the reader must not keep its delegate alive";
  EXPECT_EQ(reader.delegate(), nullptr);
  reader.read();
}

TEST(HWBaseReaderTest, BaseReadDoesNothingAndEachReaderHasItsOwnQueue) {
  HWBaseReader<std::vector<int>> a, b;
  auto receiver = std::make_shared<Receiver>();
  a.setDelegate(receiver);
  a.read();
  EXPECT_EQ(receiver->from, nullptr);
  ASSERT_NE(a.internalQueue(), nullptr);
  EXPECT_EQ(a.internalQueue()->label(), "com.HWBaseReader.internalQueue");
  EXPECT_NE(a.internalQueue(), b.internalQueue());
}

}  // namespace
}  // namespace corvane
