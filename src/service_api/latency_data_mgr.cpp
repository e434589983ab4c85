// What a manager of requests in flight is made of, and its settings.
#include "service_api/latency_data_mgr.h"

#include <new>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"

namespace KorvainService {

LatencyDataMgr::~LatencyDataMgr() {
  Release();
}

void LatencyDataMgr::Release() {
  objslab_destroy(&m_latency_data_pool);
  objslab_destroy(&m_list_node_pool);
  delete m_bidirection_list;
  m_bidirection_list = nullptr;
}

int LatencyDataMgr::Init(int32_t app_id, int timeout, int limit, Logger* logger) {
  if (limit <= 0 || timeout <= 0) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, logger, KORVAIN_LOG_LEVEL_ERROR,
                        "timeout(%d)<=0 || limit(%d) <=0", timeout, limit);
  }
  m_app_id = app_id;
  m_timeout = timeout;
  m_logger = logger;
  m_limit = limit;
  Release();

  int ret = objslab_new(&m_latency_data_pool, MAX_NODE_COUNT, sizeof(LatencyData));
  if (ret != 0) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "objslab_new failed. ret:%d, sizeof(LatencyData):%zd, MAX_NODE_COUNT:%d",
                        ret, sizeof(LatencyData), MAX_NODE_COUNT);
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for latency data:%zd",
              objslab_get_size(m_latency_data_pool));

  ret = objslab_new(&m_list_node_pool, MAX_NODE_COUNT, sizeof(LIST_NODE));
  if (ret != 0) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "objslab_new failed. ret:%d, sizeof(LIST_NODE):%zd, MAX_NODE_COUNT:%d", ret,
                        sizeof(LIST_NODE), MAX_NODE_COUNT);
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for list node:%zd",
              objslab_get_size(m_list_node_pool));

  m_bidirection_list = new (std::nothrow) CBidirList();
  if (m_bidirection_list == nullptr) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "new(std::nothrow) CBidirList() failed.  sizeof(CBidirList):%zdd",
                        sizeof(CBidirList));
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for CBidirList:%zd",
              sizeof(CBidirList));

  for (int& occurrences : m_log_frequency) occurrences = 0;
  return 0;
}

void LatencyDataMgr::SetTimeOut(int32_t timeout) {
  m_timeout = timeout > 0 ? timeout : STATISTIC_DEFAULT_TIME_OUT;
}

void LatencyDataMgr::SetLimit(int32_t limit) {
  m_limit = limit > 0 ? limit : STATISTIC_DEFAULT_TRAVERSE_MAX_NODE_PER_TIME;
}

// Adds as unsigned numbers, since times near the ends of their range may wrap.
void LatencyDataMgr::ShiftSendTimes(int64_t ms) {
  if (!IsReady()) return;
  for (LIST_NODE* node = m_bidirection_list->Head(); node != nullptr; node = node->pNext) {
    int64_t& time_ms = static_cast<LatencyData*>(node->pData)->time_ms;
    time_ms = static_cast<int64_t>(static_cast<uint64_t>(time_ms) + static_cast<uint64_t>(ms));
  }
}

int LatencyDataMgr::Count() const {
  return IsReady() ? static_cast<int>(m_bidirection_list->Count()) : 0;
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

void LatencyDataMgr::LogNotFreed(const char* operation, int id) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_free failed. id:%d", id);
}

}  // namespace KorvainService
