// Prints the resident memory of one latency manager: idle, and with requests in flight.
#include <unistd.h>
#include <cstdio>
#include <memory>

#include "service_api/korvain_service_statistic.h"

namespace {

// Resident kilobytes of the process.
long ResidentKilobytes() {
  long size = 0;
  long resident = 0;
  FILE* const statm = fopen("/proc/self/statm", "r");
  if (statm == nullptr || fscanf(statm, "%ld %ld", &size, &resident) != 2) resident = 0;
  if (statm != nullptr) fclose(statm);
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Per manager, with this many requests in flight in each.
long KilobytesWith(int in_flight) {
  constexpr int MANAGERS = 20;  // measured together, since resident memory is counted in pages
  std::unique_ptr<KorvainService::LatencyDataMgr> managers[MANAGERS];
  const long before = ResidentKilobytes();
  for (auto& manager : managers) {
    manager = std::make_unique<KorvainService::LatencyDataMgr>();
    manager->Init(1, 3000, 100, nullptr);
    for (int i = 0; i < in_flight; ++i) manager->PushBack(1, 0, 0x0100007F, 80);
  }
  return (ResidentKilobytes() - before) / MANAGERS;
}

}  // namespace

int main() {
  KilobytesWith(0);  // the first call of everything needs memory of its own
  for (const int in_flight : {0, 1, 1000, KorvainService::MAX_NODE_COUNT}) {
    printf("%6d in flight: %5ld KB resident per manager\n", in_flight, KilobytesWith(in_flight));
  }
  return 0;
}
