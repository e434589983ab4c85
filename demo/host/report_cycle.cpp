#include "demo/host/report_cycle.h"

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>

#include "demo/host/run_record.h"
#include "line_protocol/report_packer.h"

namespace demo {

using namespace KorvainService;

namespace {

constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1000000;

void Require(bool is_done, const char* step) {
  if (!is_done) throw std::runtime_error(fmt::format("{} has failed, see the log", step));
}

std::string TableName(int32_t index) {
  constexpr const char* NAMES[] = {"orders", "customers", "stock"};
  return index < 3 ? NAMES[index] : fmt::format("table-{}", index + 1);
}

}  // namespace

ReportCycle::ReportCycle(const HostOptions& options, const std::vector<Proxy>& proxies,
                         const std::vector<ProxySet>& proxies_of_zones,
                         KorvainServiceStatisticMgr& statistic_mgr, CollectChannel& channel,
                         OutputFile& journal, Logger& logger)
    : m_options(options),
      m_proxies(proxies),
      m_proxies_of_zones(proxies_of_zones),
      m_statistic_mgr(statistic_mgr),
      m_channel(channel),
      m_journal(journal) {
  m_statistic_mgr.Init(&logger);
  m_statistic_mgr.SetSetIdAndName(SET_ID, "blue");
  m_statistic_mgr.SetAppIdAndName(APP_ID, "shop");
  for (int32_t id = 1; id <= options.zones; ++id) CreateZone(id);
}

void ReportCycle::CreateZone(int32_t id) {
  Require(m_statistic_mgr.CreateStatisticMap(SET_ID, APP_ID, id) == 0, "creating a record");
  Zone zone{id, fmt::format("region {}", id), 0};
  m_statistic_mgr.SetZoneIdAndName(id, zone.name.c_str());
  const std::string text = fmt::format("on a clock of {} times real time", m_options.clock_speed);
  m_statistic_mgr.SetUserDefineText(APP_ID, id, text.c_str());
  RegisterAccesses(zone, GetCurrentMilliseconds() / 1000);
  m_statistic_mgr.SetLastReportTime(APP_ID, id, zone.period_start_s);
  m_zones.push_back(zone);
}

// Whenever the record has no accesses, a period has begun: at the start, after each report, and
// when the clock has gone back, which empties the record.
void ReportCycle::RegisterAccesses(Zone& zone, int64_t now_s) {
  m_statistic_mgr.ClearAccess(zone.id);
  for (const Proxy& proxy : m_proxies) {
    Require(m_statistic_mgr.AddAccess(APP_ID, zone.id, proxy.url.c_str(), proxy.ip(), proxy.port(),
                                      proxy.name.c_str()) == 0,
            "registering a proxy");
  }
  // The tables get the indexes 0, 1, ... in a record that has none.
  for (int32_t i = 0; i < m_options.tables; ++i) {
    Require(m_statistic_mgr.AddTable(APP_ID, zone.id, TableName(i).c_str()) == i,
            "registering a table");
  }
  m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id)->stOverallRunStatus.nAccessCount =
      static_cast<int16_t>(m_proxies.size());
  zone.period_start_s = now_s;
}

void ReportCycle::ReportDueZones() {
  for (Zone& zone : m_zones) {
    const int64_t now_ms = GetCurrentMilliseconds();
    if (m_statistic_mgr.IsShouldReportStatisticNow(APP_ID, zone.id, now_ms / 1000)) {
      Report(zone, now_ms);
    }
    if (m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id)->iAccessCount == 0) {
      RegisterAccesses(zone, now_ms / 1000);
    }
  }
}

bool ReportCycle::CanReportAll() const {
  const int64_t now_s = GetCurrentMilliseconds() / 1000;
  return std::all_of(m_zones.begin(), m_zones.end(),
                     [now_s](const Zone& zone) { return zone.period_start_s < now_s; });
}

void ReportCycle::ReportAll() {
  for (const Zone& zone : m_zones) Report(zone, GetCurrentMilliseconds());
}

void ReportCycle::Report(const Zone& zone, int64_t now_ms) {
  const SERVICEAPISTATISTIC& record = *m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id);
  const ProxySet& proxies = m_proxies_of_zones[static_cast<size_t>(zone.id - 1)];
  const std::string counts = CountsOf(record, proxies);
  m_statistic_mgr.CalculateAverage(APP_ID, zone.id, now_ms / 1000);

  ReportSettings settings;
  settings.set_name = m_statistic_mgr.GetSetName(SET_ID);
  settings.app_name = m_statistic_mgr.GetAppName(APP_ID);
  settings.zone_name = m_statistic_mgr.GetZoneName(zone.id);
  settings.instance = m_options.instance.c_str();
  settings.period_seconds = now_ms / 1000 - zone.period_start_s;
  settings.timestamp_ns = now_ms * NANOSECONDS_PER_MILLISECOND;
  // Proxies have the slots in which they were registered.
  settings.access_fields = [&proxies](int32_t slot, const AddField& add) {
    add("in_service", proxies.IsInService(static_cast<size_t>(slot)) ? 1 : 0);
    add("bad_cycles", proxies.BadCycles(static_cast<size_t>(slot)));
  };
  const ReportEntry entry{m_options.instance, zone.name, settings.timestamp_ns,
                          settings.period_seconds, counts};
  m_channel.Send(
      PackReport(record, settings), m_options.datagram_size,
      [this, entry](const Delivery& delivery) { m_journal.Write(JournalLine(entry, delivery)); });

  m_statistic_mgr.SetLastReportTime(APP_ID, zone.id, now_ms / 1000);
  m_statistic_mgr.Reset(APP_ID, zone.id);
}

}  // namespace demo
