#include "net/bi_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Nodes = std::vector<const LIST_NODE*>;

// The nodes from head to tail, after a check that the links lead back the same way.
Nodes Walk(const CBidirList& list) {
  Nodes nodes;
  const LIST_NODE* previous = nullptr;
  for (const LIST_NODE* node = list.Head(); node != nullptr; node = node->pNext) {
    EXPECT_EQ(node->pPrev, previous);
    nodes.push_back(node);
    previous = node;
  }
  EXPECT_EQ(list.Tail(), previous);
  EXPECT_EQ(list.Count(), nodes.size());
  EXPECT_EQ(list.IsEmpty(), nodes.empty());
  return nodes;
}

class BidirListTest : public ::testing::Test {
 protected:
  // Nodes as they come from a pool, with left-over links.
  LIST_NODE a{&stale, &stale, nullptr}, b{&stale, &stale, nullptr}, c{&stale, &stale, nullptr};
  LIST_NODE stale{};
  CBidirList list;
};

TEST_F(BidirListTest, KeepsTheOrderOfInsertion) {
  for (LIST_NODE* node : {&a, &b, &c}) EXPECT_TRUE(list.Insert(node));
  EXPECT_EQ(Walk(list), (Nodes{&a, &b, &c}));
}

TEST_F(BidirListTest, RemovesAtHeadTailAndInBetween) {
  struct Case {
    LIST_NODE* removed;
    Nodes left;
  };
  for (const Case& row : {Case{&a, {&b, &c}}, Case{&b, {&a, &c}}, Case{&c, {&a, &b}}}) {
    list.Reset();
    for (LIST_NODE* node : {&a, &b, &c}) list.Insert(node);
    EXPECT_TRUE(list.Remove(row.removed));
    EXPECT_EQ(Walk(list), row.left);
    EXPECT_EQ(row.removed->pPrev, nullptr);
    EXPECT_EQ(row.removed->pNext, nullptr);
    EXPECT_FALSE(list.Remove(row.removed));
    EXPECT_EQ(Walk(list), row.left);
  }
  list.Remove(&a);
  list.Remove(&b);
  EXPECT_EQ(Walk(list), Nodes{});
}

TEST_F(BidirListTest, RefusesWhatItCannotLinkOrUnlink) {
  EXPECT_FALSE(list.Insert(nullptr));
  EXPECT_FALSE(list.Remove(nullptr));
  LIST_NODE unlinked{};
  EXPECT_FALSE(list.Remove(&unlinked));
  CBidirList other;
  for (LIST_NODE* node : {&a, &b, &c}) other.Insert(node);
  EXPECT_FALSE(list.Remove(&b)) << "empty list, node linked elsewhere";
  EXPECT_FALSE(other.Insert(&a));
  EXPECT_FALSE(other.Insert(&c));
  EXPECT_EQ(Walk(other), (Nodes{&a, &b, &c}));
  list.Insert(&unlinked);
  EXPECT_FALSE(list.Remove(&a)) << "head of another list";
  EXPECT_FALSE(list.Remove(&c)) << "tail of another list";
  EXPECT_EQ(Walk(list), Nodes{&unlinked});
}

TEST_F(BidirListTest, InsertsBeforeALinkedNode) {
  LIST_NODE other{};
  EXPECT_FALSE(list.Insert_Before(&b, &other)) << "not linked";
  list.Insert(&c);
  EXPECT_TRUE(list.Insert_Before(&a, &c));
  EXPECT_TRUE(list.Insert_Before(&b, &c));
  EXPECT_EQ(Walk(list), (Nodes{&a, &b, &c}));
  EXPECT_FALSE(list.Insert_Before(nullptr, &c));
  EXPECT_FALSE(list.Insert_Before(&other, nullptr));
  EXPECT_FALSE(list.Insert_Before(&b, &b));
  EXPECT_FALSE(list.Insert_Before(&a, &b)) << "head already";
  EXPECT_FALSE(list.Insert_Before(&c, &b)) << "tail already";
  EXPECT_EQ(Walk(list), (Nodes{&a, &b, &c}));
}

TEST_F(BidirListTest, MergesAndForgets) {
  CBidirList other;
  list.Merge(other);
  EXPECT_EQ(Walk(list), Nodes{});
  other.Insert(&a);
  list.Merge(other);
  EXPECT_EQ(Walk(list), Nodes{&a});
  EXPECT_EQ(Walk(other), Nodes{});
  other.Insert(&b);
  other.Insert(&c);
  list.Merge(other);
  list.Merge(list);
  list.Merge(other);
  EXPECT_EQ(Walk(list), (Nodes{&a, &b, &c}));
  list.Reset();
  EXPECT_EQ(Walk(list), Nodes{});
  EXPECT_EQ(b.pPrev, &a) << "forgotten nodes are not touched";
}

}  // namespace
