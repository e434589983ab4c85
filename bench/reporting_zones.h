// Zones whose records are cleared for a new period and filled with their accesses again.
#ifndef KORVAIN_BENCH_REPORTING_ZONES_H_
#define KORVAIN_BENCH_REPORTING_ZONES_H_

#include "service_api/korvain_service_statistic.h"

namespace bench {

class ReportingZones {
 public:
  // All zones with the same 256 endpoints, which are in use.
  explicit ReportingZones(int zones);

  // One zone's part of a round, which takes each zone in its turn.
  void RestartNextZone();

  // The part that goes through the index, and what it takes before it can be done again.
  void ClearAccesses(int zone) { m_statistic.ClearAccess(zone); }
  void AddAccessesAgain(int zone);

 private:
  void AddAccesses(int zone);

  int m_zones;
  int m_next_zone = 0;
  KorvainService::KorvainServiceStatisticMgr m_statistic;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_REPORTING_ZONES_H_
