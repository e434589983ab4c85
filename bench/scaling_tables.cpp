#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "spaced_ids.h"
#include "tables.h"

namespace bench {
namespace {

// From 10 zones to 1,000: room for memory that the caches hold no longer. Work that grows with the
// number of zones comes to 100.
constexpr double MOST_GROWTH = 15;
constexpr double MOST_FOR_SPACING = 1.5;

struct Growth {
  const char* text;
  const char* benchmark;  // its argument is the number of zones
  bool is_of_all_zones;   // the measured time; else it is of one
};

constexpr Growth GROWTHS[] = {
    {"Reset, ClearAccess, 256 x AddAccess", "BM_RestartZone", false},
    {"ClearAccess alone", "BM_ClearAccess", false},
    {"judge's Update, all cycles in one second", "BM_SecondOfCycles", true},
    {"the same, all clean-ups in that second too", "BM_SecondOfCleanUps", true},
};

void PrintGrowths(Report& report) {
  char header[128];
  snprintf(header, sizeof(header), "%-52s %10s %10s %10s %9s  goal", "us per zone of 256 accesses",
           "10 zones", "100 zones", "1000 zones", "1000/10");
  report.BeginTable(header);
  for (const Growth& row : GROWTHS) {
    const std::string name = row.benchmark;
    auto times = report.BeginRow(row.text, {name + "/10", name + "/100", name + "/1000"});
    if (!times) continue;
    std::vector<double>& per_zone = *times;
    if (row.is_of_all_zones) per_zone = {per_zone[0] / 10, per_zone[1] / 100, per_zone[2] / 1000};
    for (const double nanoseconds : per_zone) printf(" %10.2f", nanoseconds / 1000);
    report.EndRow(per_zone[2] / per_zone[0], MOST_GROWTH);
  }
}

// Compared with consecutive ids in the same half of the key, which share their caches alike.
void PrintSpacing(Report& report, const char* text, const std::string& benchmark, VariedIds varied,
                  size_t widest_shift) {
  std::vector<std::string> names;
  for (size_t shift = 0; shift <= widest_shift; ++shift) {
    names.push_back(benchmark + "/" + std::to_string(varied) + "/" + std::to_string(shift));
  }
  const auto times = report.BeginRow(text, names);
  if (!times) return;
  const auto worst = std::max_element(times->begin() + 1, times->end());
  for (const size_t shift : {size_t{0}, size_t{8}, size_t{16}, widest_shift}) {
    printf(" %8.1f", (*times)[shift]);
  }
  printf(" %8.1f at 2^%-2d", *worst, static_cast<int>(worst - times->begin()));
  report.EndRow(*worst / times->front(), MOST_FOR_SPACING);
}

void PrintSpacings(Report& report, const char* title, const std::string& benchmark,
                   size_t widest_shift) {
  const std::string widest = "2^" + std::to_string(widest_shift);
  char header[128];
  snprintf(header, sizeof(header), "%-52s %8s %8s %8s %8s %8s %15s  goal", title, "1", "2^8",
           "2^16", widest.c_str(), "worst", "worst/1");
  report.BeginTable(header);
  PrintSpacing(report, "  zone ids this far apart, one application", benchmark, ZONES,
               widest_shift);
  PrintSpacing(report, "  application ids this far apart, one zone", benchmark, APPS, widest_shift);
  PrintSpacing(report, "  both this far apart", benchmark, BOTH, widest_shift);
}

}  // namespace

void PrintScaling(Report& report) {
  PrintGrowths(report);
  PrintSpacings(report, "ns to look up one of 1,024 records", "BM_LookUpRecord", 22);
  PrintSpacings(report, "ns for a request to one of 64 pairs", "BM_SpacedRequest", 24);
}

}  // namespace bench
