// Runs the benchmarks and prints their times as tables. Exit status 1: a benchmark failed or a
// row has lost its benchmark. The goals are of times, so a missed one is only shown.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "report.h"
#include "tables.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  bench::Measurements measurements;
  const size_t selected = benchmark::RunSpecifiedBenchmarks(&measurements);
  if (measurements.IsEmpty()) return selected == 0 || measurements.HasFailed() ? 1 : 0;

  const bool is_selection = !benchmark::GetBenchmarkFilter().empty();
  if (is_selection) measurements.Print();  // the tables leave out what they cannot compare
  bench::Report report(measurements, is_selection);
  bench::PrintComparisons(report);
  bench::PrintScaling(report);
  printf("\ngoals missed: %d; rows that lack their benchmark: %d\n", report.GoalsMissed(),
         report.RowsMissing());
  return measurements.HasFailed() || report.RowsMissing() > 0 ? 1 : 0;
}
