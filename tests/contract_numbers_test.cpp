// Numbers that others have built into their code: the layout of the record, result codes, levels.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace KorvainService {
namespace {

using Numbers = std::vector<size_t>;

#define AT(field) offsetof(Status, field)

TEST(ContractNumbers, TableCounters) {
  using Status = TABLERUNSTATUS;
  EXPECT_EQ(
      (Numbers{AT(dwQueryErrCountPerMin), AT(dwInsertErrCountPerMin), AT(dwUpdateErrCountPerMin),
               AT(dwReplaceErrCountPerMin), AT(dwDeleteErrCountPerMin), AT(dwPackErrCountPerMin),
               AT(dwOtherErrCountPerMin), AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin),
               AT(dwResponseCountPerMin), AT(dwBatchResponseCountPerMin),
               AT(dwSuccessResponseCountPerMin)}),
      (Numbers{0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44}));
}

TEST(ContractNumbers, OverallCounters) {
  using Status = OVERALLRUNSTATUS;
  EXPECT_EQ(
      (Numbers{AT(nAccessCount), AT(dwAccessErrCountPerMin), AT(dwSendErrCountPerMin),
               AT(dwRecvErrCountPerMin), AT(dwRouteErrCountPerMin), AT(dwUnpackErrCountPerMin),
               AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin), AT(dwResponseCountPerMin),
               AT(dwBatchResponseCountPerMin), AT(dwSuccessResponseCountPerMin),
               AT(dwTimeoutCountPerMin), AT(ullAverageDelay), AT(dwCalculateAverageDelayResCount),
               AT(dwDynamicErrCountPerMin), AT(dwMaxCallOnUpdateInterval), AT(szUserDefinedText)}),
      (Numbers{0, 2, 6, 10, 14, 18, 22, 26, 30, 34, 38, 42, 46, 54, 58, 62, 66}));
}

TEST(ContractNumbers, AccessCounters) {
  using Status = ACCESSRUNSTATUS;
  EXPECT_EQ(
      (Numbers{AT(dwRequestCountPerMin), AT(dwBatchRequestCountPerMin), AT(dwResponseCountPerMin),
               AT(dwBatchResponseCountPerMin), AT(dwSuccessResponseCountPerMin),
               AT(dwTimeoutCountPerMin), AT(ullAverageDelay), AT(dwCalculateAverageDelayResCount),
               AT(dwProxyReturnErrCountPerMin), AT(dwProxyReturnSystemErrCountPerMin),
               AT(dwKorvsvrReturnErrCountPerMin), AT(dwDynamicErrCountPerMin)}),
      (Numbers{0, 4, 8, 12, 16, 20, 24, 32, 36, 40, 44, 48}));
}

TEST(ContractNumbers, Record) {
  using Status = SERVICEAPISTATISTIC;
  EXPECT_EQ((Numbers{AT(iSetID), AT(iAppID), AT(iZoneID), AT(stProcessInfo.iPid), AT(nTableCount),
                     AT(astTableStatistic[1].stTableRunStatus), AT(stOverallRunStatus),
                     AT(iAccessCount), AT(astAccessStatistic[1].stHostInfo.szSvrId),
                     AT(astAccessStatistic[1].stAccessRunStatus)}),
            (Numbers{0, 4, 8, 140, 144, 450, 45202, 45780, 46124, 46156}));
}

TEST(ContractNumbers, CodesAndLevels) {
  EXPECT_EQ(
      (std::vector<int>{GEN_ERR_ERR, API_ERR_PARAMETER_INVALID, API_ERR_ALLOCATE_MEMORY,
                        KORVAIN_LOG_LEVEL_FATAL, KORVAIN_LOG_LEVEL_ALERT, KORVAIN_LOG_LEVEL_CRIT,
                        KORVAIN_LOG_LEVEL_ERROR, KORVAIN_LOG_LEVEL_WARN, KORVAIN_LOG_LEVEL_NOTICE,
                        KORVAIN_LOG_LEVEL_INFO, KORVAIN_LOG_LEVEL_DEBUG, KORVAIN_LOG_LEVEL_TRACE}),
      (std::vector<int>{-256, -1811, -9747, 0, 100, 200, 300, 400, 500, 600, 700, 800}));
}

}  // namespace
}  // namespace KorvainService
