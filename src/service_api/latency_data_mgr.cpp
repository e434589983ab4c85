#include "service_api/latency_data_mgr.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <new>

#include "comm/detail/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/detail/elapsed.h"
#include "service_api/detail/log.h"
#include "service_api/korvain/korvain_service_clock.h"

namespace KorvainService {

namespace {

// In whose names their steps report.
constexpr char PUSH_BACK[] = "PushBack";
constexpr char TRAVERSE[] = "TraverseForDeleteTimeOutNode";

// The address in dotted form, in a buffer that the next call overwrites.
const char* Dotted(int32_t ip) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(ip);
  return inet_ntoa(address);
}

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

inline StatisticAccessInfo AccessOf(const LatencyData& request) {
  return {request.zone_id, request.ip, request.port};
}

template <class Status>
void AddDelay(Status& status, uint64_t delay) {
  status.ullAverageDelay += delay;
  ++status.dwCalculateAverageDelayResCount;
}

}  // namespace

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

  LatencyData& request = MakeRecord({record_id, record}, zone_id, send_time, ip, port);
  if (!m_bidirection_list->Insert(MakeNode({node_id, node}, request))) {
    GiveBackBoth(record_id, node_id);
    return KORVAIN_FAIL_AS(
        PUSH_BACK, GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_ERROR,
        "m_bidirection_list->Insert() failed. send time:%lu, ip:%s, port:%d, zone_id:%d",
        static_cast<unsigned long>(send_time), Dotted(ip), port, zone_id);
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
                 static_cast<unsigned long>(request.time_ms), Dotted(request.ip), request.port,
                 request.zone_id, request.id_for_latency_data, request.id_for_list_node);
  return request.id_for_latency_data;
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

void LatencyDataMgr::LogFullPool(RepetitiveFailure failure) {
  if (!IsReportDue(failure)) return;
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab is full, frequency:%d",
                 MAX_LOG_FREQUENCY);
}

void LatencyDataMgr::LogUnknownId(const char* operation, int32_t id) {
  if (!IsReportDue(UNKNOWN_ID)) return;
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
                 MAX_LOG_FREQUENCY);
}

void LatencyDataMgr::GiveBack(LPOBJSLAB pool, int id) {
  if (objslab_free(pool, id) != 0) LogNotFreed(PUSH_BACK, id);
}

void LatencyDataMgr::GiveBackBoth(int record_id, int node_id) {
  GiveBack(m_latency_data_pool, record_id);
  GiveBack(m_list_node_pool, node_id);
}

void LatencyDataMgr::LogNotFreed(const char* operation, int id) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_free failed. id:%d", id);
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

const LatencyData* LatencyDataMgr::Find(int32_t id) const {
  if (!IsReady() || !detail::ObjSlabIsInUse<sizeof(LatencyData)>(m_latency_data_pool, id)) {
    return nullptr;
  }
  return static_cast<const LatencyData*>(
      detail::ObjSlabMemoryOf<sizeof(LatencyData)>(m_latency_data_pool, id));
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

int LatencyDataMgr::Withdraw(int32_t id) {
  const LatencyData* const request = Find(id);
  if (request == nullptr) {
    LogUnknownId(__func__, id);
    return GEN_ERR_ERR;
  }
  return Forget(__func__, *request);
}

int LatencyDataMgr::Count() const {
  return IsReady() ? static_cast<int>(m_bidirection_list->Count()) : 0;
}

int LatencyDataMgr::TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr) {
  return Sweep(statistic_mgr, [](const LatencyData& /*request*/) {});
}

int LatencyDataMgr::TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr,
                                                 const TimeOutHandler& on_time_out) {
  if (!on_time_out) return TraverseForDeleteTimeOutNode(statistic_mgr);
  return Sweep(statistic_mgr, on_time_out);
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

    ++statistic->stOverallRunStatus.dwTimeoutCountPerMin;
    ACCESSRUNSTATUS* const access =
        statistic_mgr->HashedAccess(*statistic, AccessOf(request), request.access_hash);
    if (access != nullptr) {
      if (m_logger != nullptr) LogTimedOut(request);
      ++access->dwTimeoutCountPerMin;
    }

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
                 m_app_id, request.zone_id, Dotted(request.ip), request.port,
                 request.id_for_latency_data, request.id_for_list_node);
}

}  // namespace KorvainService
