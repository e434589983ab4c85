// The tables of accesses and of pairs, and the hashes of their keys.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "service_api/access_index.h"
#include "service_api/detail/probe_table.h"
#include "service_api/statistic_mgr.h"
#include "support/fake_platform.h"

namespace KorvainService {
namespace {

TEST(Mix, GivesTheKnownValues) {
  EXPECT_EQ(mix(1, 0x0100007F, 8080), 0xA1B4A472u);
  EXPECT_EQ(mix(0, 0, 0), 0u);
  EXPECT_EQ(mix(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF), 0xC9B16DCFu);
  EXPECT_EQ(StatisticAccessInfoHash()({1, 2, 1 << 20}), mix(1, 2, 1 << 20));
}

TEST(StatisticKey, KeepsItsHalvesApart) {
  EXPECT_EQ(GetKey(-1, 0), 4294967295);
  EXPECT_EQ(GetKey(0, -1), -4294967296);
  EXPECT_EQ(GetKey(1, 2), 0x200000001);
}

// Keys that differ in few bits, in either half, must not share homes. A good hash gives 256 keys
// about 200 different ones of 512.
TEST(StatisticKey, IsSpreadWhicheverBitsDiffer) {
  for (int shift = 0; shift <= 24; ++shift) {
    for (const int32_t other : {0, 1, 60, 65536, 1 << 29, -1}) {
      std::set<size_t> homes[3];
      for (uint32_t i = 0; i < 256; ++i) {
        const auto id = static_cast<int32_t>(i << shift);
        const int64_t keys[] = {GetKey(other, id), GetKey(id, other), GetKey(id, id)};
        for (int k = 0; k < 3; ++k) homes[k].insert(StatisticKeyHash()(keys[k]) & 511);
      }
      for (const auto& some : homes) EXPECT_GT(some.size(), 150u) << shift << ' ' << other;
    }
  }
}

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

TEST(MapAccessIndex, UsesWhatWasClearedAgain) {
  MapAccessIndex index;
  EXPECT_EQ(index.Insert(5, 77, 9000, 3), 0);
  index.Clear(5);
  const test::Allocations allocations;
  for (int round = 0; round < 100; ++round) {
    EXPECT_EQ(index.Insert(5, 78, 9000, round), 0);
    index.Clear(5);
  }
  EXPECT_EQ(test::Allocations::count, 0);
}

}  // namespace
}  // namespace KorvainService
