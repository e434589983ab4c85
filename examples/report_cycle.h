// The report cycle of all zones: from the start of a period to its report and the next start.
#ifndef KORVAIN_EXAMPLES_REPORT_CYCLE_H_
#define KORVAIN_EXAMPLES_REPORT_CYCLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "examples/program.h"
#include "examples/proxy_set.h"
#include "examples/service_options.h"
#include "service_api/korvain_service_statistic.h"

namespace example {

// Journal, per report: one line journal_report, then the lines of the record as they were before
// CalculateAverage, all with the report's timestamp.
class ReportCycle {
 public:
  // Prepares the manager and its records and starts their first period. Throws std::runtime_error.
  ReportCycle(const ServiceOptions& options, const std::vector<Proxy>& proxies,
              KorvainService::KorvainServiceStatisticMgr& statistic_mgr,
              KorvainService::UDPClientMgr& channel, KorvainService::Logger& logger,
              const Console& console);

  void ReportDueZones();

  // Whether every zone's period is at least a second old. Younger ones have no rates: the module
  // would clear the record.
  bool CanReportAll() const;
  void ReportAll();

 private:
  struct Zone {
    int32_t id;
    int64_t last_report_s;
  };
  struct Delivery {
    size_t datagrams = 0;
    size_t bytes = 0;
    size_t lines_left_out = 0;
    int first_failure = 0;  // of Send; 0 when every datagram was handed over
  };

  void CreateZone(int32_t id);
  void RegisterAccesses(const Zone& zone);
  void Report(Zone& zone, int64_t now_ms);
  Delivery Deliver(const std::string& report);
  void WriteJournal(const Zone& zone, int64_t now_ms, const Delivery& delivery,
                    const std::string& raw_lines);

  const ServiceOptions& m_options;
  const std::vector<Proxy>& m_proxies;
  KorvainService::KorvainServiceStatisticMgr& m_statistic_mgr;
  KorvainService::UDPClientMgr& m_channel;
  const Console& m_console;
  const File m_journal;
  std::vector<Zone> m_zones;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_REPORT_CYCLE_H_
