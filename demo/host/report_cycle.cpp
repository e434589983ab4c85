#include "demo/host/report_cycle.h"

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>

#include "demo/host/run_record.h"
#include "line_protocol/report_packer.h"

namespace demo {

using namespace KorvainService;

namespace {

void Require(bool is_done, const char* step) {
  if (!is_done) throw std::runtime_error(fmt::format("{} has failed", step));
}

constexpr const char* TABLE_NAMES[TABLES] = {"orders", "customers"};

}  // namespace

ReportCycle::ReportCycle(const HostOptions& options, const std::vector<Proxy>& proxies,
                         const std::vector<ProxySet>& zones,
                         KorvainServiceStatisticMgr& statistic_mgr, CollectChannel& channel,
                         OutputFile& journal, Logger& logger)
    : m_options(options),
      m_proxies(proxies),
      m_statistic_mgr(statistic_mgr),
      m_channel(channel),
      m_journal(journal) {
  m_statistic_mgr.Init(&logger);
  m_statistic_mgr.SetSetIdAndName(SET_ID, "blue");
  m_statistic_mgr.SetAppIdAndName(APP_ID, "shop");
  for (const ProxySet& zone : zones) {
    m_zones.push_back({zone, 0});
    CreateRecord(m_zones.back());
  }
}

void ReportCycle::CreateRecord(Zone& zone) {
  const int32_t id = zone.proxies.zone_id();
  const int64_t now_s = GetCurrentMilliseconds() / 1000;
  const std::string text = fmt::format("on a clock of {} times real time", m_options.clock_speed);
  Require(m_statistic_mgr.CreateStatisticMap(SET_ID, APP_ID, id) == 0, "creating a record");
  m_statistic_mgr.SetZoneIdAndName(id, fmt::format("region {}", id).c_str());
  m_statistic_mgr.SetUserDefineText(APP_ID, id, text.c_str());
  m_statistic_mgr.SetLastReportTime(APP_ID, id, now_s);
  StartPeriod(zone, now_s);
}

// Whenever the record has no accesses, a period has begun: at the start, after each report, and
// when the clock has gone back, which empties the record.
void ReportCycle::StartPeriod(Zone& zone, int64_t now_s) {
  const int32_t id = zone.proxies.zone_id();
  m_statistic_mgr.ClearAccess(id);
  for (const Proxy& proxy : m_proxies) {
    const int result = m_statistic_mgr.AddAccess(APP_ID, id, proxy.url.c_str(), proxy.ip(),
                                                 proxy.port(), proxy.name.c_str());
    Require(result == 0, "registering a proxy");
  }
  // The tables get the indexes 0, 1, ... in a record that has none.
  for (int32_t i = 0; i < TABLES; ++i) {
    Require(m_statistic_mgr.AddTable(APP_ID, id, TABLE_NAMES[i]) == i, "registering a table");
  }
  m_statistic_mgr.GetServiceApiStatistic(APP_ID, id)->stOverallRunStatus.nAccessCount =
      static_cast<int16_t>(m_proxies.size());
  zone.period_start_s = now_s;
}

void ReportCycle::ReportDueZones() {
  for (Zone& zone : m_zones) {
    const int32_t id = zone.proxies.zone_id();
    const int64_t now_ms = GetCurrentMilliseconds();
    const int64_t now_s = now_ms / 1000;
    if (m_statistic_mgr.IsShouldReportStatisticNow(APP_ID, id, now_s)) Report(zone, now_ms);
    const bool is_new = m_statistic_mgr.GetServiceApiStatistic(APP_ID, id)->iAccessCount == 0;
    if (is_new) StartPeriod(zone, now_s);
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
  const int32_t id = zone.proxies.zone_id();
  const SERVICEAPISTATISTIC& record = *m_statistic_mgr.GetServiceApiStatistic(APP_ID, id);
  nlohmann::json entry = {
      {"instance", m_options.instance},       {"zone", m_statistic_mgr.GetZoneName(id)},
      {"time_ns", now_ms * 1000000},          {"period_s", now_ms / 1000 - zone.period_start_s},
      {"clock_speed", m_options.clock_speed}, {"lines", CountsOf(record, zone.proxies)}};
  m_statistic_mgr.CalculateAverage(APP_ID, id, now_ms / 1000);

  ReportSettings settings;
  settings.set_name = m_statistic_mgr.GetSetName(SET_ID);
  settings.app_name = m_statistic_mgr.GetAppName(APP_ID);
  settings.zone_name = m_statistic_mgr.GetZoneName(id);
  settings.instance = m_options.instance.c_str();
  settings.period_seconds = entry["period_s"];
  settings.timestamp_ns = entry["time_ns"];
  // Proxies have the slots in which they were registered.
  settings.access_fields = [&zone](int32_t slot, const AddField& add) {
    add("in_service", zone.proxies.IsInService(static_cast<size_t>(slot)) ? 1 : 0);
    add("bad_cycles", zone.proxies.BadCycles(static_cast<size_t>(slot)));
  };
  m_channel.Send(PackReport(record, settings), [this, entry](bool is_handed_over) mutable {
    entry["server"] = m_channel.CurrentUrl();  // to which the end of it went
    entry["handed_over"] = is_handed_over;
    m_journal.Write(entry.dump());
  });
  m_statistic_mgr.SetLastReportTime(APP_ID, id, now_ms / 1000);
  m_statistic_mgr.Reset(APP_ID, id);
}

}  // namespace demo
