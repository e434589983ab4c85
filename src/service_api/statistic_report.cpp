// The report schedule, and the rewriting of a record for its report.
#include <cstddef>
#include <cstring>

#include "service_api/detail/elapsed.h"
#include "service_api/detail/text.h"
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

// A counter added to a status must be entered in its table or named here as one that is no rate.
template <class Status, size_t COUNT>
constexpr bool IsComplete(const size_t (&)[COUNT], size_t size_of_others) {
  return COUNT * sizeof(uint32_t) + size_of_others == sizeof(Status);
}

static_assert(IsComplete<OVERALLRUNSTATUS>(
    OVERALL_COUNTERS, sizeof(OVERALLRUNSTATUS::nAccessCount) +
                          sizeof(OVERALLRUNSTATUS::ullAverageDelay) +
                          sizeof(OVERALLRUNSTATUS::dwCalculateAverageDelayResCount) +
                          sizeof(OVERALLRUNSTATUS::dwMaxCallOnUpdateInterval) +
                          sizeof(OVERALLRUNSTATUS::szUserDefinedText)));
static_assert(IsComplete<TABLERUNSTATUS>(TABLE_COUNTERS, 0));
static_assert(IsComplete<ACCESSRUNSTATUS>(
    ACCESS_COUNTERS, sizeof(ACCESSRUNSTATUS::ullAverageDelay) +
                         sizeof(ACCESSRUNSTATUS::dwCalculateAverageDelayResCount)));

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

}  // namespace

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
  return detail::Elapsed(option->last_report_time, cur_time) >=
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
  const uint64_t seconds = detail::Elapsed(option->last_report_time, cur_time);

  OVERALLRUNSTATUS& overall = statistic->stOverallRunStatus;
  RescaleCounters(overall, OVERALL_COUNTERS, seconds);
  AverageDelay(overall);
  detail::CopyText(overall.szUserDefinedText, option->user_define_text);

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
