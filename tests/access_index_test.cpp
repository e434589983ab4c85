#include "service_api/access_index.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <random>
#include <set>
#include <tuple>

#include "common/korvain_error_code.h"
#include "service_api/statistic_mgr.h"
#include "support/fake_platform.h"

namespace KorvainService {
namespace {

TEST(Mix, GivesTheKnownValues) {
  EXPECT_EQ(mix(1, 0x0100007F, 8080), 0xA1B4A472u);
  EXPECT_EQ(mix(3, 0x0A00000A, 9999), 0x845BB380u);
  EXPECT_EQ(mix(0, 0, 0), 0u);
  EXPECT_EQ(mix(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF), 0xC9B16DCFu);
  EXPECT_EQ(StatisticAccessInfoHash()(StatisticAccessInfo{-1, -1, -1}), 0xC9B16DCFu);
}

TEST(StatisticKey, KeepsItsHalvesApart) {
  EXPECT_EQ(GetKey(-1, 0), 4294967295);
  EXPECT_EQ(GetKey(0, -1), -4294967296);
  EXPECT_EQ(GetKey(-1, -1), -1);
  EXPECT_EQ(GetKey(1, 2), 0x200000001);
  EXPECT_NE(GetKey(1, 2), GetKey(2, 1));
}

// Keys that differ in few bits, in either half, must not share homes. A good hash gives 256 keys
// about 200 different ones of 512.
TEST(StatisticKey, IsSpreadWhicheverBitsDiffer) {
  const auto homes_of = [](auto key_of) {
    std::set<size_t> homes;
    for (uint32_t i = 0; i < 256; ++i) homes.insert(StatisticKeyHash()(key_of(i)) & 511);
    return homes.size();
  };
  for (int shift = 0; shift <= 24; ++shift) {
    const auto spaced = [shift](uint32_t i) { return static_cast<int32_t>(i << shift); };
    for (const int32_t other : {0, 1, 60, 65536, 1 << 29, -1}) {
      EXPECT_GT(homes_of([&](uint32_t i) { return GetKey(other, spaced(i)); }), 150u)
          << "zones shifted by " << shift << " of application " << other;
      EXPECT_GT(homes_of([&](uint32_t i) { return GetKey(spaced(i), other); }), 150u)
          << "applications shifted by " << shift << " in zone " << other;
    }
    EXPECT_GT(homes_of([&](uint32_t i) { return GetKey(spaced(i), spaced(i)); }), 150u)
        << "both shifted by " << shift;
  }
}

TEST(MapAccessIndex, TellsKeysApartInEachField) {
  MapAccessIndex index;
  EXPECT_EQ(index.Find(0, 0, 0), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Insert(5, 77, 9000, 3), 0);
  EXPECT_EQ(index.Find(5, 77, 9000), 3);
  EXPECT_EQ(index.Find(6, 77, 9000), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Find(5, 78, 9000), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Find(5, 77, 9001), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Insert(5, 77, 9000, 8), GEN_ERR_ERR);
  EXPECT_EQ(index.Find(5, 77, 9000), 3);
}

TEST(MapAccessIndex, TakesAnyIndexAndTheAllZeroKey) {
  MapAccessIndex index;
  EXPECT_EQ(index.Insert(0, 0, 0, INVALID_ARRAY_INDEX), 0);
  EXPECT_EQ(index.Insert(0, 0, 0, 1), GEN_ERR_ERR);
  EXPECT_EQ(index.Find(0, 0, 0), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Insert(1, 0, 0, INT32_MIN + 1), 0);
  EXPECT_EQ(index.Find(1, 0, 0), INT32_MIN + 1);
  EXPECT_EQ(index.Insert(2, 0, 0, INT32_MIN), GEN_ERR_ERR);
  EXPECT_EQ(index.Find(2, 0, 0), INVALID_ARRAY_INDEX);
}

// Inserts and clears at random, with few distinct keys, so that probe chains form and are torn
// apart.
TEST(MapAccessIndex, AgreesWithAMapInARandomRun) {
  std::mt19937 random(20);
  MapAccessIndex index;
  std::map<std::tuple<int, int, int>, int> model;
  for (int step = 0; step < 60000; ++step) {
    const int zone = static_cast<int>(random() % 40) - 20;
    const int ip = static_cast<int>(random() % 12);
    const int port = static_cast<int>(random() % 3);
    if (random() % 50 == 0) {
      index.Clear(zone);
      model.erase(model.lower_bound({zone, INT32_MIN, INT32_MIN}),
                  model.lower_bound({zone + 1, INT32_MIN, INT32_MIN}));
    } else {
      const bool is_new = model.try_emplace({zone, ip, port}, step).second;
      ASSERT_EQ(index.Insert(zone, ip, port, step), is_new ? 0 : GEN_ERR_ERR) << "step " << step;
    }
    if (step % 100 != 0) continue;
    for (int z = -20; z < 20; ++z) {
      for (int i = 0; i < 36; ++i) {
        const auto found = model.find({z, i / 3, i % 3});
        ASSERT_EQ(index.Find(z, i / 3, i % 3),
                  found == model.end() ? INVALID_ARRAY_INDEX : found->second)
            << "step " << step;
      }
    }
  }
}

// The insertion that makes the table grow allocates in several places; each is made to fail.
TEST(MapAccessIndex, SurvivesFailedAllocations) {
  int failing = 0;
  for (bool has_thrown = true; has_thrown; ++failing) {
    SCOPED_TRACE(failing);
    MapAccessIndex index;
    for (int i = 0; i < 8; ++i) index.Insert(1, i, 0, i);
    {
      const test::Allocations allocations;
      test::Allocations::Restart(-1, failing);
      has_thrown = false;
      try {
        index.Insert(2, 8, 0, 8);
      } catch (const std::bad_alloc&) {
        has_thrown = true;
      }
    }
    EXPECT_EQ(index.Find(2, 8, 0), has_thrown ? INVALID_ARRAY_INDEX : 8);
    EXPECT_EQ(index.Insert(2, 8, 0, 8), has_thrown ? 0 : GEN_ERR_ERR);
    index.Clear(2);
    EXPECT_EQ(index.Find(2, 8, 0), INVALID_ARRAY_INDEX);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(index.Find(1, i, 0), i);
  }
  EXPECT_GE(failing, 4) << "the table, the zone and its accesses";
}

}  // namespace
}  // namespace KorvainService
