// The judge: check cycles, the clean-up of stale statuses, the query, the hash.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "fake_clocks.h"
#include "service_api/korvain_service_statistic.h"

namespace bench {
namespace {

using KorvainService::JudgeProxy;
using KorvainService::JudgeProxyHash;
using KorvainService::JudgeProxyMapKeyInfo;
using KorvainService::KorvainServiceStatisticMgr;

// `pairs` zones of one application with the same number of accesses each, and their judge.
class Judged {
 public:
  Judged(int pairs, int per_pair) : m_pairs(pairs) {
    wall_seconds = 1000000;
    for (int zone = 0; zone < pairs; ++zone) {
      m_statistic.CreateStatisticMap(1, 1, zone);
      for (int i = 0; i < per_pair; ++i) {
        m_statistic.AddAccess(1, zone, Url(i).c_str(), i, zone, "s");
      }
    }
    RunCycles(0);
    RunCycles(0);
    RunCycles(11);
  }
  ~Judged() { wall_seconds.reset(); }
  Judged(const Judged&) = delete;
  Judged& operator=(const Judged&) = delete;

  static std::string Url(int i) { return "udp://10.1.2." + std::to_string(i) + ":9000"; }

  // One request more for each access, so that each is evaluated.
  void CountRequests() {
    for (int zone = 0; zone < m_pairs; ++zone) {
      auto& record = *m_statistic.GetServiceApiStatistic(1, zone);
      for (int i = 0; i < record.iAccessCount; ++i) {
        ++record.astAccessStatistic[i].stAccessRunStatus.dwRequestCountPerMin;
      }
    }
  }

  void RunCycles(int64_t seconds_later) {
    *wall_seconds += seconds_later;
    for (int zone = 0; zone < m_pairs; ++zone) judge.Update(1, zone, m_statistic);
  }

  // One cycle of a pair without accesses, whose first cycle walks all statuses.
  void RunFirstCycleOfAnotherPair(int zone) {
    judge.Update(1, zone, m_statistic);
    judge.Update(1, zone, m_statistic);
    *wall_seconds += 11;
    judge.Update(1, zone, m_statistic);
  }

  JudgeProxy judge{nullptr};

 private:
  int m_pairs;
  KorvainServiceStatisticMgr m_statistic;
};

void BM_CheckCycles(benchmark::State& state) {
  Judged judged(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  for (auto _ : state) {
    judged.CountRequests();  // an access without new requests is not evaluated
    judged.RunCycles(11);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
}

void BM_CleanUp(benchmark::State& state) {
  const bool is_all_stale = state.range(0) != 0;
  auto judged = std::make_unique<Judged>(1000, 256);
  int zone = 1000;
  for (auto _ : state) {
    state.PauseTiming();
    if (is_all_stale) {
      judged.reset();
      judged = std::make_unique<Judged>(1000, 256);
      *wall_seconds += 300;
    }
    state.ResumeTiming();
    judged->RunFirstCycleOfAnotherPair(zone++);
    if (!is_all_stale) *wall_seconds -= 11;
  }
  state.SetItemsProcessed(state.iterations() * 256000);
}

void BM_IsProxyUnavailable(benchmark::State& state) {
  Judged judged(1000, 16);
  const std::string url = Judged::Url(7);
  int zone = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(judged.judge.IsProxyUnavailable(1, zone, url.c_str()));
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

BENCHMARK(BM_CheckCycles)->Args({1, 256})->Args({1000, 16})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CleanUp)->Arg(0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CleanUp)->Arg(1)->Unit(benchmark::kMicrosecond)->Iterations(1);
BENCHMARK(BM_IsProxyUnavailable);
BENCHMARK(BM_JudgeProxyHash);
BENCHMARK(BM_HashByPrintf);

}  // namespace
}  // namespace bench
