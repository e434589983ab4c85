// The statistic report record: everything that one application in one zone reports for one period.
//
// The types are byte-packed, so that their layout is the same for every compiler; the sizes are
// part of the contract with whoever packs the record. Two consequences for code that works on them:
// read and write fields by value (a reference or pointer to a multi-byte field may be misaligned,
// which compilers seldom say), and a pointer to a whole record type is fine, since packed types
// have alignment 1.
//
// Counters ending in PerMin hold the raw number of events since the period began, until
// KorvainServiceStatisticMgr::CalculateAverage turns them into events per minute. ullAverageDelay
// holds the sum of the delays in milliseconds, and after CalculateAverage their mean. Texts are
// NUL-terminated.
#ifndef KORVAIN_SERVICE_API_STATISTIC_H_
#define KORVAIN_SERVICE_API_STATISTIC_H_

#include <cstdint>

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

#pragma pack(push, 1)

// Counters of one table, all kept by the service API.
typedef struct tagTableRunStatus {
  uint32_t dwQueryErrCountPerMin;
  uint32_t dwInsertErrCountPerMin;
  uint32_t dwUpdateErrCountPerMin;
  uint32_t dwReplaceErrCountPerMin;
  uint32_t dwDeleteErrCountPerMin;
  uint32_t dwPackErrCountPerMin;
  uint32_t dwOtherErrCountPerMin;
  uint32_t dwRequestCountPerMin;
  uint32_t dwBatchRequestCountPerMin;
  uint32_t dwResponseCountPerMin;
  uint32_t dwBatchResponseCountPerMin;
  uint32_t dwSuccessResponseCountPerMin;
} TABLERUNSTATUS;

// Counters over all tables and accesses. The module itself writes the time-out count, the delay
// fields and the user-defined text; all else is kept by the service API.
typedef struct tagOverallRunStatus {
  int16_t nAccessCount;  // as kept by the service API; never rescaled
  uint32_t dwAccessErrCountPerMin;
  uint32_t dwSendErrCountPerMin;
  uint32_t dwRecvErrCountPerMin;
  uint32_t dwRouteErrCountPerMin;
  uint32_t dwUnpackErrCountPerMin;
  uint32_t dwRequestCountPerMin;
  uint32_t dwBatchRequestCountPerMin;
  uint32_t dwResponseCountPerMin;
  uint32_t dwBatchResponseCountPerMin;
  uint32_t dwSuccessResponseCountPerMin;
  uint32_t dwTimeoutCountPerMin;             // requests not answered within the time-out
  uint64_t ullAverageDelay;                  // milliseconds: sum, then mean
  uint32_t dwCalculateAverageDelayResCount;  // delays summed; never rescaled
  uint32_t dwDynamicErrCountPerMin;
  uint32_t dwMaxCallOnUpdateInterval;  // as kept by the service API; never rescaled
  char szUserDefinedText[512];
} OVERALLRUNSTATUS;

// Counters of one access (proxy endpoint). The module writes the time-out count and the delay
// fields, and the proxy judge reads the request, time-out and proxy system-error counts.
typedef struct tagAccessRunStatus {
  uint32_t dwRequestCountPerMin;
  uint32_t dwBatchRequestCountPerMin;
  uint32_t dwResponseCountPerMin;
  uint32_t dwBatchResponseCountPerMin;
  uint32_t dwSuccessResponseCountPerMin;
  uint32_t dwTimeoutCountPerMin;
  uint64_t ullAverageDelay;                  // milliseconds: sum, then mean
  uint32_t dwCalculateAverageDelayResCount;  // delays summed; never rescaled
  uint32_t dwProxyReturnErrCountPerMin;
  uint32_t dwProxyReturnSystemErrCountPerMin;
  uint32_t dwKorvsvrReturnErrCountPerMin;  // errors of the data server behind the proxy
  uint32_t dwDynamicErrCountPerMin;
} ACCESSRUNSTATUS;

typedef struct tagTableStatistic {
  char szTableName[128];
  TABLERUNSTATUS stTableRunStatus;
} TABLESTATISTIC;

// The reporting process.
typedef struct tagStatisticProcessInfo {
  char szIP[128];  // a local address in numeric form
  int32_t iPid;
} STATISTICPROCESSINFO;

typedef struct tagStatisticHostInfo {
  char szUrl[128];   // without its six-character scheme prefix
  char szSvrId[32];  // server id
} STATISTICHOSTINFO;

typedef struct tagAccessStatistic {
  STATISTICHOSTINFO stHostInfo;
  ACCESSRUNSTATUS stAccessRunStatus;
} ACCESSSTATISTIC;

typedef struct tagServiceApiStatistic {
  int32_t iSetID;
  int32_t iAppID;
  int32_t iZoneID;
  STATISTICPROCESSINFO stProcessInfo;
  int16_t nTableCount;  // entries of astTableStatistic in use, also raised by AddTable
  TABLESTATISTIC astTableStatistic[256];
  OVERALLRUNSTATUS stOverallRunStatus;
  int32_t iAccessCount;  // entries of astAccessStatistic in use, raised by AddAccess
  ACCESSSTATISTIC astAccessStatistic[256];
} SERVICEAPISTATISTIC;

#pragma pack(pop)

static_assert(sizeof(TABLERUNSTATUS) == 48, "layout is part of the contract");
static_assert(sizeof(OVERALLRUNSTATUS) == 578, "layout is part of the contract");
static_assert(sizeof(ACCESSRUNSTATUS) == 52, "layout is part of the contract");
static_assert(sizeof(TABLESTATISTIC) == 176, "layout is part of the contract");
static_assert(sizeof(STATISTICPROCESSINFO) == 132, "layout is part of the contract");
static_assert(sizeof(STATISTICHOSTINFO) == 160, "layout is part of the contract");
static_assert(sizeof(ACCESSSTATISTIC) == 212, "layout is part of the contract");
static_assert(sizeof(SERVICEAPISTATISTIC) == 100056, "layout is part of the contract");

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_SERVICE_API_STATISTIC_H_
