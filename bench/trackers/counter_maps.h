// What the trackers that the module is measured against count in.
#ifndef KORVAIN_BENCH_TRACKERS_COUNTER_MAPS_H_
#define KORVAIN_BENCH_TRACKERS_COUNTER_MAPS_H_

#include <cstdint>
#include <unordered_map>

#include "accesses.h"

namespace bench {

struct Counters {
  uint64_t delay_sum = 0;
  uint32_t delays = 0;
  uint32_t time_outs = 0;

  void AddDelay(int64_t delay) {
    delay_sum += static_cast<uint64_t>(delay);
    ++delays;
  }
};

// Counters of zones and accesses in maps of the kind that the tracker uses anyway.
template <class ZoneMap, class AccessMap>
class CounterMaps {
 public:
  explicit CounterMaps(const Accesses& accesses) {
    for (const Access& access : accesses) {
      m_zones[access.zone];
      m_accesses[access];
    }
  }

  void AddDelay(const Access& access, int64_t delay) {
    m_zones.find(access.zone)->second.AddDelay(delay);
    const auto found = m_accesses.find(access);
    if (found != m_accesses.end()) found->second.AddDelay(delay);
  }

  void AddTimeOut(const Access& access) {
    ++m_zones.find(access.zone)->second.time_outs;
    const auto found = m_accesses.find(access);
    if (found != m_accesses.end()) ++found->second.time_outs;
  }

 private:
  ZoneMap m_zones;
  AccessMap m_accesses;
};

using StdCounterMaps = CounterMaps<std::unordered_map<int32_t, Counters>,
                                   std::unordered_map<Access, Counters, AccessHash>>;

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_COUNTER_MAPS_H_
