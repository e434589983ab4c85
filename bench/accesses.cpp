#include "accesses.h"

#include <arpa/inet.h>

namespace bench {

Accesses MakeAccesses(int zones, int per_zone) {
  Accesses accesses;
  for (int zone = 0; zone < zones; ++zone) {
    for (int i = 0; i < per_zone; ++i) {
      // The port numbers all accesses, so that the floor finds its counters by it.
      const int32_t ip = NetworkAddress(static_cast<uint32_t>(i) + 1);
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

int32_t NetworkAddress(uint32_t offset) {
  return static_cast<int32_t>(htonl(0x0A000000u + offset));
}

}  // namespace bench
