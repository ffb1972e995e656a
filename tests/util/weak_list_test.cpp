// The listener list of monitors and stores: weak, ordered, safe to change during a walk.
#include <vector>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace corvane
