// Numbers that others have built into their code: the layout of the record, result codes, levels.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace KorvainService {
namespace {

using Offsets = std::vector<size_t>;

#define AT(field) offsetof(Status, field)

TEST(ContractNumbers, TableCounters) {
  using Status = TABLERUNSTATUS;
  EXPECT_EQ(
      (Offsets{AT(dwQueryErrCountPerMin), AT(dwInsertErrCountPerMin), AT(dwUpdateErrCountPerMin),
               AT(dwReplaceErrCountPerMin), AT(dwDeleteErrCountPerMin), AT(dwPackErrCountPerMin),
               AT(dwOtherErrCountPerMin), AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin),
               AT(dwResponseCountPerMin), AT(dwBatchResponseCountPerMin),
               AT(dwSuccessResponseCountPerMin)}),
      (Offsets{0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44}));
}

TEST(ContractNumbers, OverallCounters) {
  using Status = OVERALLRUNSTATUS;
  EXPECT_EQ(
      (Offsets{AT(nAccessCount), AT(dwAccessErrCountPerMin), AT(dwSendErrCountPerMin),
               AT(dwRecvErrCountPerMin), AT(dwRouteErrCountPerMin), AT(dwUnpackErrCountPerMin),
               AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin), AT(dwResponseCountPerMin),
               AT(dwBatchResponseCountPerMin), AT(dwSuccessResponseCountPerMin),
               AT(dwTimeoutCountPerMin), AT(ullAverageDelay), AT(dwCalculateAverageDelayResCount),
               AT(dwDynamicErrCountPerMin), AT(dwMaxCallOnUpdateInterval), AT(szUserDefinedText)}),
      (Offsets{0, 2, 6, 10, 14, 18, 22, 26, 30, 34, 38, 42, 46, 54, 58, 62, 66}));
}

TEST(ContractNumbers, AccessCounters) {
  using Status = ACCESSRUNSTATUS;
  EXPECT_EQ(
      (Offsets{AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin), AT(dwResponseCountPerMin),
               AT(dwBatchResponseCountPerMin), AT(dwSuccessResponseCountPerMin),
               AT(dwTimeoutCountPerMin), AT(ullAverageDelay), AT(dwCalculateAverageDelayResCount),
               AT(dwProxyReturnErrCountPerMin), AT(dwProxyReturnSystemErrCountPerMin),
               AT(dwKorvsvrReturnErrCountPerMin), AT(dwDynamicErrCountPerMin)}),
      (Offsets{0, 4, 8, 12, 16, 20, 24, 32, 36, 40, 44, 48}));
}

TEST(ContractNumbers, Record) {
  using Status = SERVICEAPISTATISTIC;
  EXPECT_EQ((Offsets{AT(iSetID), AT(iAppID), AT(iZoneID), AT(stProcessInfo), AT(nTableCount),
                     AT(astTableStatistic), AT(stOverallRunStatus), AT(iAccessCount),
                     AT(astAccessStatistic)}),
            (Offsets{0, 4, 8, 12, 144, 146, 45202, 45780, 45784}));
  EXPECT_EQ(offsetof(STATISTICPROCESSINFO, iPid), 128u);
  EXPECT_EQ(offsetof(TABLESTATISTIC, stTableRunStatus), 128u);
  EXPECT_EQ(offsetof(STATISTICHOSTINFO, szSvrId), 128u);
  EXPECT_EQ(offsetof(ACCESSSTATISTIC, stAccessRunStatus), 160u);
}

#undef AT

TEST(ContractNumbers, CodesLevelsAndLimits) {
  EXPECT_EQ((std::vector<int>{GEN_ERR_ERR, API_ERR_PARAMETER_INVALID, API_ERR_ALLOCATE_MEMORY}),
            (std::vector<int>{-256, -1811, -9747}));
  EXPECT_EQ(
      (std::vector<int>{KORVAIN_LOG_LEVEL_FATAL, KORVAIN_LOG_LEVEL_ALERT, KORVAIN_LOG_LEVEL_CRIT,
                        KORVAIN_LOG_LEVEL_ERROR, KORVAIN_LOG_LEVEL_WARN, KORVAIN_LOG_LEVEL_NOTICE,
                        KORVAIN_LOG_LEVEL_INFO, KORVAIN_LOG_LEVEL_DEBUG, KORVAIN_LOG_LEVEL_TRACE}),
      (std::vector<int>{0, 100, 200, 300, 400, 500, 600, 700, 800}));
  EXPECT_EQ((std::vector<int>{MAX_NODE_COUNT, STATISTIC_DEFAULT_TIME_OUT,
                              STATISTIC_DEFAULT_TRAVERSE_MAX_NODE_PER_TIME, MAX_LOG_FREQUENCY}),
            (std::vector<int>{100000, 3000, 100, 100000}));
  EXPECT_EQ((std::vector<int>{MAX_URL_LENGTH_FOR_STATISTIC, STATISTIC_MAX_COLLECT_COUNT,
                              STATISTIC_MAX_TABLE_COUNT, STATISTIC_MAX_ACCESS_COUNT,
                              INVALID_ARRAY_INDEX, STATISTIC_DEFAULT_REPORT_PERIOD}),
            (std::vector<int>{128, 32, 256, 256, -1, 60}));
  EXPECT_EQ((std::vector<int>{
                DEFAULT_JUDGE_PROXY_UNAVAILABLE_THRESHOLD, MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD,
                MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD, DEFAULT_JUDGE_PROXY_CHECK_PERIOD,
                DEFAULT_JUDGE_PROXY_CHECK_TIMES, DEFAULT_RECHECK_PROXY_AVAILABLE_INTERVAL,
                JUDGE_PROXY_TRAVERSE_TIME_INTERVAL}),
            (std::vector<int>{90, 60, 100, 10, 3, 60, 300}));
}

}  // namespace
}  // namespace KorvainService
