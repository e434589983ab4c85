// Remembering a request that is sent.
#include <new>

#include "comm/detail/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/detail/dotted.h"
#include "service_api/detail/log.h"
#include "service_api/latency_data_mgr.h"

namespace KorvainService {

namespace {

constexpr char PUSH_BACK[] = "PushBack";  // in whose name its steps report

// Makes a request's record, but for its node's id. The hash is computed here, where nothing waits
// for it; once the request is over, finding its access would.
inline LatencyData& MakeRecord(detail::ObjSlabTaken slot, int32_t zone_id, int64_t send_time,
                               int32_t ip, int32_t port) {
  auto* const request = new (slot.memory) LatencyData;
  request->id_for_latency_data = slot.id;
  request->time_ms = send_time;
  request->zone_id = zone_id;
  request->ip = ip;
  request->port = port;
  request->access_hash =
      static_cast<uint32_t>(StatisticAccessInfoHash()(StatisticAccessInfo{zone_id, ip, port}));
  return *request;
}

inline LIST_NODE* MakeNode(detail::ObjSlabTaken slot, LatencyData& request) {
  request.id_for_list_node = slot.id;
  auto* const node = new (slot.memory) LIST_NODE;
  node->pData = &request;
  return node;
}

}  // namespace

// The short way, for when both pools have a released slot to hand out. Nothing can fail then, the
// list included: a node that has just been free is neither its head nor its tail.
int LatencyDataMgr::PushBack(int32_t zone_id, int64_t send_time, int32_t ip, int32_t port) {
  if (!IsReady() || !detail::ObjSlabHaveBothReleased(m_latency_data_pool, m_list_node_pool)) {
    return PushBackStepByStep(zone_id, send_time, ip, port);
  }
  const auto record = detail::ObjSlabTakeReleased<sizeof(LatencyData)>(m_latency_data_pool);
  LatencyData& request = MakeRecord(record, zone_id, send_time, ip, port);
  const auto node = detail::ObjSlabTakeReleased<sizeof(LIST_NODE)>(m_list_node_pool);
  m_bidirection_list->Insert(MakeNode(node, request));
  return m_logger == nullptr ? request.id_for_latency_data : LogPushedIfWanted(request);
}

// The whole way, for slots used for the first time and for pools without any.
int LatencyDataMgr::PushBackStepByStep(int32_t zone_id, int64_t send_time, int32_t ip,
                                       int32_t port) {
  if (!IsReady() || objslab_is_full(m_latency_data_pool) != 0) {
    LogFullPool(LATENCY_DATA_POOL_FULL);
    return API_ERR_ALLOCATE_MEMORY;
  }
  const int record_id = objslab_alloc(m_latency_data_pool);
  if (record_id < 0) {
    return KORVAIN_FAIL_AS(PUSH_BACK, API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                           "objslab_alloc failed. ");
  }
  void* const record = objslab_get(m_latency_data_pool, record_id);
  if (record == nullptr) {
    GiveBack(m_latency_data_pool, record_id);
    return KORVAIN_FAIL_AS(PUSH_BACK, API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                           "objslab_get for latency data pool failed. ");
  }
  return LinkStepByStep(MakeRecord({record_id, record}, zone_id, send_time, ip, port));
}

int LatencyDataMgr::LinkStepByStep(LatencyData& request) {
  const int record_id = request.id_for_latency_data;
  if (objslab_is_full(m_list_node_pool) != 0) {
    LogFullPool(LIST_NODE_POOL_FULL);
    GiveBack(m_latency_data_pool, record_id);
    return API_ERR_ALLOCATE_MEMORY;
  }
  const int node_id = objslab_alloc(m_list_node_pool);
  if (node_id < 0) {
    KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_alloc failed. ");
    GiveBack(m_latency_data_pool, record_id);
    return API_ERR_ALLOCATE_MEMORY;
  }
  void* const node = objslab_get(m_list_node_pool, node_id);
  if (node == nullptr) {
    GiveBackBoth(record_id, node_id);
    return KORVAIN_FAIL_AS(PUSH_BACK, API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                           "objslab_get for bidirection list pool failed. ");
  }

  if (!m_bidirection_list->Insert(MakeNode({node_id, node}, request))) {
    const LatencyData refused = request;  // what was in a slot that was given back is gone
    GiveBackBoth(record_id, node_id);
    return KORVAIN_FAIL_AS(
        PUSH_BACK, GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
        "m_bidirection_list->Insert() failed. send time:%lu, ip:%s, port:%d, zone_id:%d",
        static_cast<unsigned long>(refused.time_ms), detail::Dotted(refused.ip), refused.port,
        refused.zone_id);
  }
  return m_logger == nullptr ? record_id : LogPushedIfWanted(request);
}

// The end of a PushBack with a logger, which mostly does not want the line. Not inlined, since then
// every PushBack would save registers for the question.
__attribute__((noinline)) int LatencyDataMgr::LogPushedIfWanted(const LatencyData& request) {
  if (m_logger->IsPriorityEnabled(KORVAIN_LOG_LEVEL_DEBUG)) return LogPushed(request);
  return request.id_for_latency_data;
}

int LatencyDataMgr::LogPushed(const LatencyData& request) {
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                 "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
                 "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
                 static_cast<unsigned long>(request.time_ms), detail::Dotted(request.ip),
                 request.port, request.zone_id, request.id_for_latency_data,
                 request.id_for_list_node);
  return request.id_for_latency_data;
}

void LatencyDataMgr::LogFullPool(RepetitiveFailure failure) {
  if (!IsReportDue(failure)) return;
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab is full, frequency:%d",
                 MAX_LOG_FREQUENCY);
}

void LatencyDataMgr::GiveBack(LPOBJSLAB pool, int id) {
  if (objslab_free(pool, id) != 0) LogNotFreed(PUSH_BACK, id);
}

void LatencyDataMgr::GiveBackBoth(int record_id, int node_id) {
  GiveBack(m_latency_data_pool, record_id);
  GiveBack(m_list_node_pool, node_id);
}

}  // namespace KorvainService
