#include <cstdio>
#include <string>
#include <utility>

#include "tables.h"

namespace bench {
namespace {

struct Comparison {
  std::string text;
  std::string other;
  std::string ours;
  std::string other_overhead;  // what the workload itself costs, subtracted; may be empty
  std::string our_overhead;
};

void BeginComparisons(Report& report, const char* title) {
  char header[128];
  snprintf(header, sizeof(header), "%-52s %12s %12s %12s", title, "other (ns)", "ours (ns)",
           "other/ours");
  report.BeginTable(header);
}

void PrintComparison(Report& report, const Comparison& row) {
  const auto times =
      report.BeginRow(row.text, {row.other, row.ours, row.other_overhead, row.our_overhead});
  if (!times) return;
  const double other = (*times)[0] - (*times)[2];
  const double ours = (*times)[1] - (*times)[3];
  if (other <= 0 || ours <= 0) {
    printf("  no more than the workload itself\n");
    return;
  }
  printf(" %12.1f %12.1f %11.2fx\n", other, ours, other / ours);
}

constexpr std::pair<const char*, const char*> COMPETITORS[] = {
    {"flat_hash_map + intrusive list + pool", "AbslTracker"},
    {"unordered_map + list in send order", "StdListTracker"},
    {"unordered_map + multimap by deadline", "DeadlineTracker"},
    {"floor: fused slot, no look-up", "FloorTracker"},
};

void PrintTracking(Report& report, const std::string& tracker, const std::string& benchmark,
                   const std::string& text, const std::string& arguments) {
  const auto name = [&](const std::string& of) { return benchmark + "<" + of + ">/" + arguments; };
  PrintComparison(report, {"  " + text, name(tracker), name("OwnTracker"), name("NoTracker"),
                           name("NoTracker")});
}

void PrintTracker(Report& report, const std::string& tracker) {
  for (const std::string zones : {"1", "100"}) {
    const std::string with_zones = ", " + zones + (zones == "1" ? " zone" : " zones");
    for (const std::string in_flight : {"1", "1000", "100000"}) {
      PrintTracking(report, tracker, "BM_Answered", in_flight + " in flight" + with_zones,
                    in_flight + "/" + zones);
    }
    PrintTracking(report, tracker, "BM_TimedOut", "all timed out" + with_zones, zones);
  }
}

const Comparison OTHER_COMPARISONS[] = {
    {"prometheus Observe + Increment / a tracked request", "BM_Prometheus",
     "BM_Answered<OwnTracker>/1/1", "", "BM_Answered<NoTracker>/1/1"},
    {"unordered_map / FindAccessIndex, 256 accesses", "BM_FindInUnorderedMap/256",
     "BM_FindAccessIndex/256", "", ""},
    {"unordered_map / FindAccessIndex, 256,000 accesses", "BM_FindInUnorderedMap/256000",
     "BM_FindAccessIndex/256000", "", ""},
    {"bare sendto / Send, 1,400 bytes", "BM_BareSendto", "BM_Send", "", ""},
    {"by printf / JudgeProxyHash", "BM_HashByPrintf", "BM_JudgeProxyHash", "", ""},
};

constexpr std::pair<const char*, const char*> JUDGE_FIGURES[] = {
    {"count and check cycle, 1 pair of 256 accesses", "BM_CheckCycles/1/256"},
    {"count and check cycles, 1,000 pairs of 16 accesses", "BM_CheckCycles/1000/16"},
    {"clean-up of 256,000 statuses, none stale", "BM_CleanUp/0"},
    {"clean-up of 256,000 statuses, all stale", "BM_CleanUp/1"},
    {"IsProxyUnavailable, 16,000 endpoints", "BM_IsProxyUnavailable"},
};

void PrintJudge(Report& report) {
  char header[128];
  snprintf(header, sizeof(header), "%-52s %12s", "the judge", "time (us)");
  report.BeginTable(header);
  for (const auto& [text, name] : JUDGE_FIGURES) {
    const auto times = report.BeginRow(text, {name});
    if (times) printf(" %12.2f\n", times->front() / 1000);
  }
}

}  // namespace

void PrintComparisons(Report& report) {
  for (const auto& [title, tracker] : COMPETITORS) {
    BeginComparisons(report, title);
    PrintTracker(report, tracker);
  }
  BeginComparisons(report, "others");
  for (const Comparison& row : OTHER_COMPARISONS) PrintComparison(report, row);
  PrintJudge(report);
}

}  // namespace bench
