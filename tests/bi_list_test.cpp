#include "net/bi_list.h"

#include <gtest/gtest.h>

namespace {

struct BidirListTest : ::testing::Test {
  BidirListTest() {
    for (LIST_NODE* node : {&a, &b, &c}) list.Insert(node);
  }

  LIST_NODE stale{}, a{&stale, &stale, nullptr}, b = a, c = a;  // links as a pool leaves them
  CBidirList list;
};

TEST_F(BidirListTest, KeepsTheOrderOfInsertion) {
  EXPECT_EQ(list.Head(), &a);
  EXPECT_EQ(a.pPrev, nullptr);
  EXPECT_EQ(a.pNext, &b);
  EXPECT_EQ(b.pNext, &c);
  EXPECT_EQ(c.pNext, nullptr);
}

TEST_F(BidirListTest, RefusesWhatItCannotLinkOrUnlink) {
  CBidirList other;
  LIST_NODE unlinked{};
  EXPECT_FALSE(other.Remove(&b)) << "empty list, node linked elsewhere";
  other.Insert(&stale);
  for (LIST_NODE* node : {&a, &c}) EXPECT_FALSE(other.Remove(node)) << "end of another list";
  EXPECT_FALSE(list.Insert(nullptr));
  EXPECT_FALSE(list.Remove(nullptr));
  EXPECT_FALSE(list.Insert_Before(nullptr, &b));
  EXPECT_FALSE(list.Insert_Before(&unlinked, nullptr));
  EXPECT_FALSE(list.Insert_Before(&b, &b));
  EXPECT_EQ(list.Count(), 3u);
}

TEST_F(BidirListTest, ForgottenNodesAreNotTouched) {
  list.Merge(list);
  EXPECT_EQ(list.Count(), 3u);
  list.Reset();
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(b.pPrev, &a);
}

}  // namespace
