#include "workloads.h"

namespace bench {

int64_t clock_ms = 0;

Accesses MakeAccesses(int zones, int per_zone) {
  Accesses accesses;
  for (int zone = 0; zone < zones; ++zone) {
    for (int i = 0; i < per_zone; ++i) {
      // The port numbers all accesses, so that the floor finds its counters by it.
      const auto ip = static_cast<int32_t>(0x0100000Au + (static_cast<uint32_t>(i) << 24));
      accesses.push_back({zone, ip, static_cast<int32_t>(accesses.size())});
    }
  }
  return accesses;
}

void Register(const Accesses& accesses, KorvainService::KorvainServiceStatisticMgr& statistic) {
  for (const Access& access : accesses) {
    if (statistic.GetServiceApiStatistic(APP, access.zone) == nullptr) {
      statistic.CreateStatisticMap(1, APP, access.zone);
    }
    statistic.AddAccess(APP, access.zone, "udp://x", access.ip, access.port, "s");
  }
}

}  // namespace bench

namespace KorvainService {

int64_t GetCurrentMilliseconds() {
  return bench::clock_ms;
}

}  // namespace KorvainService
