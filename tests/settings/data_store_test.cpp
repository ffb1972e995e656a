#include "corvane/store/data_store.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

class PingDelegate : public virtual HWDataStoreDelegate {
 public:
  int pings = 0;
};
class OtherProtocol : public virtual HWDataStoreDelegate {};
// One object implementing two protocols is still one delegate.
class Both : public PingDelegate, public OtherProtocol {};

class PingStore : public HWDataStore {
 public:
  void ping() {
    forEachDelegate<PingDelegate>([](PingDelegate& delegate) { ++delegate.pings; });
  }
};

TEST(HWDataStore, AddDelegateIgnoresNullAndDuplicatesAndHoldsWeakly) {
  PingStore store;
  auto first = std::make_shared<PingDelegate>();
  auto both = std::make_shared<Both>();
  auto other = std::make_shared<OtherProtocol>();
  store.addDelegate(nullptr);
  store.addDelegate(first);
  store.addDelegate(first);
  store.addDelegate(both);
  store.addDelegate(std::shared_ptr<OtherProtocol>(both));  // the same object through another base
  store.addDelegate(other);
  ASSERT_EQ(store.delegates().size(), 3u);
  EXPECT_EQ(store.delegates()[0], first);

  store.ping();
  EXPECT_EQ(first->pings, 1);
  EXPECT_EQ(both->pings, 1);

  first.reset();
  EXPECT_EQ(store.delegates().size(), 2u);
  store.ping();
  EXPECT_EQ(both->pings, 2);
  store.clearData();  // the base keeps nothing; nothing happens
  EXPECT_EQ(store.delegates().size(), 2u);
}

}  // namespace
}  // namespace corvane
