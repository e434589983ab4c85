#include "service_api/korvain_service_statistic.h"

// How many requests time out, of one that was sent at 900 ms and has 3000 ms. None by the clock of
// this project, which stands at 1000 ms; one by the wall clock.
__attribute__((visibility("default"))) int CountTimedOut() {
  constexpr int APP = 1, ZONE = 2;
  KorvainService::KorvainServiceStatisticMgr statistic;
  KorvainService::LatencyDataMgr latency;
  if (statistic.CreateStatisticMap(1, APP, ZONE) != 0) return -1;
  if (latency.Init(APP, 3000, 100, nullptr) != 0) return -1;
  if (latency.PushBack(ZONE, 900, 3, 4) < 0) return -1;
  if (latency.TraverseForDeleteTimeOutNode(&statistic) != 0) return -1;
  const uint32_t timed_out =
      statistic.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus.dwTimeoutCountPerMin;
  return static_cast<int>(timed_out);
}
