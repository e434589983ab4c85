#include "service_api/latency_data_mgr.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <new>

#include "comm/objslab_inline.h"
#include "common/korvain_error_code.h"
#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/private_log.h"

// The path of a request has no call but tail calls into cold functions, and therefore saves no
// registers: 30 instructions a request.
#define HOT_INLINE __attribute__((always_inline)) inline
#define LIKELY(condition) __builtin_expect(condition, true)
#define COLD __attribute__((cold, noinline))

namespace KorvainService {

namespace {

constexpr size_t LATENCY_DATA_SIZE = sizeof(LatencyData);
constexpr size_t LIST_NODE_SIZE = sizeof(LIST_NODE);

// In whose name what is kept off their paths reports.
constexpr char PUSH_BACK[] = "PushBack";
constexpr char CALCULATE_DELAY[] = "CalculateDelay";
constexpr char TRAVERSE[] = "TraverseForDeleteTimeOutNode";

// The address in dotted form, in a buffer that the next call overwrites.
const char* Dotted(int32_t ip) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(ip);
  return inet_ntoa(address);
}

// The time from `from` to `to`, which wraps to a huge value when `from` is the later one.
uint64_t Elapsed(int64_t from, int64_t to) {
  return static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
}

// The counters of the request's access, or null when it is not in use in the record. Inlined by
// force, for 20 instructions a request.
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

template <size_t SLOT_SIZE>
HOT_INLINE void GiveBack(LPOBJSLAB pool, int id, Logger* logger, const char* operation) {
  if (!ObjSlabGiveBack<SLOT_SIZE>(pool, id)) {
    KORVAIN_LOG_AS(operation, logger, KORVAIN_LOG_LEVEL_ERROR, "objslab_free failed. id:%d", id);
  }
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

COLD int LatencyDataMgr::PushBackWithoutReleasedSlots(int32_t zone_id, int64_t send_time,
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
// registers before: 20 instructions a request.
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

HOT_INLINE void LatencyDataMgr::GiveBackBoth(const char* operation, int record_id, int node_id) {
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

COLD int LatencyDataMgr::RefuseForLatencyData(int record_id) {
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

COLD int LatencyDataMgr::RefuseForListNode(int record_id, int node_id) {
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

COLD int LatencyDataMgr::RefuseToLink(const LatencyData& request) {
  const LatencyData refused = request;  // its slot is given back before the line is written
  GiveBackBoth(PUSH_BACK, refused.id_for_latency_data, refused.id_for_list_node);
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "m_bidirection_list->Insert() failed. send time:%lu, ip:%s, port:%d, zone_id:%d",
                 static_cast<unsigned long>(refused.time_ms), Dotted(refused.ip), refused.port,
                 refused.zone_id);
  return GEN_ERR_ERR;
}

COLD int LatencyDataMgr::RefuseToUnlink(const char* operation) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "m_bidirection_list->Remove() failed.");
  return GEN_ERR_ERR;
}

COLD int LatencyDataMgr::RefuseUnknownId(int32_t id) {
  if (IsReportDue(UNKNOWN_ID)) {
    KORVAIN_LOG_AS(CALCULATE_DELAY, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                   "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
                   MAX_LOG_FREQUENCY);
  }
  return GEN_ERR_ERR;
}

COLD int LatencyDataMgr::RefuseNullManager(const char* operation) {
  KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "the input parameter is invalid, NULL == statistic_mgr");
  return API_ERR_PARAMETER_INVALID;
}

COLD int LatencyDataMgr::RefuseMissingRecord(const char* operation, int32_t zone_id) {
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

COLD int LatencyDataMgr::WriteLogPushed(const LatencyData& request) {
  KORVAIN_LOG_AS(PUSH_BACK, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                 "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
                 "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
                 static_cast<unsigned long>(request.time_ms), Dotted(request.ip), request.port,
                 request.zone_id, request.id_for_latency_data, request.id_for_list_node);
  return request.id_for_latency_data;
}

COLD void LatencyDataMgr::LogTimedOut(const LatencyData& request) {
  KORVAIN_LOG_AS(TRAVERSE, m_logger, KORVAIN_LOG_LEVEL_ERROR,
                 "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, id_for_latency_data:%d, "
                 "id_for_list_node:%d",
                 m_app_id, request.zone_id, Dotted(request.ip), request.port,
                 request.id_for_latency_data, request.id_for_list_node);
}

}  // namespace KorvainService
