#include "service_api/detail/probe_table.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/fake_platform.h"

namespace KorvainService {
namespace {

// Keys stand at home where they say, so that chains can be laid over the end of the array.
struct Identity {
  size_t operator()(int key) const { return static_cast<size_t>(key); }
};

using Table = detail::ProbeTable<int, int, Identity, -1>;  // of 16 slots up to 8 entries

// Homes at both ends of the array, some shared, in each order: each removal tears a chain apart.
TEST(ProbeTable, ChainsWrapAroundTheEnd) {
  int keys[] = {0, 14, 15, 30, 31, 46};
  do {
    for (const int removed : keys) {
      Table table;
      for (const int key : keys) ASSERT_TRUE(table.Insert(key, key + 100));
      ASSERT_TRUE(table.Erase(removed));
      ASSERT_FALSE(table.Erase(removed));
      for (const int key : keys) ASSERT_EQ(table.Find(key), key == removed ? -1 : key + 100);
      ASSERT_FALSE(table.Insert(removed, -1));
    }
  } while (std::next_permutation(std::begin(keys), std::end(keys)));
}

TEST(ProbeTable, GrowsForMoreButNotForOtherEntries) {
  Table table;
  for (int key = 0; key < 256; ++key) EXPECT_TRUE(table.Insert(key, key));
  const test::Allocations allocations;
  for (int key = 256; key < 4736; ++key) {
    EXPECT_TRUE(table.Erase(key - 256));
    EXPECT_TRUE(table.Insert(key, key));
    EXPECT_FALSE(table.Insert(key, 0));
  }
  EXPECT_EQ(test::Allocations::Count(), 0);
  int sum = 0;  // the last key stands behind the end of the array
  table.ForEachValue([&sum](int value) { sum += value; });
  EXPECT_EQ(sum, 256 * (4480 + 4735) / 2);
}

}  // namespace
}  // namespace KorvainService
