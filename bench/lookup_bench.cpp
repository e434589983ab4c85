// Finding the slot of an access, beside std::unordered_map with the same hash.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <unordered_map>

#include "accesses.h"

namespace bench {
namespace {

// In another order than that in which they are entered, lest nodes lie in the order of queries.
Accesses Shuffled(Accesses accesses) {
  std::shuffle(accesses.begin(), accesses.end(), std::mt19937(1));
  return accesses;
}

void BM_FindAccessIndex(benchmark::State& state) {
  const int zones = static_cast<int>(state.range(0)) / 256;
  const Accesses entered = MakeAccesses(zones, 256);
  const Accesses accesses = Shuffled(entered);
  KorvainService::KorvainServiceStatisticMgr mgr;
  Register(entered, mgr);
  size_t next = 0;
  for (auto _ : state) {
    const Access& access = accesses[next];
    benchmark::DoNotOptimize(mgr.FindAccessIndex(access.zone, access.ip, access.port));
    if (++next == accesses.size()) next = 0;
  }
}

void BM_FindInUnorderedMap(benchmark::State& state) {
  const int zones = static_cast<int>(state.range(0)) / 256;
  const Accesses entered = MakeAccesses(zones, 256);
  const Accesses accesses = Shuffled(entered);
  std::unordered_map<Access, int32_t, AccessHash> map;
  for (const Access& access : entered) map.emplace(access, access.port % 256);
  size_t next = 0;
  for (auto _ : state) {
    const Access& access = accesses[next];
    const auto found = map.find(access);
    benchmark::DoNotOptimize(found == map.end() ? -1 : found->second);
    if (++next == accesses.size()) next = 0;
  }
}

BENCHMARK(BM_FindAccessIndex)->Arg(256)->Arg(256000);
BENCHMARK(BM_FindInUnorderedMap)->Arg(256)->Arg(256000);

}  // namespace
}  // namespace bench
