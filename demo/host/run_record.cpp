#include "demo/host/run_record.h"

#include <nlohmann/json.hpp>

namespace demo {

using namespace KorvainService;
using nlohmann::json;

namespace {

// Numbers are taken by value: fields of a record may be misaligned.
template <class Status>
json Traffic(const Status& status) {
  return {{"requests_per_min", uint32_t{status.dwRequestCountPerMin}},
          {"responses_per_min", uint32_t{status.dwResponseCountPerMin}},
          {"success_responses_per_min", uint32_t{status.dwSuccessResponseCountPerMin}}};
}

template <class Status>
json TrafficAndDelays(const Status& status) {
  json numbers = Traffic(status);
  numbers["timeouts_per_min"] = uint32_t{status.dwTimeoutCountPerMin};
  numbers["delay_ms"] = uint64_t{status.ullAverageDelay};
  numbers["delay_samples"] = uint32_t{status.dwCalculateAverageDelayResCount};
  return numbers;
}

json Overall(const SERVICEAPISTATISTIC& record) {
  const OVERALLRUNSTATUS& overall = record.stOverallRunStatus;
  json numbers = TrafficAndDelays(overall);
  numbers["access_errors_per_min"] = uint32_t{overall.dwAccessErrCountPerMin};
  numbers["send_errors_per_min"] = uint32_t{overall.dwSendErrCountPerMin};
  numbers["route_errors_per_min"] = uint32_t{overall.dwRouteErrCountPerMin};
  numbers["known_accesses"] = int16_t{overall.nAccessCount};
  numbers["table_lines"] = int16_t{record.nTableCount};
  numbers["access_lines"] = int32_t{record.iAccessCount};
  return numbers;
}

}  // namespace

std::string CountsOf(const SERVICEAPISTATISTIC& record, const ProxySet& proxies) {
  json lines = {{"korvain_overall", Overall(record)}};
  for (int32_t i = 0; i < record.nTableCount; ++i) {
    const TABLESTATISTIC& table = record.astTableStatistic[i];
    json& line = lines[std::string("korvain_table ") + table.szTableName];
    line = Traffic(table.stTableRunStatus);
    line["other_errors_per_min"] = uint32_t{table.stTableRunStatus.dwOtherErrCountPerMin};
  }
  for (int32_t i = 0; i < record.iAccessCount; ++i) {
    const ACCESSRUNSTATUS& access = record.astAccessStatistic[i].stAccessRunStatus;
    json& line =
        lines[std::string("korvain_access ") + record.astAccessStatistic[i].stHostInfo.szUrl];
    line = TrafficAndDelays(access);
    line["proxy_system_errors_per_min"] = uint32_t{access.dwProxyReturnSystemErrCountPerMin};
    line["in_service"] = proxies.IsInService(static_cast<size_t>(i)) ? 1 : 0;
    line["bad_cycles"] = proxies.BadCycles(static_cast<size_t>(i));
  }
  return lines.dump();
}

std::string JournalLine(const ReportEntry& entry, const Delivery& delivery) {
  const json line = {{"instance", entry.instance},        {"zone", entry.zone},
                     {"time_ns", entry.time_ns},          {"period_s", entry.period_s},
                     {"server", delivery.server},         {"handed_over", delivery.is_handed_over},
                     {"lines", json::parse(entry.counts)}};
  return line.dump() + '\n';
}

std::string SummaryLines(const std::vector<Proxy>& proxies) {
  std::string lines;
  for (const Proxy& proxy : proxies) {
    const json line = {{"url", proxy.url},
                       {"sent", proxy.counts.sent},
                       {"answered", proxy.counts.answered},
                       {"errors", proxy.counts.errors},
                       {"delay_samples", proxy.counts.delay_samples},
                       {"timed_out", proxy.counts.timed_out},
                       {"unexpected", proxy.counts.unexpected},
                       {"judged_unavailable", proxy.counts.times_judged},
                       {"back_in_service", proxy.counts.times_back},
                       {"zones_out_at_end", proxy.zones_out}};
    lines += line.dump() + '\n';
  }
  return lines;
}

}  // namespace demo
