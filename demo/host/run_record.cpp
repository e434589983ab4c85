#include "demo/host/run_record.h"

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

json CountsOf(const SERVICEAPISTATISTIC& record, const ProxySet& proxies) {
  json lines = {{"korvain_overall", Overall(record)}};
  for (int32_t i = 0; i < record.nTableCount; ++i) {
    const TABLESTATISTIC& table = record.astTableStatistic[i];
    json& line = lines[std::string("korvain_table ") + table.szTableName];
    line = Traffic(table.stTableRunStatus);
    line["other_errors_per_min"] = uint32_t{table.stTableRunStatus.dwOtherErrCountPerMin};
  }
  for (int32_t i = 0; i < record.iAccessCount; ++i) {
    const ACCESSSTATISTIC& access = record.astAccessStatistic[i];
    json& line = lines[std::string("korvain_access ") + access.stHostInfo.szUrl];
    line = TrafficAndDelays(access.stAccessRunStatus);
    line["proxy_system_errors_per_min"] =
        uint32_t{access.stAccessRunStatus.dwProxyReturnSystemErrCountPerMin};
    line["in_service"] = proxies.IsInService(static_cast<size_t>(i)) ? 1 : 0;
    line["bad_cycles"] = proxies.BadCycles(static_cast<size_t>(i));
  }
  return lines;
}

std::string SummaryLines(const std::vector<Proxy>& proxies) {
  std::string lines;
  for (const Proxy& proxy : proxies) {
    json line = proxy.counts;
    line["url"] = proxy.url;
    lines += line.dump() + '\n';
  }
  return lines;
}

}  // namespace demo
