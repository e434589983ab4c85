// What random runs beside their models (in fuzz/) leave out of the pool and the list.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "comm/objslab.h"
#include "net/bi_list.h"
#include "support/fake_platform.h"

namespace {

using Shapes = std::vector<std::pair<int, size_t>>;  // slot count and size

struct ObjSlabTest : ::testing::Test {
  ~ObjSlabTest() override { objslab_destroy(&slab); }
  LPOBJSLAB slab = nullptr;
};

TEST_F(ObjSlabTest, RefusesBadArgumentsAndLeavesTheHandle) {
  LPOBJSLAB const before = reinterpret_cast<LPOBJSLAB>(this);
  LPOBJSLAB handle = before;
  for (const auto& [count, size] :
       Shapes{{0, 8}, {-1, 8}, {131073, 1}, {4, 0}, {4, SIZE_MAX}, {131072, SIZE_MAX / 131072}}) {
    EXPECT_NE(objslab_new(&handle, count, size), 0) << count << ' ' << size;
  }
  EXPECT_NE(objslab_new(nullptr, 4, 8), 0);
  const test::Allocations allocations;
  test::Allocations::Restart(0);
  EXPECT_NE(objslab_new(&handle, 4, 8), 0) << "no memory";
  EXPECT_EQ(handle, before);

  EXPECT_NE(objslab_is_full(nullptr), 0);
  EXPECT_EQ(objslab_alloc(nullptr), -1);
  EXPECT_EQ(objslab_get(nullptr, 0), nullptr);
  EXPECT_NE(objslab_free(nullptr, 0), 0);
  EXPECT_EQ(objslab_get_size(nullptr), 0u);
  objslab_destroy(nullptr);  // the destructor passes the other kind
}

// Sizes with the bookkeeping in the padding of the slots and without, the largest pool included.
TEST_F(ObjSlabTest, HandsOutEverySlotOnceAlignedAndApart) {
  for (const auto& [count, size] :
       Shapes{{1, 1}, {3, 12}, {3, 13}, {100, 16}, {131072, 17}, {2, 1 << 22}}) {
    SCOPED_TRACE(size);
    ASSERT_EQ(objslab_new(&slab, count, size), 0);
    EXPECT_EQ(objslab_get_size(slab), test::Allocations::last_size);
    const size_t slot_and_id_size = (size + 15) / 16 * 16 + 4;
    EXPECT_LE(objslab_get_size(slab), static_cast<size_t>(count) * slot_and_id_size + 64);
    for (int id = 0; id < count; ++id) {
      ASSERT_EQ(objslab_alloc(slab), id);
      void* const memory = objslab_get(slab, id);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t), 0u);
      memset(memory, id & 0xFF, size);
    }
    EXPECT_EQ(objslab_alloc(slab), -1);
    for (int id = 0; id < count; ++id) {
      const auto* const bytes = static_cast<const unsigned char*>(objslab_get(slab, id));
      ASSERT_TRUE(bytes[0] == (id & 0xFF) && bytes[size - 1] == bytes[0]) << id;
    }
    objslab_destroy(&slab);
    EXPECT_EQ(slab, nullptr);
  }
}

// Of the largest pool the last slot: all bits of its ids are used.
TEST_F(ObjSlabTest, AnIdDiesWithItsUseFor16384Rounds) {
  ASSERT_EQ(objslab_new(&slab, 131072, 24), 0);
  const test::Allocations allocations;
  for (int slot = 0; slot < 131072; ++slot) objslab_alloc(slab);
  for (int id = 131071; id != INT32_MAX; id += 131072) {
    ASSERT_EQ(objslab_free(slab, id), 0);
    ASSERT_EQ(objslab_alloc(slab), id + 131072);
    ASSERT_EQ(objslab_get(slab, 131071), nullptr);
    ASSERT_NE(objslab_free(slab, id), 0);
  }
  EXPECT_EQ(objslab_free(slab, INT32_MAX), 0);
  EXPECT_EQ(objslab_get(slab, 131071), nullptr) << "not before it is handed out";
  EXPECT_EQ(objslab_alloc(slab), 131071);
  EXPECT_EQ(test::Allocations::count, 0) << "only a new pool is allocated";
}

struct BidirListTest : ::testing::Test {
  BidirListTest() {
    for (LIST_NODE* node : {&a, &b, &c}) list.Insert(node);
  }

  LIST_NODE a{}, b{}, c{}, unlinked{};
  CBidirList list;
};

TEST_F(BidirListTest, RefusesWhatItCannotLinkOrUnlink) {
  CBidirList other;
  EXPECT_FALSE(other.Remove(&b)) << "empty list, node linked elsewhere";
  EXPECT_FALSE(list.Insert(nullptr));
  EXPECT_FALSE(list.Remove(nullptr));
  EXPECT_FALSE(list.Insert_Before(nullptr, &b));
  EXPECT_FALSE(list.Insert_Before(&unlinked, nullptr));
  EXPECT_FALSE(list.Insert_Before(&b, &b));
  EXPECT_EQ(list.Count(), 3u);
  other.Insert(&unlinked);
  for (LIST_NODE* node : {&a, &c}) EXPECT_FALSE(other.Remove(node)) << "end of another list";
}

TEST_F(BidirListTest, ForgottenNodesAreNotTouched) {
  list.Merge(list);
  EXPECT_EQ(list.Count(), 3u);
  list.Reset();
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(b.pPrev, &a);
}

}  // namespace
