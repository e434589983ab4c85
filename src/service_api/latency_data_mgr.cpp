#include "service_api/latency_data_mgr.h"

#include <cstdint>
#include <new>

#include "comm/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/private_log.h"

// The path of a request has no call but tail calls, and therefore saves few registers: with what is
// inlined by force, 45 instructions a request.
#define HOT_INLINE __attribute__((always_inline)) inline
#define LIKELY(condition) __builtin_expect(condition, true)

namespace KorvainService {

namespace {

constexpr size_t LATENCY_DATA_SIZE = sizeof(LatencyData);
constexpr size_t LIST_NODE_SIZE = sizeof(LIST_NODE);

// In whose name what is kept off their paths reports.
constexpr char CALCULATE_DELAY[] = "CalculateDelay";
constexpr char TRAVERSE[] = "TraverseForDeleteTimeOutNode";

// The time from `from` to `to`, which wraps to a huge value when `from` is the later one.
uint64_t Elapsed(int64_t from, int64_t to) {
  return static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
}

// The counters of the request's access, or null when it is not in use in the record.
HOT_INLINE ACCESSRUNSTATUS* FindAccess(SERVICEAPISTATISTIC& statistic, const LatencyData& request,
                                       const KorvainServiceStatisticMgr& statistic_mgr) {
  const int index = statistic_mgr.FindAccessIndex({request.zone_id, request.ip, request.port},
                                                  request.access_hash);
  if (index < 0 || index >= statistic.iAccessCount) return nullptr;
  return &statistic.astAccessStatistic[index].stAccessRunStatus;
}

// Writes the record of a request, but for its node's id. The hash is computed here, where nothing
// waits for it; once the request is over, finding its access would.
HOT_INLINE LatencyData& Fill(const ObjSlabTaken& record, int32_t zone_id, int64_t send_time,
                             int32_t ip, int32_t port) {
  auto* const request = new (record.memory) LatencyData;
  request->id_for_latency_data = record.id;
  request->time_ms = send_time;
  request->zone_id = zone_id;
  request->ip = ip;
  request->port = port;
  request->access_hash =
      static_cast<uint32_t>(StatisticAccessInfoHash()(StatisticAccessInfo{zone_id, ip, port}));
  return *request;
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

  int ret = objslab_new(&m_latency_data_pool, MAX_NODE_COUNT, LATENCY_DATA_SIZE);
  if (ret != 0) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "objslab_new failed. ret:%d, sizeof(LatencyData):%zd, MAX_NODE_COUNT:%d",
                        ret, LATENCY_DATA_SIZE, MAX_NODE_COUNT);
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "allocate memory for latency data:%zd",
              objslab_get_size(m_latency_data_pool));

  ret = objslab_new(&m_list_node_pool, MAX_NODE_COUNT, LIST_NODE_SIZE);
  if (ret != 0) {
    return KORVAIN_FAIL(API_ERR_ALLOCATE_MEMORY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                        "objslab_new failed. ret:%d, sizeof(LIST_NODE):%zd, MAX_NODE_COUNT:%d", ret,
                        LIST_NODE_SIZE, MAX_NODE_COUNT);
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

int LatencyDataMgr::PushBack(int32_t zone_id, int64_t send_time, int32_t ip, int32_t port) {
  if (!IsReady() || !ObjSlabHaveBothReleased(m_latency_data_pool, m_list_node_pool)) {
    return PushBackWithoutReleasedSlots(zone_id, send_time, ip, port);
  }
  const ObjSlabTaken record = ObjSlabTakeReleased<LATENCY_DATA_SIZE>(m_latency_data_pool);
  LatencyData& request = Fill(record, zone_id, send_time, ip, port);
  return Link(request, ObjSlabTakeReleased<LIST_NODE_SIZE>(m_list_node_pool));
}

__attribute__((cold)) int LatencyDataMgr::PushBackWithoutReleasedSlots(int32_t zone_id,
                                                                       int64_t send_time,
                                                                       int32_t ip, int32_t port) {
  if (!IsReady()) return RefuseForLatencyData(-1);
  const ObjSlabTaken record = ObjSlabTake<LATENCY_DATA_SIZE>(m_latency_data_pool);
  if (record.memory == nullptr) return RefuseForLatencyData(record.id);
  const ObjSlabTaken node = ObjSlabTake<LIST_NODE_SIZE>(m_list_node_pool);
  if (node.memory == nullptr) return RefuseForListNode(record.id, node.id);
  return Link(Fill(record, zone_id, send_time, ip, port), node);
}

HOT_INLINE int LatencyDataMgr::Link(LatencyData& request, const ObjSlabTaken& node) {
  request.id_for_list_node = node.id;
  auto* const list_node = new (node.memory) LIST_NODE;
  list_node->pData = &request;
  if (!m_bidirection_list->Insert(list_node)) return RefuseToLink(request);
  if (m_logger != nullptr) return LogPushed(request);
  return request.id_for_latency_data;
}

int LatencyDataMgr::CalculateDelay(int32_t id, int64_t recv_time,
                                   KorvainServiceStatisticMgr* statistic_mgr) {
  if (statistic_mgr == nullptr) return RefuseNullManager(CALCULATE_DELAY);
  if (!IsReady()) return RefuseUnknownId(id);
  if (!ObjSlabIsInUse<LATENCY_DATA_SIZE>(m_latency_data_pool, id)) return RefuseUnknownId(id);
  PrefetchNodeBeside(id);
  const auto* request = reinterpret_cast<const LatencyData*>(
      ObjSlabMemory<LATENCY_DATA_SIZE>(m_latency_data_pool, ObjSlabSlotOf(id)));

  SERVICEAPISTATISTIC* statistic =
      statistic_mgr->GetServiceApiStatistic(m_app_id, request->zone_id);
  if (statistic == nullptr) return RefuseMissingRecord(CALCULATE_DELAY, request->zone_id);
  if (LIKELY(request->time_ms < recv_time)) {
    const uint64_t delay = Elapsed(request->time_ms, recv_time);
    AddDelay(statistic->stOverallRunStatus, delay);
    ACCESSRUNSTATUS* access = FindAccess(*statistic, *request, *statistic_mgr);
    if (access != nullptr) AddDelay(*access, delay);
  }
  return Forget(*request);
}

// Both slots of a request mostly have the same number, so the node can be on its way while the
// record is still being read.
HOT_INLINE void LatencyDataMgr::PrefetchNodeBeside(int record_id) const {
  __builtin_prefetch(ObjSlabMemory<LIST_NODE_SIZE>(m_list_node_pool, ObjSlabSlotOf(record_id)));
}

// The end of a CalculateDelay. A function of its own because it needs nothing of what was in
// registers before: 7 instructions a request.
__attribute__((noinline)) int LatencyDataMgr::Forget(const LatencyData& request) {
  const int record_id = request.id_for_latency_data;
  const int node_id = request.id_for_list_node;
  ObjSlabGiveBackInUse<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id);
  auto* node = reinterpret_cast<LIST_NODE*>(
      ObjSlabMemory<LIST_NODE_SIZE>(m_list_node_pool, ObjSlabSlotOf(node_id)));
  if (!m_bidirection_list->Remove(node)) return RefuseToUnlink(CALCULATE_DELAY);
  ObjSlabGiveBackInUse<LIST_NODE_SIZE>(m_list_node_pool, node_id);
  return 0;
}

int LatencyDataMgr::TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr) {
  if (statistic_mgr == nullptr) return RefuseNullManager(TRAVERSE);
  if (!IsReady()) return 0;

  for (int removed = 0; removed < m_limit; ++removed) {
    LIST_NODE* head = m_bidirection_list->Head();
    if (head == nullptr) return 0;
    if (head->pData == nullptr) {
      m_bidirection_list->Remove(head);
      continue;
    }

    const auto& request = *static_cast<const LatencyData*>(head->pData);
    SERVICEAPISTATISTIC* statistic =
        statistic_mgr->GetServiceApiStatistic(m_app_id, request.zone_id);
    if (statistic == nullptr) return RefuseMissingRecord(TRAVERSE, request.zone_id);
    // A request sent later than now has a huge age and so has timed out, too.
    const uint64_t age = Elapsed(request.time_ms, GetCurrentMilliseconds());
    if (age < static_cast<uint64_t>(m_timeout)) return 0;

    ++statistic->stOverallRunStatus.dwTimeoutCountPerMin;
    if (ACCESSRUNSTATUS* access = FindAccess(*statistic, request, *statistic_mgr)) {
      if (m_logger != nullptr) LogTimedOut(request);
      ++access->dwTimeoutCountPerMin;
    }

    const int record_id = request.id_for_latency_data;
    const int node_id = request.id_for_list_node;
    if (!m_bidirection_list->Remove(head)) return RefuseToUnlink(TRAVERSE);
    ObjSlabGiveBackInUse<LATENCY_DATA_SIZE>(m_latency_data_pool, record_id);
    ObjSlabGiveBackInUse<LIST_NODE_SIZE>(m_list_node_pool, node_id);
  }
  return 0;
}

}  // namespace KorvainService
