#include "examples/report_lines.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

#include "examples/line_protocol.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace example {

using namespace KorvainService;

namespace {

template <size_t SIZE>
std::string TextOf(const char (&field)[SIZE]) {
  return std::string(field, strnlen(field, SIZE));
}

void AddTag(Line* line, const char* key, const char* value) {
  line->tags.emplace_back(key, value == nullptr ? "" : value);
}

// Numbers come by value, since the fields of a record may be misaligned.
void AddSigned(Line* line, const char* key, int64_t value) {
  line->fields.emplace_back(key, value);
}

void AddCount(Line* line, const char* key, uint64_t value) {
  constexpr uint64_t MOST = std::numeric_limits<int64_t>::max();
  line->fields.emplace_back(key, static_cast<int64_t>(std::min(value, MOST)));
}

int32_t CountInUse(int32_t count, int32_t limit) {
  return std::clamp(count, 0, limit);
}

// A line of the report with the tags that all its lines have.
Line StartLine(const char* measurement, const SERVICEAPISTATISTIC& record, const ReportNames& names,
               int64_t timestamp_ns) {
  Line line;
  line.measurement = measurement;
  AddTag(&line, "set", names.set);
  AddTag(&line, "app", names.app);
  AddTag(&line, "zone", names.zone);
  line.tags.emplace_back("set_id", std::to_string(int32_t{record.iSetID}));
  line.tags.emplace_back("app_id", std::to_string(int32_t{record.iAppID}));
  line.tags.emplace_back("zone_id", std::to_string(int32_t{record.iZoneID}));
  line.tags.emplace_back("ip", TextOf(record.stProcessInfo.szIP));
  line.tags.emplace_back("pid", std::to_string(int32_t{record.stProcessInfo.iPid}));
  line.timestamp_ns = timestamp_ns;
  return line;
}

void AddOverallFields(const OVERALLRUNSTATUS& overall, Line* line) {
  AddSigned(line, "known_accesses", overall.nAccessCount);
  AddCount(line, "access_errors", overall.dwAccessErrCountPerMin);
  AddCount(line, "send_errors", overall.dwSendErrCountPerMin);
  AddCount(line, "recv_errors", overall.dwRecvErrCountPerMin);
  AddCount(line, "route_errors", overall.dwRouteErrCountPerMin);
  AddCount(line, "unpack_errors", overall.dwUnpackErrCountPerMin);
  AddCount(line, "requests", overall.dwRequestCountPerMin);
  AddCount(line, "batch_requests", overall.dwBatchRequestCountPerMin);
  AddCount(line, "responses", overall.dwResponseCountPerMin);
  AddCount(line, "batch_responses", overall.dwBatchResponseCountPerMin);
  AddCount(line, "successes", overall.dwSuccessResponseCountPerMin);
  AddCount(line, "timeouts", overall.dwTimeoutCountPerMin);
  AddCount(line, "delay_ms", overall.ullAverageDelay);
  AddCount(line, "delay_samples", overall.dwCalculateAverageDelayResCount);
  AddCount(line, "dynamic_errors", overall.dwDynamicErrCountPerMin);
  AddCount(line, "max_update_interval_ms", overall.dwMaxCallOnUpdateInterval);
  const std::string user_text = TextOf(overall.szUserDefinedText);
  if (!user_text.empty()) line->fields.emplace_back("user_text", user_text);
}

void AddTableFields(const TABLERUNSTATUS& table, Line* line) {
  AddCount(line, "query_errors", table.dwQueryErrCountPerMin);
  AddCount(line, "insert_errors", table.dwInsertErrCountPerMin);
  AddCount(line, "update_errors", table.dwUpdateErrCountPerMin);
  AddCount(line, "replace_errors", table.dwReplaceErrCountPerMin);
  AddCount(line, "delete_errors", table.dwDeleteErrCountPerMin);
  AddCount(line, "pack_errors", table.dwPackErrCountPerMin);
  AddCount(line, "other_errors", table.dwOtherErrCountPerMin);
  AddCount(line, "requests", table.dwRequestCountPerMin);
  AddCount(line, "batch_requests", table.dwBatchRequestCountPerMin);
  AddCount(line, "responses", table.dwResponseCountPerMin);
  AddCount(line, "batch_responses", table.dwBatchResponseCountPerMin);
  AddCount(line, "successes", table.dwSuccessResponseCountPerMin);
}

void AddAccessFields(const ACCESSRUNSTATUS& access, Line* line) {
  AddCount(line, "requests", access.dwRequestCountPerMin);
  AddCount(line, "batch_requests", access.dwBatchRequestCountPerMin);
  AddCount(line, "responses", access.dwResponseCountPerMin);
  AddCount(line, "batch_responses", access.dwBatchResponseCountPerMin);
  AddCount(line, "successes", access.dwSuccessResponseCountPerMin);
  AddCount(line, "timeouts", access.dwTimeoutCountPerMin);
  AddCount(line, "delay_ms", access.ullAverageDelay);
  AddCount(line, "delay_samples", access.dwCalculateAverageDelayResCount);
  AddCount(line, "proxy_errors", access.dwProxyReturnErrCountPerMin);
  AddCount(line, "proxy_system_errors", access.dwProxyReturnSystemErrCountPerMin);
  AddCount(line, "korvsvr_errors", access.dwKorvsvrReturnErrCountPerMin);
  AddCount(line, "dynamic_errors", access.dwDynamicErrCountPerMin);
}

}  // namespace

std::string PackReport(const SERVICEAPISTATISTIC& record, const ReportNames& names,
                       int64_t timestamp_ns) {
  const int32_t table_count = CountInUse(record.nTableCount, STATISTIC_MAX_TABLE_COUNT);
  const int32_t access_count = CountInUse(record.iAccessCount, STATISTIC_MAX_ACCESS_COUNT);

  Line process = StartLine(PROCESS_MEASUREMENT, record, names, timestamp_ns);
  AddSigned(&process, "table_count", table_count);
  AddSigned(&process, "access_count", access_count);
  AddOverallFields(record.stOverallRunStatus, &process);
  std::string text = FormatLine(process);

  for (int32_t i = 0; i < table_count; ++i) {
    const TABLESTATISTIC& table = record.astTableStatistic[i];
    Line line = StartLine(TABLE_MEASUREMENT, record, names, timestamp_ns);
    line.tags.emplace_back("table", TextOf(table.szTableName));
    AddTableFields(table.stTableRunStatus, &line);
    text += FormatLine(line);
  }
  for (int32_t i = 0; i < access_count; ++i) {
    const ACCESSSTATISTIC& access = record.astAccessStatistic[i];
    Line line = StartLine(ACCESS_MEASUREMENT, record, names, timestamp_ns);
    line.tags.emplace_back("url", TextOf(access.stHostInfo.szUrl));
    line.tags.emplace_back("svr_id", TextOf(access.stHostInfo.szSvrId));
    AddAccessFields(access.stAccessRunStatus, &line);
    text += FormatLine(line);
  }
  return text;
}

}  // namespace example
