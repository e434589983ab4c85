// The module's own tracker.
#ifndef KORVAIN_BENCH_TRACKERS_OWN_H_
#define KORVAIN_BENCH_TRACKERS_OWN_H_

#include <cstdint>

#include "accesses.h"

namespace bench {

class OwnTracker {
 public:
  explicit OwnTracker(const Accesses& accesses, KorvainService::Logger* logger = nullptr) {
    Register(accesses, m_statistic);
    m_latency.Init(APP, TIME_OUT, SWEEP_LIMIT, logger);
  }

  int64_t Push(const Access& access, int64_t now) {
    return m_latency.PushBack(access.zone, now, access.ip, access.port);
  }
  void Complete(int64_t id, int64_t now) {
    m_latency.CalculateDelay(static_cast<int32_t>(id), now, &m_statistic);
  }
  void Sweep() { m_latency.TraverseForDeleteTimeOutNode(&m_statistic); }

 private:
  KorvainService::KorvainServiceStatisticMgr m_statistic;
  KorvainService::LatencyDataMgr m_latency;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_OWN_H_
