// What a LatencyDataMgr does off the path of a request: refusing, and writing log lines.
#include <arpa/inet.h>
#include <netinet/in.h>

#include "comm/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"
#include "service_api/private_log.h"

namespace KorvainService {

namespace {

constexpr size_t LATENCY_DATA_SIZE = sizeof(LatencyData);
constexpr size_t LIST_NODE_SIZE = sizeof(LIST_NODE);

constexpr char PUSH_BACK[] = "PushBack";  // in whose name most of this reports

// The address in dotted form, in a buffer that the next call overwrites.
const char* Dotted(int32_t ip) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(ip);
  return inet_ntoa(address);
}

template <size_t SLOT_SIZE>
void GiveBack(LPOBJSLAB pool, int id, Logger* logger, const char* operation) {
  if (!ObjSlabGiveBack<SLOT_SIZE>(pool, id)) {
    KORVAIN_LOG_AS(operation, logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_free failed. id:%d", id);
  }
}

}  // namespace

void LatencyDataMgr::GiveBackBoth(const char* operation, int record_id, int node_id) {
  GiveBack<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id, m_logger, operation);
  GiveBack<LIST_NODE_SIZE>(m_list_node_pool, node_id, m_logger, operation);
}

// Counts one occurrence; true for one in MAX_LOG_FREQUENCY, beginning with the one after the first
// MAX_LOG_FREQUENCY.
bool LatencyDataMgr::IsReportDue(RepetitiveFailure failure) {
  int& occurrences = m_log_frequency[failure];
  if (occurrences >= MAX_LOG_FREQUENCY) {
    occurrences = 1;
    return true;
  }
  ++occurrences;
  return false;
}

int LatencyDataMgr::RefuseForLatencyData(int record_id) {
  if (!IsReady() || objslab_is_full(m_latency_data_pool) != 0) {
    if (IsReportDue(LATENCY_DATA_POOL_FULL)) {
      KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab is full, frequency:%d",
                     MAX_LOG_FREQUENCY);
    }
  } else if (record_id < 0) {
    KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_alloc failed. ");
  } else {
    GiveBack<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id, m_logger, PUSH_BACK);
    KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                   "objslab_get for latency data pool failed. ");
  }
  return API_ERR_ALLOCATE_MEMORY;
}

int LatencyDataMgr::RefuseForListNode(int record_id, int node_id) {
  if (objslab_is_full(m_list_node_pool) != 0) {
    if (IsReportDue(LIST_NODE_POOL_FULL)) {
      KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab is full, frequency:%d",
                     MAX_LOG_FREQUENCY);
    }
    GiveBack<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id, m_logger, PUSH_BACK);
  } else if (node_id < 0) {
    KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_alloc failed. ");
    GiveBack<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id, m_logger, PUSH_BACK);
  } else {
    GiveBackBoth(PUSH_BACK, record_id, node_id);
    KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                   "objslab_get for bidirection list pool failed. ");
  }
  return API_ERR_ALLOCATE_MEMORY;
}

int LatencyDataMgr::RefuseToLink(const LatencyData& request) {
  const LatencyData refused = request;  // its slot is given back before the line is written
  GiveBackBoth(PUSH_BACK, refused.id_for_latency_data, refused.id_for_list_node);
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "m_bidirection_list->Insert() failed. send time:%lu, ip:%s, port:%d, zone_id:%d",
                 static_cast<unsigned long>(refused.time_ms), Dotted(refused.ip), refused.port,
                 refused.zone_id);
  return GEN_ERR_ERR;
}

int LatencyDataMgr::RefuseToUnlink(const char* operation) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "m_bidirection_list->Remove() failed.");
  return GEN_ERR_ERR;
}

int LatencyDataMgr::RefuseUnknownId(int32_t id) {
  if (IsReportDue(UNKNOWN_ID)) {
    KORVAIN_LOG_AS("CalculateDelay", m_logger, KORVAIN_LOG_LEVEL_ERROR,
                   "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
                   MAX_LOG_FREQUENCY);
  }
  return GEN_ERR_ERR;
}

int LatencyDataMgr::RefuseNullManager(const char* operation) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "the input parameter is invalid, NULL == statistic_mgr");
  return API_ERR_PARAMETER_INVALID;
}

int LatencyDataMgr::RefuseMissingRecord(const char* operation, int32_t zone_id) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d", m_app_id,
                 zone_id);
  return GEN_ERR_ERR;
}

// The end of a PushBack whose manager has a logger.
int LatencyDataMgr::LogPushed(const LatencyData& request) {
  if (m_logger->IsPriorityEnabled(KORVAIN_LOG_LEVEL_DEBUG)) return WriteLogPushed(request);
  return request.id_for_latency_data;
}

int LatencyDataMgr::WriteLogPushed(const LatencyData& request) {
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                 "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
                 "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
                 static_cast<unsigned long>(request.time_ms), Dotted(request.ip), request.port,
                 request.zone_id, request.id_for_latency_data, request.id_for_list_node);
  return request.id_for_latency_data;
}

void LatencyDataMgr::LogTimedOut(const LatencyData& request) {
  KORVAIN_LOG_AS("TraverseForDeleteTimeOutNode", m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, id_for_latency_data:%d, "
                 "id_for_list_node:%d",
                 m_app_id, request.zone_id, Dotted(request.ip), request.port,
                 request.id_for_latency_data, request.id_for_list_node);
}

}  // namespace KorvainService
