// Runs the benchmarks in interleaved repetitions and sets their medians beside each other.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

using Medians = std::map<std::string, double>;  // nanoseconds by name of the benchmark

// Keeps the medians and shows them as they come.
class MedianReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        has_failed = true;
      } else if (run.aggregate_name == "median") {
        const std::string name =
            run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
        medians[name] = run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations);
      }
    }
  }

  Medians medians;
  bool has_failed = false;
};

enum Direction { AT_LEAST, AT_MOST };

// Two benchmarks to compare. The ratio is how many times faster ours is or, for AT_MOST, how many
// times as long it takes.
struct Comparison {
  std::string text;
  std::string other;
  std::string ours;
  Direction direction;
  double goal;                 // 0: none
  std::string our_overhead;    // what the workload itself costs, subtracted; may be empty
  std::string other_overhead;  // the same for the other
};

void PrintHeader(const char* title) {
  printf("\n%-52s %12s %12s %8s  %s\n", title, "other (ns)", "ours (ns)", "ratio", "goal");
}

// The time of a benchmark without that of another, or nothing when one was not run or the rest is
// too small to be told from noise.
std::optional<double> TimeWithout(const Medians& medians, const std::string& name,
                                  const std::string& overhead) {
  const auto found = medians.find(name);
  if (found == medians.end()) return std::nullopt;
  if (overhead.empty()) return found->second;
  const auto subtracted = medians.find(overhead);
  if (subtracted == medians.end() || subtracted->second >= found->second) return std::nullopt;
  return found->second - subtracted->second;
}

// False when the goal is missed or nothing can be compared.
bool PrintComparison(const Medians& medians, const Comparison& row) {
  const auto other = TimeWithout(medians, row.other, row.other_overhead);
  const auto ours = TimeWithout(medians, row.ours, row.our_overhead);
  if (!other || !ours) {
    printf("%-52s  not measured\n", row.text.c_str());
    return false;
  }
  const double other_time = *other;
  const double our_time = *ours;
  const bool is_speed = row.direction == AT_LEAST;
  const double ratio = is_speed ? other_time / our_time : our_time / other_time;
  const bool is_met = row.goal == 0 || (is_speed ? ratio >= row.goal : ratio <= row.goal);
  printf("%-52s %12.1f %12.1f %7.2fx", row.text.c_str(), other_time, our_time, ratio);
  if (row.goal != 0) printf("  %s %.2fx", is_speed ? ">=" : "<=", row.goal);
  printf("%s\n", is_met ? "" : "  NOT MET");
  return is_met;
}

struct Competitor {
  const char* text;
  const char* tracker;
  Direction direction;
  double goals[4];  // 1, 1,000 and 100,000 in flight, all timed out
};

constexpr Competitor COMPETITORS[] = {
    {"flat_hash_map + intrusive list + pool", "AbslTracker", AT_LEAST, {2.0, 1.6, 1.7, 1.3}},
    {"unordered_map + list in send order", "StdListTracker", AT_LEAST, {2.0, 3.0, 3.5, 2.4}},
    {"unordered_map + multimap by deadline", "DeadlineTracker", AT_LEAST, {2.2, 5.0, 8.0, 4.5}},
    {"floor: fused slot, no look-up", "FloorTracker", AT_MOST, {4.0, 4.0, 3.0, 3.0}},
};

constexpr const char* WORKLOADS[] = {"1", "1000", "100000"};  // requests in flight

std::vector<Comparison> TrackingComparisons(const Competitor& competitor, const char* zones) {
  std::vector<Comparison> rows;
  const std::string of = std::string(competitor.tracker) + ">/";
  const std::string suffix = std::string(zones) == "1" ? ", 1 zone" : ", 100 zones";
  for (int i = 0; i < 3; ++i) {
    const std::string args = std::string(WORKLOADS[i]) + "/" + zones;
    rows.push_back({std::string("  ") + WORKLOADS[i] + " in flight" + suffix,
                    "BM_Answered<" + of + args, "BM_Answered<OwnTracker>/" + args,
                    competitor.direction, competitor.goals[i], "BM_Answered<NoTracker>/" + args,
                    "BM_Answered<NoTracker>/" + args});
  }
  rows.push_back({"  all timed out" + suffix, "BM_TimedOut<" + of + zones,
                  std::string("BM_TimedOut<OwnTracker>/") + zones, competitor.direction,
                  competitor.goals[3], std::string("BM_TimedOut<NoTracker>/") + zones,
                  std::string("BM_TimedOut<NoTracker>/") + zones});
  return rows;
}

const Comparison OTHER_COMPARISONS[] = {
    {"a tracked request / prometheus Observe + Increment", "BM_Prometheus",
     "BM_Answered<OwnTracker>/1/1", AT_MOST, 1.0, "BM_Answered<NoTracker>/1/1", ""},
    {"FindAccessIndex / unordered_map, 256 accesses", "BM_FindInUnorderedMap/256",
     "BM_FindAccessIndex/256", AT_LEAST, 1.5, "", ""},
    {"FindAccessIndex / unordered_map, 256,000 accesses", "BM_FindInUnorderedMap/256000",
     "BM_FindAccessIndex/256000", AT_LEAST, 2.0, "", ""},
    {"Send / bare sendto, 1,400 bytes", "BM_BareSendto", "BM_Send", AT_MOST, 1.05, "", ""},
    {"JudgeProxyHash / by printf", "BM_HashByPrintf", "BM_JudgeProxyHash", AT_LEAST, 0, "", ""},
};

constexpr std::pair<const char*, const char*> JUDGE_FIGURES[] = {
    {"count and check cycle, 1 pair of 256 accesses", "BM_CheckCycles/1/256"},
    {"count and check cycles, 1,000 pairs of 16 accesses", "BM_CheckCycles/1000/16"},
    {"clean-up of 256,000 statuses, none stale", "BM_CleanUp/0"},
    {"clean-up of 256,000 statuses, all stale", "BM_CleanUp/1"},
    {"IsProxyUnavailable, 16,000 endpoints", "BM_IsProxyUnavailable"},
};

// The number of goals missed.
int PrintTables(const Medians& medians) {
  int missed = 0;
  for (const Competitor& competitor : COMPETITORS) {
    PrintHeader(competitor.text);
    for (const char* zones : {"1", "100"}) {
      for (const Comparison& row : TrackingComparisons(competitor, zones)) {
        missed += PrintComparison(medians, row) ? 0 : 1;
      }
    }
  }
  PrintHeader("others");
  for (const Comparison& row : OTHER_COMPARISONS) {
    missed += PrintComparison(medians, row) ? 0 : 1;
  }
  printf("\n%-52s %12s\n", "the judge", "time (us)");
  for (const auto& [text, name] : JUDGE_FIGURES) {
    const auto found = medians.find(name);
    if (found != medians.end()) printf("%-52s %12.2f\n", text, found->second / 1000);
  }
  return missed;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const int missed = bench::PrintTables(reporter.medians);
  printf("\ngoals missed: %d\n", missed);
  return reporter.has_failed ? 1 : 0;
}
