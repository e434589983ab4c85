#include "examples/report_cycle.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "examples/line_protocol.h"
#include "examples/report_lines.h"

namespace example {

using namespace KorvainService;

namespace {

constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1000000;

std::string TableName(int32_t index) {
  constexpr const char* NAMES[] = {"orders", "customers", "stock"};
  return index < 3 ? NAMES[index] : fmt::format("table-{}", index + 1);
}

}  // namespace

ReportCycle::ReportCycle(const ServiceOptions& options, const std::vector<Proxy>& proxies,
                         KorvainServiceStatisticMgr& statistic_mgr, UDPClientMgr& channel,
                         Logger& logger, const Console& console)
    : m_options(options),
      m_proxies(proxies),
      m_statistic_mgr(statistic_mgr),
      m_channel(channel),
      m_console(console),
      m_journal(OpenFile(options.journal, "w")) {
  m_statistic_mgr.Init(&logger);
  m_statistic_mgr.SetSetIdAndName(SET_ID, "blue");
  m_statistic_mgr.SetAppIdAndName(APP_ID, "shop");
  for (int32_t id = 1; id <= options.zones; ++id) CreateZone(id);
}

void ReportCycle::CreateZone(int32_t id) {
  const int result = m_statistic_mgr.CreateStatisticMap(SET_ID, APP_ID, id);
  if (result != 0) throw std::runtime_error(fmt::format("CreateStatisticMap gave {}", result));
  m_statistic_mgr.SetZoneIdAndName(id, fmt::format("region {}", id).c_str());
  m_statistic_mgr.SetReportPeriod(APP_ID, id, m_options.report_period_s);
  const std::string text = fmt::format("clock speed {}", m_options.clock_speed);
  m_statistic_mgr.SetUserDefineText(APP_ID, id, text.c_str());
  const Zone zone{id, GetCurrentMilliseconds() / 1000};
  m_statistic_mgr.SetLastReportTime(APP_ID, id, zone.last_report_s);
  RegisterAccesses(zone);
  m_zones.push_back(zone);
}

// For whenever the record has no accesses: at the start, after each report, and when the clock has
// gone back, which empties the record.
void ReportCycle::RegisterAccesses(const Zone& zone) {
  SERVICEAPISTATISTIC& record = *m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id);
  m_statistic_mgr.ClearAccess(zone.id);
  for (const Proxy& proxy : m_proxies) {
    const int result = m_statistic_mgr.AddAccess(APP_ID, zone.id, proxy.url.c_str(), proxy.ip(),
                                                 proxy.port(), proxy.server_id.c_str());
    if (result != 0) throw std::runtime_error(fmt::format("AddAccess gave {}", result));
  }
  for (int32_t i = 0; i < m_options.tables; ++i) {
    char(&name)[sizeof(TABLESTATISTIC::szTableName)] = record.astTableStatistic[i].szTableName;
    std::snprintf(name, sizeof(name), "%s", TableName(i).c_str());
  }
  record.nTableCount = static_cast<int16_t>(m_options.tables);
  record.stOverallRunStatus.nAccessCount = static_cast<int16_t>(m_proxies.size());
}

void ReportCycle::ReportDueZones() {
  const int64_t now_ms = GetCurrentMilliseconds();
  for (Zone& zone : m_zones) {
    if (m_statistic_mgr.IsShouldReportStatisticNow(APP_ID, zone.id, now_ms / 1000)) {
      Report(zone, now_ms);
    }
    if (m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id)->iAccessCount == 0) {
      RegisterAccesses(zone);
    }
  }
}

bool ReportCycle::CanReportAll() const {
  const int64_t now_s = GetCurrentMilliseconds() / 1000;
  return std::all_of(m_zones.begin(), m_zones.end(),
                     [now_s](const Zone& zone) { return zone.last_report_s < now_s; });
}

void ReportCycle::ReportAll() {
  const int64_t now_ms = GetCurrentMilliseconds();
  for (Zone& zone : m_zones) Report(zone, now_ms);
}

void ReportCycle::Report(Zone& zone, int64_t now_ms) {
  const SERVICEAPISTATISTIC& record = *m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.id);
  const ReportNames names{m_statistic_mgr.GetSetName(SET_ID), m_statistic_mgr.GetAppName(APP_ID),
                          m_statistic_mgr.GetZoneName(zone.id)};
  const int64_t timestamp_ns = now_ms * NANOSECONDS_PER_MILLISECOND;
  const std::string raw_lines = PackReport(record, names, timestamp_ns);
  m_statistic_mgr.CalculateAverage(APP_ID, zone.id, now_ms / 1000);
  const Delivery delivery = Deliver(PackReport(record, names, timestamp_ns));
  WriteJournal(zone, now_ms, delivery, raw_lines);

  const std::string outcome = delivery.first_failure == 0
                                  ? "handed over"
                                  : fmt::format("LOST, Send gave {}", delivery.first_failure);
  m_console.Print("REPORT of zone {}: {} datagrams, {} bytes, {}", zone.id, delivery.datagrams,
                  delivery.bytes, outcome);
  if (delivery.lines_left_out > 0) {
    m_console.Print("{} lines are too long for any datagram", delivery.lines_left_out);
  }

  zone.last_report_s = now_ms / 1000;
  m_statistic_mgr.SetLastReportTime(APP_ID, zone.id, zone.last_report_s);
  m_statistic_mgr.Reset(APP_ID, zone.id);
  RegisterAccesses(zone);
}

ReportCycle::Delivery ReportCycle::Deliver(const std::string& report) {
  const SplitReport split = SplitAtLineEnds(report, m_options.datagram_size);
  Delivery delivery;
  delivery.datagrams = split.datagrams.size();
  delivery.lines_left_out = split.lines_left_out;
  for (const std::string_view datagram : split.datagrams) {
    const int result = m_channel.Send(datagram.data(), static_cast<int>(datagram.size()));
    if (delivery.first_failure == 0) delivery.first_failure = result;
    delivery.bytes += datagram.size();
  }
  return delivery;
}

void ReportCycle::WriteJournal(const Zone& zone, int64_t now_ms, const Delivery& delivery,
                               const std::string& raw_lines) {
  if (m_journal == nullptr) return;
  const Line line{"journal_report",
                  {{"zone_id", std::to_string(zone.id)}},
                  {{"period_s", now_ms / 1000 - zone.last_report_s},
                   {"handed_over", int64_t{delivery.first_failure == 0 ? 1 : 0}},
                   {"datagrams", static_cast<int64_t>(delivery.datagrams)},
                   {"bytes", static_cast<int64_t>(delivery.bytes)}},
                  now_ms * NANOSECONDS_PER_MILLISECOND};
  WriteThrough(m_journal.get(), FormatLine(line) + raw_lines);
}

}  // namespace example
