#include "comm/objslab.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "support/fake_platform.h"

namespace {

class ObjSlabTest : public ::testing::Test {
 protected:
  ~ObjSlabTest() override { objslab_destroy(&slab); }
  LPOBJSLAB slab = nullptr;
};

TEST_F(ObjSlabTest, RefusesBadArgumentsAndLeavesTheHandle) {
  struct Case {
    int count;
    size_t size;
  };
  for (const Case& row : {Case{0, 8}, Case{-1, 8}, Case{131073, 1}, Case{4, 0}, Case{4, SIZE_MAX},
                          Case{131072, SIZE_MAX / 131072}}) {
    EXPECT_NE(objslab_new(&slab, row.count, row.size), 0) << row.count << ' ' << row.size;
    EXPECT_EQ(slab, nullptr);
  }
  EXPECT_NE(objslab_new(nullptr, 4, 8), 0);
  {
    const test::Allocations allocations;
    test::Allocations::Restart(0);
    EXPECT_NE(objslab_new(&slab, 4, 8), 0);
    EXPECT_EQ(slab, nullptr);
  }
}

TEST_F(ObjSlabTest, ANullHandleHasNoSlots) {
  EXPECT_NE(objslab_is_full(nullptr), 0);
  EXPECT_EQ(objslab_alloc(nullptr), -1);
  EXPECT_EQ(objslab_get(nullptr, 0), nullptr);
  EXPECT_NE(objslab_free(nullptr, 0), 0);
  EXPECT_EQ(objslab_get_size(nullptr), 0u);
  objslab_destroy(nullptr);
  objslab_destroy(&slab);
}

// Sizes with the id word in the padding and without, the largest pool included.
TEST_F(ObjSlabTest, HandsOutEverySlotOnceAlignedAndApart) {
  struct Case {
    int count;
    size_t size;
  };
  for (const Case& row : {Case{1, 1}, Case{3, 12}, Case{3, 13}, Case{100, 16}, Case{100, 24},
                          Case{100, 32}, Case{131072, 17}, Case{2, 1 << 22}}) {
    SCOPED_TRACE(row.size);
    ASSERT_EQ(objslab_new(&slab, row.count, row.size), 0);
    EXPECT_EQ(objslab_get_size(slab), test::Allocations::LastSize()) << "its bookkeeping included";
    EXPECT_LE(objslab_get_size(slab), static_cast<size_t>(row.count) * (row.size + 32) + 64);
    for (int id = 0; id < row.count; ++id) {
      ASSERT_EQ(objslab_is_full(slab), 0);
      ASSERT_EQ(objslab_alloc(slab), id);
      void* const memory = objslab_get(slab, id);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t), 0u);
      memset(memory, id & 0xFF, row.size);
    }
    EXPECT_NE(objslab_is_full(slab), 0);
    EXPECT_EQ(objslab_alloc(slab), -1);
    for (int id = 0; id < row.count; ++id) {
      const auto* bytes = static_cast<const unsigned char*>(objslab_get(slab, id));
      ASSERT_EQ(bytes[0], id & 0xFF);
      ASSERT_EQ(bytes[row.size - 1], id & 0xFF);
    }
    objslab_destroy(&slab);
    EXPECT_EQ(slab, nullptr);
  }
}

TEST_F(ObjSlabTest, AnIdDiesWithItsUse) {
  ASSERT_EQ(objslab_new(&slab, 2, 32), 0);
  for (const int id : {-1, 0, 1, 2, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(objslab_get(slab, id), nullptr) << id << " in a pool without any slot in use";
    EXPECT_NE(objslab_free(slab, id), 0) << id;
  }
  const int first = objslab_alloc(slab);
  const int second = objslab_alloc(slab);
  EXPECT_EQ(objslab_free(slab, first), 0);
  EXPECT_NE(objslab_free(slab, first), 0);
  EXPECT_EQ(objslab_get(slab, first), nullptr);
  for (const int next : {first + 131072, (first + 131072) | INT32_MIN}) {
    EXPECT_EQ(objslab_get(slab, next), nullptr) << "not before it is handed out";
    EXPECT_NE(objslab_free(slab, next), 0);
  }
  EXPECT_EQ(objslab_is_full(slab), 0);
  const int again = objslab_alloc(slab);
  EXPECT_NE(again, first);
  EXPECT_EQ(objslab_get(slab, first), nullptr) << "the slot serves another id now";
  EXPECT_NE(objslab_free(slab, first), 0);
  EXPECT_NE(objslab_get(slab, again), nullptr);
  for (const int id : {-1, again | INT32_MIN, second | INT32_MIN, again + 1, 2, 131071}) {
    EXPECT_EQ(objslab_get(slab, id), nullptr) << id;
  }
}

TEST_F(ObjSlabTest, ReusesTheLastReleasedFirstAndReleasedBeforeNew) {
  ASSERT_EQ(objslab_new(&slab, 4, 24), 0);
  int ids[3];
  for (int& id : ids) id = objslab_alloc(slab);
  std::vector<void*> memory;
  for (const int index : {0, 2, 1}) {
    memory.push_back(objslab_get(slab, ids[index]));
    objslab_free(slab, ids[index]);
  }
  for (auto expected = memory.rbegin(); expected != memory.rend(); ++expected) {
    EXPECT_EQ(objslab_get(slab, objslab_alloc(slab)), *expected);
  }
  EXPECT_EQ(objslab_alloc(slab), 3);
}

// With the id words apart and in the padding; of the largest pool the last slot.
TEST_F(ObjSlabTest, GenerationsWrapAfter16384Rounds) {
  for (const size_t size : {size_t{32}, size_t{24}}) {
    ASSERT_EQ(objslab_new(&slab, 131072, size), 0);
    int first = 0;
    for (int i = 0; i < 131072; ++i) first = objslab_alloc(slab);
    std::set<int> seen{first};
    for (int round = 1; round < 16384; ++round) {
      ASSERT_EQ(objslab_free(slab, *seen.rbegin()), 0);
      const int id = objslab_alloc(slab);
      ASSERT_GE(id, 0);
      ASSERT_TRUE(seen.insert(id).second) << "round " << round;
      ASSERT_EQ(objslab_get(slab, first), nullptr) << "round " << round;
    }
    objslab_free(slab, *seen.rbegin());
    EXPECT_EQ(objslab_alloc(slab), first);
    objslab_destroy(&slab);
  }
}

TEST_F(ObjSlabTest, AllocatesOnlyWhenMade) {
  ASSERT_EQ(objslab_new(&slab, 100, 24), 0);
  const test::Allocations allocations;
  for (int round = 0; round < 300; ++round) objslab_free(slab, objslab_alloc(slab));
  EXPECT_EQ(test::Allocations::Count(), 0);
}

}  // namespace
