#include "service_api/detail/probe_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "support/fake_platform.h"

namespace KorvainService {
namespace {

// Keys stand at home where they say, so that chains can be laid over the end of the array.
struct Identity {
  size_t operator()(int key) const { return static_cast<size_t>(key); }
};

constexpr int ABSENT = -1;
constexpr int SLOTS = 16;  // for up to 8 entries

using Table = detail::ProbeTable<int, int, Identity, ABSENT>;

TEST(ProbeTable, VisitsTheFirstAndTheLastSlot) {
  Table table;
  std::set<int> inserted;
  for (const int key : {0, 7, SLOTS - 1}) {
    EXPECT_TRUE(table.Insert(key, key + 100));
    inserted.insert(key + 100);
  }
  std::set<int> visited;
  table.ForEachValue([&visited](int value) { visited.insert(value); });
  EXPECT_EQ(visited, inserted);
}

// Homes near the end of the array: chains wrap around, and each removal tears one apart.
TEST(ProbeTable, ChainsWrapAroundTheEnd) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    Table table;
    std::map<int, int> model;
    for (int step = 0; step < 40; ++step) {
      const int home = SLOTS - 1 - static_cast<int>(random() % 3);
      const int key = home + SLOTS * static_cast<int>(random() % 4);
      if (model.size() < 8 && random() % 2 == 0) {
        ASSERT_EQ(table.Insert(key, step), model.emplace(key, step).second);
      } else {
        ASSERT_EQ(table.Erase(key), model.erase(key) == 1);
      }
      for (int k = SLOTS - 3; k < 5 * SLOTS; ++k) {
        const auto found = model.find(k);
        ASSERT_EQ(table.Find(k), found == model.end() ? ABSENT : found->second) << k;
      }
    }
  }
}

TEST(ProbeTable, RemovedEntriesMakeRoom) {
  Table table;
  for (int key = 0; key < 8; ++key) table.Insert(key, key);
  const test::Allocations allocations;
  for (int key = 8; key < 1000; ++key) {
    EXPECT_TRUE(table.Erase(key - 8));
    EXPECT_TRUE(table.Insert(key, key));
  }
  EXPECT_EQ(test::Allocations::Count(), 0);
}

}  // namespace
}  // namespace KorvainService
