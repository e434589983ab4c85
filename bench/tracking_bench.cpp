// One tracked request, sent and answered or timed out, by each tracker.
#include <benchmark/benchmark.h>
#include <prometheus/counter.h>
#include <prometheus/histogram.h>

#include "trackers/absl.h"
#include "trackers/deadline.h"
#include "trackers/floor.h"
#include "trackers/none.h"
#include "trackers/own.h"
#include "trackers/std_list.h"
#include "workloads.h"

namespace bench {
namespace {

template <class Tracker>
void BM_Answered(benchmark::State& state) {
  const Accesses accesses = state.range(1) == 1 ? MakeAccesses(1, 1) : MakeAccesses(100, 64);
  Tracker tracker(accesses);
  RandomOrder<Tracker> workload(tracker, accesses, static_cast<uint32_t>(state.range(0)));
  for (auto _ : state) workload.Step();
}

template <class Tracker>
void BM_TimedOut(benchmark::State& state) {
  const Accesses accesses = state.range(0) == 1 ? MakeAccesses(1, 1) : MakeAccesses(100, 64);
  Tracker tracker(accesses);
  AllTimeOut<Tracker> workload(tracker, accesses);
  while (state.KeepRunningBatch(SWEEP_LIMIT)) workload.Step();
}

// Observing one delay and counting one response with metric objects already at hand.
void BM_Prometheus(benchmark::State& state) {
  prometheus::Histogram histogram({1, 2, 5, 10, 20, 50, 100, 200, 500, 1000});
  prometheus::Counter counter;
  double delay = 0;
  for (auto _ : state) {
    delay = delay < 1000 ? delay + 7 : 0;
    histogram.Observe(delay);
    counter.Increment();
  }
}

#define BENCH_TRACKER(Tracker)                                                          \
  BENCHMARK_TEMPLATE(BM_Answered, Tracker)->ArgsProduct({{1, 1000, 100000}, {1, 100}}); \
  BENCHMARK_TEMPLATE(BM_TimedOut, Tracker)->Arg(1)->Arg(100)

BENCH_TRACKER(OwnTracker);
BENCH_TRACKER(AbslTracker);
BENCH_TRACKER(StdListTracker);
BENCH_TRACKER(DeadlineTracker);
BENCH_TRACKER(FloorTracker);
BENCH_TRACKER(NoTracker);
BENCHMARK(BM_Prometheus);

}  // namespace
}  // namespace bench
