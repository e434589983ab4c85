// Report options, report schedule, and the rewriting of a record for its report.
#include <cstddef>
#include <cstring>

#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/private_text.h"
#include "service_api/statistic_mgr.h"

namespace KorvainService {

namespace {

// The counters that become rates, named once, in record order. Offsets, since a member of a packed
// record must not be bound to a reference.
constexpr size_t OVERALL_COUNTERS[] = {
    offsetof(OVERALLRUNSTATUS, dwAccessErrCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwSendErrCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwRecvErrCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwRouteErrCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwUnpackErrCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwRequestCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwBatchRequestCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwResponseCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwBatchResponseCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwSuccessResponseCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwTimeoutCountPerMin),
    offsetof(OVERALLRUNSTATUS, dwDynamicErrCountPerMin),
};

constexpr size_t TABLE_COUNTERS[] = {
    offsetof(TABLERUNSTATUS, dwQueryErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwInsertErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwUpdateErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwReplaceErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwDeleteErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwPackErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwOtherErrCountPerMin),
    offsetof(TABLERUNSTATUS, dwRequestCountPerMin),
    offsetof(TABLERUNSTATUS, dwBatchRequestCountPerMin),
    offsetof(TABLERUNSTATUS, dwResponseCountPerMin),
    offsetof(TABLERUNSTATUS, dwBatchResponseCountPerMin),
    offsetof(TABLERUNSTATUS, dwSuccessResponseCountPerMin),
};

constexpr size_t ACCESS_COUNTERS[] = {
    offsetof(ACCESSRUNSTATUS, dwRequestCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwBatchRequestCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwResponseCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwBatchResponseCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwSuccessResponseCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwTimeoutCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwProxyReturnErrCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwProxyReturnSystemErrCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwKorvsvrReturnErrCountPerMin),
    offsetof(ACCESSRUNSTATUS, dwDynamicErrCountPerMin),
};

// Events per minute: 30 events in 20 seconds are 90. The product is 32 bits wide, so it wraps for
// counts above 71,582,788.
uint32_t PerMinute(uint32_t count, uint64_t seconds) {
  const uint32_t product = count * 60u;
  return static_cast<uint32_t>(product / seconds);
}

template <class Status, size_t COUNT>
void RescaleCounters(Status& status, const size_t (&offsets)[COUNT], uint64_t seconds) {
  char* const bytes = reinterpret_cast<char*>(&status);
  for (const size_t offset : offsets) {
    uint32_t count = 0;
    memcpy(&count, bytes + offset, sizeof(count));
    count = PerMinute(count, seconds);
    memcpy(bytes + offset, &count, sizeof(count));
  }
}

template <class Status>
void AverageDelay(Status& status) {
  if (status.dwCalculateAverageDelayResCount != 0) {
    status.ullAverageDelay = status.ullAverageDelay / status.dwCalculateAverageDelayResCount;
  }
}

// A count written by the service API is not trusted to stay within its array.
int32_t Within(int32_t count, int32_t limit) {
  return count < limit ? count : limit;
}

// Exact for every pair of times with later >= earlier, however far apart.
uint64_t SecondsBetween(int64_t earlier, int64_t later) {
  return static_cast<uint64_t>(later) - static_cast<uint64_t>(earlier);
}

}  // namespace

StatisticOption KorvainServiceStatisticMgr::MakeFreshOption() {
  StatisticOption option{};
  option.report_period = STATISTIC_DEFAULT_REPORT_PERIOD;
  option.last_report_time = GetCurrentMilliseconds() / 1000;
  return option;
}

const StatisticOption* KorvainServiceStatisticMgr::FindOption(int32_t app_id,
                                                              int32_t zone_id) const {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

StatisticOption* KorvainServiceStatisticMgr::FindOption(int32_t app_id, int32_t zone_id) {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

StatisticOption& KorvainServiceStatisticMgr::FindOrMakeOption(int32_t app_id, int32_t zone_id) {
  if (StatisticOption* option = FindOption(app_id, zone_id)) return *option;
  return m_option_map.emplace(GetKey(app_id, zone_id), MakeFreshOption()).first->second;
}

void KorvainServiceStatisticMgr::SetReportPeriod(int32_t app_id, int32_t zone_id, int32_t period) {
  FindOrMakeOption(app_id, zone_id).report_period =
      period < STATISTIC_DEFAULT_REPORT_PERIOD ? STATISTIC_DEFAULT_REPORT_PERIOD : period;
}

void KorvainServiceStatisticMgr::SetLastReportTime(int32_t app_id, int32_t zone_id,
                                                   int64_t last_report_time) {
  FindOrMakeOption(app_id, zone_id).last_report_time = last_report_time;
}

void KorvainServiceStatisticMgr::SetBusinessId(int32_t app_id, int32_t zone_id,
                                               int32_t business_id) {
  FindOrMakeOption(app_id, zone_id).business_id = business_id;
}

int32_t KorvainServiceStatisticMgr::GetBusinessId(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->business_id;
}

void KorvainServiceStatisticMgr::SetMetalibId(int32_t app_id, int32_t zone_id, int32_t metalib_id) {
  FindOrMakeOption(app_id, zone_id).metalib_id = metalib_id;
}

int32_t KorvainServiceStatisticMgr::GetMetalibId(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->metalib_id;
}

void KorvainServiceStatisticMgr::SetUserDefineText(int32_t app_id, int32_t zone_id,
                                                   const char* user_define_text) {
  CopyText(FindOrMakeOption(app_id, zone_id).user_define_text, user_define_text);
}

void KorvainServiceStatisticMgr::SetDynamicErrorCode(int32_t app_id, int32_t zone_id,
                                                     int32_t dynamic_error_code) {
  FindOrMakeOption(app_id, zone_id).dynamic_error_code = dynamic_error_code;
}

int32_t KorvainServiceStatisticMgr::GetDynamicErrorCode(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->dynamic_error_code;
}

void KorvainServiceStatisticMgr::RestartPeriod(StatisticOption& option, int32_t app_id,
                                               int32_t zone_id, int64_t cur_time) {
  option.last_report_time = cur_time;
  Reset(app_id, zone_id);
}

bool KorvainServiceStatisticMgr::IsShouldReportStatisticNow(int32_t app_id, int32_t zone_id,
                                                            int64_t cur_time) {
  StatisticOption* option = FindOption(app_id, zone_id);
  if (option == nullptr) return false;
  if (option->last_report_time > cur_time) {
    RestartPeriod(*option, app_id, zone_id, cur_time);
    return false;
  }
  return SecondsBetween(option->last_report_time, cur_time) >=
         static_cast<uint64_t>(option->report_period);
}

void KorvainServiceStatisticMgr::CalculateAverage(int32_t app_id, int32_t zone_id,
                                                  int64_t cur_time) {
  StatisticOption* option = FindOption(app_id, zone_id);
  if (option == nullptr) return;
  if (option->last_report_time >= cur_time) {
    RestartPeriod(*option, app_id, zone_id, cur_time);
    return;
  }
  SERVICEAPISTATISTIC* statistic = GetServiceApiStatistic(app_id, zone_id);
  if (statistic == nullptr) return;
  const uint64_t seconds = SecondsBetween(option->last_report_time, cur_time);

  OVERALLRUNSTATUS& overall = statistic->stOverallRunStatus;
  RescaleCounters(overall, OVERALL_COUNTERS, seconds);
  AverageDelay(overall);
  CopyText(overall.szUserDefinedText, option->user_define_text);

  const int32_t table_count = Within(statistic->nTableCount, STATISTIC_MAX_TABLE_COUNT);
  for (int32_t i = 0; i < table_count; ++i) {
    RescaleCounters(statistic->astTableStatistic[i].stTableRunStatus, TABLE_COUNTERS, seconds);
  }

  const int32_t access_count = Within(statistic->iAccessCount, STATISTIC_MAX_ACCESS_COUNT);
  for (int32_t i = 0; i < access_count; ++i) {
    ACCESSRUNSTATUS& access = statistic->astAccessStatistic[i].stAccessRunStatus;
    RescaleCounters(access, ACCESS_COUNTERS, seconds);
    AverageDelay(access);
  }
}

}  // namespace KorvainService
