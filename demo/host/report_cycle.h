// The report cycle of all zones: from the start of a period to its report and the next start.
#ifndef KORVAIN_DEMO_REPORT_CYCLE_H_
#define KORVAIN_DEMO_REPORT_CYCLE_H_

#include <cstdint>
#include <vector>

#include "demo/common/output_file.h"
#include "demo/host/collect_channel.h"
#include "demo/host/host_options.h"
#include "demo/host/proxy_set.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

class ReportCycle {
 public:
  // Prepares the manager and its records, one for each of `zones`, and starts their first period.
  // Throws std::runtime_error.
  ReportCycle(const HostOptions& options, const std::vector<Proxy>& proxies,
              const std::vector<ProxySet>& zones,
              KorvainService::KorvainServiceStatisticMgr& statistic_mgr, CollectChannel& channel,
              OutputFile& journal, KorvainService::Logger& logger);

  void ReportDueZones();

  // Whether every zone's period is at least a second old. Younger ones have no rates: the module
  // would clear the record.
  bool CanReportAll() const;
  void ReportAll();

 private:
  struct Zone {
    const ProxySet& proxies;
    int64_t period_start_s;
  };

  void CreateRecord(Zone& zone);
  void StartPeriod(Zone& zone, int64_t now_s);
  void Report(const Zone& zone, int64_t now_ms);

  const HostOptions& m_options;
  const std::vector<Proxy>& m_proxies;
  KorvainService::KorvainServiceStatisticMgr& m_statistic_mgr;
  CollectChannel& m_channel;
  OutputFile& m_journal;
  std::vector<Zone> m_zones;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_REPORT_CYCLE_H_
