#include "service_api/access_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <tuple>

#include "common/korvain_error_code.h"
#include "service_api/statistic_key.h"
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

// Inserts and clears at random, with few distinct keys, so that probe chains form, wrap around the
// end of the table and are torn apart.
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

TEST(MapAccessIndex, SurvivesAFailedGrowth) {
  MapAccessIndex index;
  for (int i = 0; i < 8; ++i) index.Insert(1, i, 0, i);
  {
    const test::Allocations allocations;
    test::Allocations::Restart(-1, 0);
    EXPECT_THROW(index.Insert(1, 8, 0, 8), std::bad_alloc);
  }
  EXPECT_EQ(index.Find(1, 8, 0), INVALID_ARRAY_INDEX);
  EXPECT_EQ(index.Insert(1, 8, 0, 8), 0);
  for (int i = 0; i <= 8; ++i) EXPECT_EQ(index.Find(1, i, 0), i);
}

}  // namespace
}  // namespace KorvainService
