// How the cost of an operation grows with the number of zones, and with the spacing of their ids.
#include <benchmark/benchmark.h>

#include <chrono>

#include "reporting_zones.h"
#include "spaced_ids.h"

namespace bench {
namespace {

void BM_RestartZone(benchmark::State& state) {
  ReportingZones zones(static_cast<int>(state.range(0)));
  for (auto _ : state) zones.RestartNextZone();
}

// Timed by hand: pausing the timer would cost more than the operation.
void BM_ClearAccess(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  ReportingZones zones(count);
  int zone = 0;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    zones.ClearAccesses(zone);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(passed.count());
    zones.AddAccessesAgain(zone);
    if (++zone == count) zone = 0;
  }
}

void BM_LookUpRecord(benchmark::State& state) {
  const auto varied = static_cast<VariedIds>(state.range(0));
  SpacedRecords records(SpacedPairs(varied, static_cast<int>(state.range(1)), 1024));
  for (auto _ : state) benchmark::DoNotOptimize(records.LookUpNext());
}

void BM_SpacedRequest(benchmark::State& state) {
  const auto varied = static_cast<VariedIds>(state.range(0));
  SpacedRequests requests(SpacedPairs(varied, static_cast<int>(state.range(1)), 64));
  for (auto _ : state) requests.SendNextAndAnswer();
}

BENCHMARK(BM_RestartZone)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_ClearAccess)->Arg(10)->Arg(100)->Arg(1000)->UseManualTime();

// A fixed number of iterations spares each run the building of its records more than once.
BENCHMARK(BM_LookUpRecord)
    ->ArgsProduct({{ZONES, APPS, BOTH}, benchmark::CreateDenseRange(0, 22, 1)})
    ->Iterations(1 << 16);
BENCHMARK(BM_SpacedRequest)
    ->ArgsProduct({{ZONES, APPS, BOTH}, benchmark::CreateDenseRange(0, 24, 1)})
    ->Iterations(1 << 18);

}  // namespace
}  // namespace bench
