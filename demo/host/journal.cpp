#include "demo/host/journal.h"

#include <nlohmann/json.hpp>

namespace demo {

using namespace KorvainService;
using nlohmann::json;

namespace {

// All that the host counts of the traffic. By value: fields of a record may be misaligned.
json Overall(const SERVICEAPISTATISTIC& record) {
  const OVERALLRUNSTATUS& overall = record.stOverallRunStatus;
  return {{"requests_per_min", uint32_t{overall.dwRequestCountPerMin}},
          {"responses_per_min", uint32_t{overall.dwResponseCountPerMin}},
          {"success_responses_per_min", uint32_t{overall.dwSuccessResponseCountPerMin}},
          {"timeouts_per_min", uint32_t{overall.dwTimeoutCountPerMin}},
          {"access_errors_per_min", uint32_t{overall.dwAccessErrCountPerMin}},
          {"send_errors_per_min", uint32_t{overall.dwSendErrCountPerMin}},
          {"route_errors_per_min", uint32_t{overall.dwRouteErrCountPerMin}},
          {"delay_ms", uint64_t{overall.ullAverageDelay}},
          {"delay_samples", uint32_t{overall.dwCalculateAverageDelayResCount}},
          {"known_accesses", int16_t{overall.nAccessCount}},
          {"table_lines", int16_t{record.nTableCount}},
          {"access_lines", int32_t{record.iAccessCount}}};
}

json Table(const TABLERUNSTATUS& table) {
  return {{"requests_per_min", uint32_t{table.dwRequestCountPerMin}},
          {"responses_per_min", uint32_t{table.dwResponseCountPerMin}},
          {"success_responses_per_min", uint32_t{table.dwSuccessResponseCountPerMin}},
          {"other_errors_per_min", uint32_t{table.dwOtherErrCountPerMin}}};
}

json Access(const ACCESSRUNSTATUS& access) {
  return {{"requests_per_min", uint32_t{access.dwRequestCountPerMin}},
          {"responses_per_min", uint32_t{access.dwResponseCountPerMin}},
          {"success_responses_per_min", uint32_t{access.dwSuccessResponseCountPerMin}},
          {"timeouts_per_min", uint32_t{access.dwTimeoutCountPerMin}},
          {"proxy_system_errors_per_min", uint32_t{access.dwProxyReturnSystemErrCountPerMin}},
          {"delay_ms", uint64_t{access.ullAverageDelay}},
          {"delay_samples", uint32_t{access.dwCalculateAverageDelayResCount}}};
}

}  // namespace

std::string Journal::CountsOf(const SERVICEAPISTATISTIC& record) {
  json lines = {{"korvain_overall", Overall(record)}};
  for (int32_t i = 0; i < record.nTableCount; ++i) {
    const TABLESTATISTIC& table = record.astTableStatistic[i];
    lines[std::string("korvain_table ") + table.szTableName] = Table(table.stTableRunStatus);
  }
  for (int32_t i = 0; i < record.iAccessCount; ++i) {
    const ACCESSSTATISTIC& access = record.astAccessStatistic[i];
    lines[std::string("korvain_access ") + access.stHostInfo.szUrl] =
        Access(access.stAccessRunStatus);
  }
  return lines.dump();
}

void Journal::Write(const JournalEntry& entry, const std::string& counts) {
  const json line = {{"zone", entry.zone},
                     {"time_ns", entry.time_ns},
                     {"period_s", entry.period_s},
                     {"server", entry.server},
                     {"handed_over", entry.is_handed_over},
                     {"lines", json::parse(counts)}};
  m_file.Write(line.dump() + '\n');
}

}  // namespace demo
