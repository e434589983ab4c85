#include "service_api/detail/probe_table.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/fake_platform.h"

namespace KorvainService {
namespace {

TEST(ProbeTable, GrowsForMoreButNotForOtherEntries) {
  detail::ProbeTable<int, int, std::hash<int>, -1> table;
  const test::Allocations allocations;
  for (int key = 0; key < 256; ++key) EXPECT_TRUE(table.Insert(key, key));
  EXPECT_EQ(test::Allocations::count, 6) << "from 16 slots to 512, which are half full then";
  for (int key = 256; key < 4736; ++key) {
    EXPECT_TRUE(table.Erase(key - 256));
    EXPECT_TRUE(table.Insert(key, key));
    EXPECT_FALSE(table.Insert(key, 0));
  }
  EXPECT_EQ(test::Allocations::count, 6);
  int sum = 0;  // the last key stands behind the end of the array
  table.ForEachValue([&sum](int value) { sum += value; });
  EXPECT_EQ(sum, 256 * (4480 + 4735) / 2);
}

}  // namespace
}  // namespace KorvainService
