#include "service_api/statistic_mgr.h"

#include <unistd.h>

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"
#include "service_api/detail/text.h"

namespace KorvainService {

namespace {

void StoreName(StatisticIdNameMap& names, int32_t id, const char* name) {
  names.insert_or_assign(id, std::string(name == nullptr ? "" : name));
}

const char* FindName(const StatisticIdNameMap& names, int32_t id) {
  const auto found = names.find(id);
  return found == names.end() ? nullptr : found->second.c_str();
}

}  // namespace

KorvainServiceStatisticMgr::~KorvainServiceStatisticMgr() {
  delete m_access_index_map;
  m_access_index_map = nullptr;
  m_statistic_map.ForEachValue([](SERVICEAPISTATISTIC*& statistic) {
    delete statistic;
    statistic = nullptr;
  });
}

int KorvainServiceStatisticMgr::Init(Logger* logger) {
  m_logger = logger;
  return 0;
}

int KorvainServiceStatisticMgr::CreateStatisticMap(int set_id, int app_id, int zone_id) {
  if (m_access_index_map == nullptr) {
    m_access_index_map = new (std::nothrow) MapAccessIndex();
    if (m_access_index_map == nullptr) {
      return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                          "%s failed. %s:%lld(%s)", "new MapAccessIndex", "m_access_index_map", 0LL,
                          "NULL");
    }
    KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for MapAccessIndex:%zd",
                sizeof(MapAccessIndex));
  }

  const int64_t key = GetKey(app_id, zone_id);
  if (m_option_map.find(key) == m_option_map.end() &&
      !m_option_map.emplace(key, MakeFreshOption()).second) {
    KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_ERROR,
                "m_option_map.insert() failed. set_id:%d, app_id:%d, zone_id:%d", set_id, app_id,
                zone_id);
  }

  if (SERVICEAPISTATISTIC* existing = GetServiceApiStatistic(app_id, zone_id)) {
    FillIdentity(*existing, set_id, app_id, zone_id);
    return 0;
  }

  std::unique_ptr<SERVICEAPISTATISTIC> statistic(new (std::nothrow) SERVICEAPISTATISTIC);
  if (statistic == nullptr) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "%s failed. %s:%lld(%s)", "new SERVICEAPISTATISTIC",
                        "service_api_statistic", 0LL, "NULL");
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for SERVICEAPISTATISTIC:%zd",
              sizeof(SERVICEAPISTATISTIC));
  memset(statistic.get(), 0, sizeof(SERVICEAPISTATISTIC));
  FillIdentity(*statistic, set_id, app_id, zone_id);

  if (!m_statistic_map.Insert(key, statistic.get())) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "m_statistic_map.insert() failed. set_id:%d, app_id:%d, zone_id:%d", set_id,
                        app_id, zone_id);
  }
  static_cast<void>(statistic.release());  // now owned through the map
  return 0;
}

void KorvainServiceStatisticMgr::FillIdentity(SERVICEAPISTATISTIC& statistic, int set_id,
                                              int app_id, int zone_id) {
  statistic.iSetID = set_id;
  statistic.iAppID = app_id;
  statistic.iZoneID = zone_id;
  GetLocalIP(statistic.stProcessInfo.szIP, sizeof(statistic.stProcessInfo.szIP));
  statistic.stProcessInfo.iPid = getpid();
}

void KorvainServiceStatisticMgr::Reset(int app_id, int zone_id) {
  SERVICEAPISTATISTIC* statistic = GetServiceApiStatistic(app_id, zone_id);
  if (statistic == nullptr) return;
  statistic->nTableCount = 0;
  memset(statistic->astTableStatistic, 0, sizeof(statistic->astTableStatistic));
  memset(&statistic->stOverallRunStatus, 0, sizeof(statistic->stOverallRunStatus));
  statistic->iAccessCount = 0;
  memset(statistic->astAccessStatistic, 0, sizeof(statistic->astAccessStatistic));
}

void KorvainServiceStatisticMgr::SetSetIdAndName(int32_t set_id, const char* set_name) {
  StoreName(m_set_map, set_id, set_name);
}

void KorvainServiceStatisticMgr::SetAppIdAndName(int32_t app_id, const char* app_name) {
  StoreName(m_app_map, app_id, app_name);
}

void KorvainServiceStatisticMgr::SetZoneIdAndName(int32_t zone_id, const char* zone_name) {
  StoreName(m_zone_map, zone_id, zone_name);
}

const char* KorvainServiceStatisticMgr::GetSetName(int32_t set_id) const {
  return FindName(m_set_map, set_id);
}

const char* KorvainServiceStatisticMgr::GetAppName(int32_t app_id) const {
  return FindName(m_app_map, app_id);
}

const char* KorvainServiceStatisticMgr::GetZoneName(int32_t zone_id) const {
  return FindName(m_zone_map, zone_id);
}

}  // namespace KorvainService
