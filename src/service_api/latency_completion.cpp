// The end of a request: answered, withdrawn or timed out.
#include "comm/detail/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/detail/dotted.h"
#include "service_api/detail/elapsed.h"
#include "service_api/detail/log.h"
#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/latency_data_mgr.h"

namespace KorvainService {

namespace {

constexpr char TRAVERSE[] = "TraverseForDeleteTimeOutNode";  // in whose name its steps report

inline StatisticAccessInfo AccessOf(const LatencyData& request) {
  return {request.zone_id, request.ip, request.port};
}

template <class Status>
void AddDelay(Status& status, uint64_t delay) {
  status.ullAverageDelay += delay;
  ++status.dwCalculateAverageDelayResCount;
}

}  // namespace

const LatencyData* LatencyDataMgr::Find(int32_t id) const {
  if (!IsReady() || !detail::ObjSlabIsInUse<sizeof(LatencyData)>(m_latency_data_pool, id)) {
    return nullptr;
  }
  return static_cast<const LatencyData*>(
      detail::ObjSlabMemoryOf<sizeof(LatencyData)>(m_latency_data_pool, id));
}

int LatencyDataMgr::CalculateDelay(int32_t id, int64_t recv_time,
                                   KorvainServiceStatisticMgr* statistic_mgr) {
  if (statistic_mgr == nullptr) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "the input parameter is invalid, NULL == statistic_mgr");
  }
  const LatencyData* const request = Find(id);
  if (request == nullptr) {
    LogUnknownId(__func__, id);
    return GEN_ERR_ERR;
  }

  SERVICEAPISTATISTIC* const statistic =
      statistic_mgr->GetServiceApiStatistic(m_app_id, request->zone_id);
  if (statistic == nullptr) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d",
                        m_app_id, request->zone_id);
  }
  if (request->time_ms < recv_time) {
    const uint64_t delay = detail::Elapsed(request->time_ms, recv_time);
    AddDelay(statistic->stOverallRunStatus, delay);
    ACCESSRUNSTATUS* const access =
        statistic_mgr->HashedAccess(*statistic, AccessOf(*request), request->access_hash);
    if (access != nullptr) AddDelay(*access, delay);
  }

  return Forget(__func__, *request);
}

int LatencyDataMgr::Withdraw(int32_t id) {
  const LatencyData* const request = Find(id);
  if (request == nullptr) {
    LogUnknownId(__func__, id);
    return GEN_ERR_ERR;
  }
  return Forget(__func__, *request);
}

// Ends a request that has been found in flight. So both of its slots are in use, and neither giving
// them back nor finding the node can fail.
inline int LatencyDataMgr::Forget(const char* operation, const LatencyData& request) {
  const int record_id = request.id_for_latency_data;
  const int node_id = request.id_for_list_node;
  detail::ObjSlabGiveBackInUse<sizeof(LatencyData)>(m_latency_data_pool, record_id);
  auto* const node = static_cast<LIST_NODE*>(
      detail::ObjSlabMemoryOf<sizeof(LIST_NODE)>(m_list_node_pool, node_id));
  if (!m_bidirection_list->Remove(node)) {
    return KORVAIN_FAIL_AS(operation, GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                           "m_bidirection_list->Remove() failed.");
  }
  detail::ObjSlabGiveBackInUse<sizeof(LIST_NODE)>(m_list_node_pool, node_id);
  return 0;
}

void LatencyDataMgr::LogUnknownId(const char* operation, int32_t id) {
  if (!IsReportDue(UNKNOWN_ID)) return;
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
                 MAX_LOG_FREQUENCY);
}

int LatencyDataMgr::TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr) {
  return Sweep(statistic_mgr, [](const LatencyData& /*request*/) {});
}

int LatencyDataMgr::TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr,
                                                 const TimeOutHandler& on_time_out) {
  if (!on_time_out) return TraverseForDeleteTimeOutNode(statistic_mgr);
  return Sweep(statistic_mgr, on_time_out);
}

inline void LatencyDataMgr::CountTimeOut(SERVICEAPISTATISTIC& statistic, const LatencyData& request,
                                         KorvainServiceStatisticMgr& statistic_mgr) {
  ++statistic.stOverallRunStatus.dwTimeoutCountPerMin;
  ACCESSRUNSTATUS* const access =
      statistic_mgr.HashedAccess(statistic, AccessOf(request), request.access_hash);
  if (access == nullptr) return;
  if (m_logger != nullptr) LogTimedOut(request);
  ++access->dwTimeoutCountPerMin;
}

template <class OnTimeOut>
int LatencyDataMgr::Sweep(KorvainServiceStatisticMgr* statistic_mgr, const OnTimeOut& on_time_out) {
  if (statistic_mgr == nullptr) {
    return KORVAIN_FAIL_AS(TRAVERSE, API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                           "the input parameter is invalid, NULL == statistic_mgr");
  }
  if (!IsReady()) return 0;

  for (int removed = 0; removed < m_limit; ++removed) {
    LIST_NODE* const head = m_bidirection_list->Head();
    if (head == nullptr) return 0;
    if (head->pData == nullptr) {
      m_bidirection_list->Remove(head);
      continue;
    }

    const auto& request = *static_cast<const LatencyData*>(head->pData);
    SERVICEAPISTATISTIC* const statistic =
        statistic_mgr->GetServiceApiStatistic(m_app_id, request.zone_id);
    if (statistic == nullptr) {
      return KORVAIN_FAIL_AS(TRAVERSE, GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                             "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d",
                             m_app_id, request.zone_id);
    }
    // A request sent later than now has a huge age and so has timed out, too.
    const uint64_t age = detail::Elapsed(request.time_ms, GetCurrentMilliseconds());
    if (age < static_cast<uint64_t>(m_timeout)) return 0;

    CountTimeOut(*statistic, request, *statistic_mgr);

    const LatencyData expired = request;
    if (!m_bidirection_list->Remove(head)) {
      return KORVAIN_FAIL_AS(TRAVERSE, GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                             "m_bidirection_list->Remove() failed.");
    }
    if (!detail::ObjSlabGiveBack<sizeof(LatencyData)>(m_latency_data_pool,
                                                      expired.id_for_latency_data)) {
      LogNotFreed(TRAVERSE, expired.id_for_latency_data);
    }
    if (!detail::ObjSlabGiveBack<sizeof(LIST_NODE)>(m_list_node_pool, expired.id_for_list_node)) {
      LogNotFreed(TRAVERSE, expired.id_for_list_node);
    }
    on_time_out(expired);
  }
  return 0;
}

void LatencyDataMgr::LogTimedOut(const LatencyData& request) {
  KORVAIN_LOG_AS(TRAVERSE, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, id_for_latency_data:%d, "
                 "id_for_list_node:%d",
                 m_app_id, request.zone_id, detail::Dotted(request.ip), request.port,
                 request.id_for_latency_data, request.id_for_list_node);
}

}  // namespace KorvainService
