#include "reporting_zones.h"

#include "accesses.h"

namespace bench {

ReportingZones::ReportingZones(int zones) : m_zones(zones) {
  for (int zone = 0; zone < zones; ++zone) {
    m_statistic.CreateStatisticMap(1, APP, zone);
    AddAccesses(zone);
  }
}

void ReportingZones::RestartNextZone() {
  m_statistic.Reset(APP, m_next_zone);
  m_statistic.ClearAccess(m_next_zone);
  AddAccesses(m_next_zone);
  if (++m_next_zone == m_zones) m_next_zone = 0;
}

void ReportingZones::AddAccessesAgain(int zone) {
  m_statistic.Reset(APP, zone);
  AddAccesses(zone);
}

void ReportingZones::AddAccesses(int zone) {
  for (uint32_t i = 0; i < KorvainService::STATISTIC_MAX_ACCESS_COUNT; ++i) {
    m_statistic.AddAccess(APP, zone, "udp://10.0.0.1:9000", NetworkAddress(i), 9000, "proxy");
  }
}

}  // namespace bench
