// Prints the resident memory of one latency manager: idle, and with requests in flight. Exit status
// 1: a goal was missed.
#include <malloc.h>

#include <cstdio>
#include <memory>

#include "resident_memory.h"
#include "service_api/korvain_service_statistic.h"

namespace {

// Per manager, with this many requests in flight in each.
long KilobytesWith(int in_flight) {
  constexpr int MANAGERS = 20;  // measured together, since resident memory is counted in pages
  std::unique_ptr<KorvainService::LatencyDataMgr> managers[MANAGERS];
  const long before = bench::ResidentKilobytes();
  for (auto& manager : managers) {
    manager = std::make_unique<KorvainService::LatencyDataMgr>();
    manager->Init(1, 3000, 100, nullptr);
    for (int i = 0; i < in_flight; ++i) manager->PushBack(1, 0, 0x0100007F, 80);
  }
  return (bench::ResidentKilobytes() - before) / MANAGERS;
}

}  // namespace

int main() {
  // Freed pools must leave, lest the next ones find their pages resident.
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  KilobytesWith(0);  // the first call of everything needs memory of its own
  struct Row {
    int in_flight;
    long goal;
  };
  printf("%-52s %8s  %s\n", "resident memory of a latency manager", "KB", "goal");
  int missed = 0;
  for (const Row& row : {Row{0, 16}, Row{1000, 80}, Row{KorvainService::MAX_NODE_COUNT, 7168}}) {
    const long kilobytes = KilobytesWith(row.in_flight);
    const bool is_met = kilobytes <= row.goal;
    if (!is_met) ++missed;
    printf("  %6d requests in flight %27s %8ld  <= %ld%s\n", row.in_flight, "", kilobytes, row.goal,
           is_met ? "" : "  NOT MET");
  }
  return missed == 0 ? 0 : 1;
}
