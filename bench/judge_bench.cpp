// The judge: check cycles, the clean-up of stale statuses, the query, the hash.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "accesses.h"
#include "fake_clocks.h"
#include "judged.h"

namespace bench {
namespace {

using KorvainService::JudgeProxyHash;
using KorvainService::JudgeProxyMapKeyInfo;

constexpr int PER_PAIR = 256;

// For runs of few iterations, whose figure is that of cycles alone.
void RefuseCleanUp(benchmark::State& state) {
  if (*wall_seconds >= Judged::CLEAN_UP_INTERVAL) state.SkipWithError("a clean-up was due");
}

void BM_CheckCycles(benchmark::State& state) {
  Judged judged(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  for (auto _ : state) {
    judged.CountRequests();
    *wall_seconds += Judged::CYCLE_INTERVAL;
    judged.UpdateAll();
  }
  RefuseCleanUp(state);
}

// All cycles but no clean-up due in the same second.
void BM_SecondOfCycles(benchmark::State& state) {
  Judged judged(static_cast<int>(state.range(0)), PER_PAIR);
  for (auto _ : state) {
    state.PauseTiming();
    judged.CountRequests();
    *wall_seconds += Judged::CYCLE_INTERVAL;
    state.ResumeTiming();
    judged.UpdateAll();
  }
  RefuseCleanUp(state);
}

// The worst second: the cycle and the clean-up of every pair due in it, and nothing stale.
void BM_SecondOfCleanUps(benchmark::State& state) {
  Judged judged(static_cast<int>(state.range(0)), PER_PAIR);
  *wall_seconds = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (int half = 0; half < 2; ++half) {
      *wall_seconds += Judged::CLEAN_UP_INTERVAL / 2;
      judged.CountRequests();
      if (half == 0) judged.UpdateAll();
    }
    state.ResumeTiming();
    judged.UpdateAll();
  }
}

// To be run for one iteration: the statuses of a second clean-up would have another age.
void BM_CleanUp(benchmark::State& state) {
  const bool is_all_stale = state.range(0) != 0;
  Judged judged(1000, PER_PAIR);
  // When the other pair's cycle comes, its clean-up is due, and one second decides what is stale.
  *wall_seconds = Judged::FIRST_SECOND + Judged::CLEAN_UP_INTERVAL - Judged::CYCLE_INTERVAL;
  if (!is_all_stale) --*wall_seconds;
  for (auto _ : state) judged.RunFirstCycleOfAnotherPair(1000);
}

void BM_IsProxyUnavailable(benchmark::State& state) {
  Judged judged(1000, 16);
  const std::string url = Judged::Url(7);
  int zone = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(judged.judge.IsProxyUnavailable(APP, zone, url.c_str()));
    if (++zone == 1000) zone = 0;
  }
}

void BM_JudgeProxyHash(benchmark::State& state) {
  const JudgeProxyMapKeyInfo key(1001, 23, "10.1.2.3:9000");
  for (auto _ : state) benchmark::DoNotOptimize(JudgeProxyHash()(key));
}

// The same values by way of printf.
void BM_HashByPrintf(benchmark::State& state) {
  const JudgeProxyMapKeyInfo key(1001, 23, "10.1.2.3:9000");
  for (auto _ : state) {
    char text[256];
    snprintf(text, sizeof(text), "%d#%d#%s", key.app_id, key.zone_id, key.url);
    uint64_t hash = 0;
    for (const char* c = text; *c != '\0'; ++c) hash = 5 * hash + static_cast<uint64_t>(*c);
    benchmark::DoNotOptimize(hash);
  }
}

BENCHMARK(BM_CheckCycles)->Args({1, 256})->Args({1000, 16})->Iterations(20);
BENCHMARK(BM_SecondOfCycles)->Arg(10)->Arg(100)->Arg(1000)->Iterations(20);
BENCHMARK(BM_SecondOfCleanUps)->Arg(10)->Arg(100)->Arg(1000)->Repetitions(3);
BENCHMARK(BM_CleanUp)->Arg(0)->Arg(1)->Iterations(1);
BENCHMARK(BM_IsProxyUnavailable);
BENCHMARK(BM_JudgeProxyHash);
BENCHMARK(BM_HashByPrintf);

}  // namespace
}  // namespace bench
