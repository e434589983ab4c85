// Latency tracking: turns each response into a delay and each unanswered request into a time-out.
#ifndef KORVAIN_LATENCY_DATA_MGR_H_
#define KORVAIN_LATENCY_DATA_MGR_H_

#include <cstdint>
#include <functional>

#include "comm/objslab.h"
#include "net/bi_list.h"
#include "service_api/korvain/korvain_service_log.h"
#include "service_api/statistic_mgr.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// Most requests in flight per manager.
inline constexpr int MAX_NODE_COUNT = 100000;

// Default time-out in milliseconds, and default number of requests that one sweep expires.
inline constexpr int STATISTIC_DEFAULT_TIME_OUT = 3000;
inline constexpr int STATISTIC_DEFAULT_TRAVERSE_MAX_NODE_PER_TIME = 100;

// A full pool, and an id that names no request in flight, are logged at ERROR once in this many
// occurrences, the first so many since Init being silent. Other failures are logged each time.
inline constexpr int MAX_LOG_FREQUENCY = 100000;

// One request in flight.
struct LatencyData {
  int32_t id_for_latency_data;  // the id that PushBack gave
  int32_t id_for_list_node;     // the slot of its list node
  int64_t time_ms;              // when the request was sent
  int32_t zone_id;              // the access, as given to PushBack
  int32_t ip;
  int32_t port;
  uint32_t access_hash;  // of zone, address and port, for finding the access when it is over
};

// Remembers the requests in flight of one application. Init reserves everything that a request
// needs; after it no operation allocates, and nothing is logged as long as requests are answered,
// except for a line per PushBack when the logger wants DEBUG lines.
//
// Times are milliseconds on the clock of GetCurrentMilliseconds. The sweep reads from the oldest
// entry and stops at the first young one, so send times should not decrease from one PushBack to
// the next. An entry is counted at most once, as a delay or as a time-out; requests still in flight
// when the manager is destroyed are not counted.
//
// Not thread-safe: calls are serialised with those of the statistics manager, which is passed in
// where it is needed and only borrowed. Nothing is thrown but what a time-out handler throws.
class LatencyDataMgr {
 public:
  LatencyDataMgr() = default;
  ~LatencyDataMgr();
  LatencyDataMgr(const LatencyDataMgr&) = delete;
  LatencyDataMgr& operator=(const LatencyDataMgr&) = delete;

  // Reserves room for MAX_NODE_COUNT requests of `app_id`. `timeout` (milliseconds) and `limit`
  // (entries that one sweep removes at most) must be above 0. The logger is borrowed and may be
  // null. Memory becomes resident only as requests need it.
  //
  // Returns 0; API_ERR_PARAMETER_INVALID, changing nothing, for a bad argument;
  // API_ERR_ALLOCATE_MEMORY when there is no memory: the manager is then not ready. Called again,
  // it drops the requests in flight uncounted and starts afresh: ids given before must not be used
  // any more, since the same ids are handed out again.
  int Init(int32_t app_id, int timeout, int limit, Logger* logger);

  // Remembers a request sent at `send_time` to the access (zone_id, ip, port), registered or not.
  //
  // Returns an id of 0 or more, to be kept with the request. API_ERR_ALLOCATE_MEMORY when
  // MAX_NODE_COUNT requests are in flight or the manager is not ready; GEN_ERR_ERR when the request
  // cannot be entered in the list.
  int PushBack(int32_t zone_id, int64_t send_time, int32_t ip, int32_t port);

  // Takes the response to the request `id`, received at `recv_time`. The delay is added to the
  // overall delay sum of the zone's record and, when the access is in use in the record, to that of
  // the access. The request is then forgotten. A delay of 0 ms, or one below, is not counted, and
  // not among the samples of the mean either.
  //
  // Returns 0. API_ERR_PARAMETER_INVALID for a null statistic_mgr. GEN_ERR_ERR for an id that names
  // no request in flight, the ordinary outcome for a response that comes after its request has
  // timed out (also when the slot serves another request by then: a late response is refused unless
  // its slot has been handed out exactly a multiple of 16384 times since); when the zone has no
  // record (the request stays in flight); or when the list is damaged.
  int CalculateDelay(int32_t id, int64_t recv_time, KorvainServiceStatisticMgr* statistic_mgr);

  // Expires requests from the oldest on, at most `limit` of them, until it meets one that is
  // younger than the time-out. A request counts as timed out when its age is at least the time-out,
  // or when it was sent later than now. To be called often; one call costs at most `limit` entries.
  // Each time-out of a registered access is logged at ERROR, without asking IsPriorityEnabled.
  //
  // Returns 0, also before Init. API_ERR_PARAMETER_INVALID for a null statistic_mgr. GEN_ERR_ERR
  // when the zone of the oldest request has no record, however young the request is: it holds up
  // the expiry of every request behind it, of whatever zone, until the record exists or the request
  // is withdrawn; or when the list is damaged. What the call has expired by then stays expired.
  int TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr);

  // Called for a request that a sweep has expired, with a copy of it. The request has been counted
  // and is no longer in flight; its id may be handed out again. The handler may call PushBack (for
  // a retry), CalculateDelay, Withdraw, Find and Count of the same manager, and nothing else of it.
  using TimeOutHandler = std::function<void(const LatencyData& request)>;

  // The same, and calls the handler once for each request that it expires. A retry that is due at
  // once is expired by the same call at most as long as `limit` allows. What the handler throws
  // leaves the sweep: the request is gone, and those behind it wait for the next sweep. An empty
  // handler is not called. Keep a TimeOutHandler for all calls: making one of a lambda may
  // allocate.
  int TraverseForDeleteTimeOutNode(KorvainServiceStatisticMgr* statistic_mgr,
                                   const TimeOutHandler& on_time_out);

  // Forgets the request `id` without counting it: one that could not be sent after all.
  //
  // Returns 0; GEN_ERR_ERR for an id that names no request in flight, which is logged as rarely as
  // in CalculateDelay and counted with its failures, or when the list is damaged.
  int Withdraw(int32_t id);

  // The request in flight that `id` names, or null for any other id and before Init. It stays valid
  // until the request is over (answered, withdrawn or expired), the next Init or the destruction of
  // the manager.
  const LatencyData* Find(int32_t id) const;

  // Adds `ms` milliseconds to the send time of every request in flight: to be called after a step
  // of the clock behind GetCurrentMilliseconds, with the length of the step, so that no request
  // appears older or younger than it is. Without it, the sweep takes every request that was sent
  // later than now for timed out. Costs what the requests in flight cost; no effect before Init.
  void ShiftSendTimes(int64_t ms);

  // The number of requests in flight; 0 before Init.
  int Count() const;

  // Milliseconds; 0 or less stands for STATISTIC_DEFAULT_TIME_OUT.
  void SetTimeOut(int32_t timeout);

  // Entries per sweep; 0 or less stands for STATISTIC_DEFAULT_TRAVERSE_MAX_NODE_PER_TIME.
  void SetLimit(int32_t limit);

 private:
  // Repetitive failures, each with a suppression counter of its own.
  enum RepetitiveFailure { LATENCY_DATA_POOL_FULL, LIST_NODE_POOL_FULL, UNKNOWN_ID };

  bool IsReady() const { return m_bidirection_list != nullptr; }
  void Release();

  int PushBackStepByStep(int32_t zone_id, int64_t send_time, int32_t ip, int32_t port);
  int LinkStepByStep(LatencyData& request);
  int LogPushedIfWanted(const LatencyData& request);
  int LogPushed(const LatencyData& request);
  bool IsReportDue(RepetitiveFailure failure);
  void LogFullPool(RepetitiveFailure failure);
  void GiveBack(LPOBJSLAB pool, int id);
  void GiveBackBoth(int record_id, int node_id);
  void LogNotFreed(const char* operation, int id);
  void LogUnknownId(const char* operation, int32_t id);
  int Forget(const char* operation, const LatencyData& request);
  template <class OnTimeOut>
  int Sweep(KorvainServiceStatisticMgr* statistic_mgr, const OnTimeOut& on_time_out);
  void CountTimeOut(SERVICEAPISTATISTIC& statistic, const LatencyData& request,
                    KorvainServiceStatisticMgr& statistic_mgr);
  void LogTimedOut(const LatencyData& request);

  LPOBJSLAB m_latency_data_pool = nullptr;
  LPOBJSLAB m_list_node_pool = nullptr;
  CBidirList* m_bidirection_list = nullptr;  // owned; null until Init has succeeded
  int m_timeout = STATISTIC_DEFAULT_TIME_OUT;
  int m_limit = STATISTIC_DEFAULT_TRAVERSE_MAX_NODE_PER_TIME;
  Logger* m_logger = nullptr;  // borrowed
  int m_log_frequency[3] = {};
  int m_app_id = 0;
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_LATENCY_DATA_MGR_H_
