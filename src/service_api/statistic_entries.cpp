// The accesses and tables of a record.
#include <cstring>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"
#include "service_api/detail/text.h"
#include "service_api/statistic_mgr.h"

namespace KorvainService {

namespace {

constexpr size_t TABLE_NAME_SIZE = sizeof(TABLESTATISTIC::szTableName);

// The index of the table in the first `count` entries, or -1.
int FindTable(const SERVICEAPISTATISTIC& statistic, int count, const char* name) {
  for (int i = 0; i < count; ++i) {
    if (strncmp(statistic.astTableStatistic[i].szTableName, name, TABLE_NAME_SIZE - 1) == 0) {
      return i;
    }
  }
  return -1;
}

}  // namespace

int KorvainServiceStatisticMgr::AddAccess(int32_t app_id, int32_t zone_id, const char* url, int ip,
                                          int port, const char* svr_id) {
  if (url == nullptr || svr_id == nullptr) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "NULL == url || NULL == svr_id");
  }
  if (FindAccessIndex(zone_id, ip, port) != INVALID_ARRAY_INDEX) return 0;

  SERVICEAPISTATISTIC* statistic = GetServiceApiStatistic(app_id, zone_id);
  if (statistic == nullptr) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "m_statistic_map.find() failed. app_id:%d, zone_id:%d", app_id, zone_id);
  }

  // A negative count can only come from a caller that wrote into the record.
  const int32_t count = statistic->iAccessCount;
  if (count < 0 || count >= STATISTIC_MAX_ACCESS_COUNT) {
    return KORVAIN_FAIL(
        GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
        "the access count(%d) >=  STATISTIC_MAX_ACCESS_COUNT(%d), can't add new table to table "
        "statisticapp_id:%d, zone_id:%d, url:%s",
        count, STATISTIC_MAX_ACCESS_COUNT, app_id, zone_id, url);
  }

  STATISTICHOSTINFO& host = statistic->astAccessStatistic[count].stHostInfo;
  detail::CopyText(host.szUrl, detail::SkipScheme(url));
  detail::CopyText(host.szSvrId, svr_id);

  if (m_access_index_map->Insert(zone_id, ip, port, count) != 0) {
    return KORVAIN_FAIL(
        GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
        "m_access_index_map->Insert() failed. app_id:%d, zone_id:%d, url:%s, svr_id:%s", app_id,
        zone_id, url, svr_id);
  }
  statistic->iAccessCount = count + 1;
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG,
              "m_access_index_map->Insert() success. access count:%d, app_id:%d, zone_id:%d, "
              "url:%s, svr_id:%s",
              count + 1, app_id, zone_id, url, svr_id);
  return 0;
}

void KorvainServiceStatisticMgr::ClearAccess(int32_t zone_id) {
  if (m_access_index_map != nullptr) m_access_index_map->Clear(zone_id);
}

ACCESSRUNSTATUS* KorvainServiceStatisticMgr::GetAccessRunStatus(SERVICEAPISTATISTIC& statistic,
                                                                int32_t ip, int32_t port) {
  const StatisticAccessInfo access{statistic.iZoneID, ip, port};
  return HashedAccess(statistic, access, StatisticAccessInfoHash()(access));
}

ACCESSRUNSTATUS* KorvainServiceStatisticMgr::GetAccessRunStatus(int app_id, int zone_id, int32_t ip,
                                                                int32_t port) {
  SERVICEAPISTATISTIC* statistic = GetServiceApiStatistic(app_id, zone_id);
  if (statistic == nullptr) {
    return KORVAIN_FAIL(nullptr, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "GetServiceApiStatistic() failed. app_id:%d, zone_id:%d", app_id, zone_id);
  }
  return GetAccessRunStatus(*statistic, ip, port);
}

int KorvainServiceStatisticMgr::AddTable(int32_t app_id, int32_t zone_id, const char* name) {
  if (name == nullptr || *name == '\0') {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "NULL == name || name is empty");
  }
  SERVICEAPISTATISTIC* statistic = GetServiceApiStatistic(app_id, zone_id);
  if (statistic == nullptr) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "m_statistic_map.find() failed. app_id:%d, zone_id:%d", app_id, zone_id);
  }

  // Counts out of range can only come from a caller that wrote into the record.
  const int count = statistic->nTableCount;
  const int index = FindTable(
      *statistic, count < STATISTIC_MAX_TABLE_COUNT ? count : STATISTIC_MAX_TABLE_COUNT, name);
  if (index >= 0) return index;
  if (count < 0 || count >= STATISTIC_MAX_TABLE_COUNT) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "the table count(%d) is not in 0 to STATISTIC_MAX_TABLE_COUNT(%d) - 1, "
                        "can't add new table. app_id:%d, zone_id:%d, name:%s",
                        count, STATISTIC_MAX_TABLE_COUNT, app_id, zone_id, name);
  }
  detail::CopyText(statistic->astTableStatistic[count].szTableName, name);
  statistic->nTableCount = static_cast<int16_t>(count + 1);
  return count;
}

}  // namespace KorvainService
