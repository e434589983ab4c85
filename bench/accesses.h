// The accesses that the benchmarks register and send to, and the settings they share.
#ifndef KORVAIN_BENCH_ACCESSES_H_
#define KORVAIN_BENCH_ACCESSES_H_

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace bench {

constexpr int APP = 1;
constexpr int64_t TIME_OUT = 3000;
constexpr int SWEEP_LIMIT = 100;

struct Access {
  int32_t zone, ip, port;

  friend bool operator==(const Access& a, const Access& b) {
    return a.zone == b.zone && a.ip == b.ip && a.port == b.port;
  }
  template <class H>
  friend H AbslHashValue(H hash, const Access& access) {
    return H::combine(std::move(hash), access.zone, access.ip, access.port);
  }
};

struct AccessHash {
  size_t operator()(const Access& access) const {
    return KorvainService::StatisticAccessInfoHash()({access.zone, access.ip, access.port});
  }
};

using Accesses = std::vector<Access>;

// `zones` zones of `per_zone` accesses each.
Accesses MakeAccesses(int zones, int per_zone);

// Creates the records of their zones and adds them.
void Register(const Accesses& accesses, KorvainService::KorvainServiceStatisticMgr& statistic);

// The address 10.0.0.0 + `offset` as an in_addr holds it, in network byte order.
int32_t NetworkAddress(uint32_t offset);

}  // namespace bench

#endif  // KORVAIN_BENCH_ACCESSES_H_
