// The judge's check cycle.
#include <algorithm>

#include "service_api/detail/elapsed.h"
#include "service_api/detail/log.h"
#include "service_api/judge_proxy.h"

namespace KorvainService {

namespace {

constexpr char UPDATE[] = "Update";  // in whose name its steps report

// How loud an evaluation is reported. The limits are fixed; they do not follow check_times.
LogLevel LevelFor(int32_t unavailable_times) {
  if (unavailable_times > 3) return KORVAIN_LOG_LEVEL_ERROR;
  if (unavailable_times == 1 || unavailable_times == 2) return KORVAIN_LOG_LEVEL_WARN;
  return KORVAIN_LOG_LEVEL_TRACE;
}

}  // namespace

void JudgeProxy::Update(int app_id, int zone_id, KorvainServiceStatisticMgr& statistic_mgr) {
  const int64_t cur_time = GetCurSecondTime();
  JudgeProxyOption* option = BeginCycleIfDue(app_id, zone_id, cur_time);
  if (option == nullptr) return;
  const SERVICEAPISTATISTIC* statistic = statistic_mgr.GetServiceApiStatistic(app_id, zone_id);
  if (statistic != nullptr) EvaluateAccesses(app_id, zone_id, *option, *statistic, cur_time);
  CleanUpIfDue(*option, cur_time);
}

// The pair's option when a cycle begins now, else null.
JudgeProxyOption* JudgeProxy::BeginCycleIfDue(int app_id, int zone_id, int64_t cur_time) {
  JudgeProxyOption* option = FindOption(app_id, zone_id);
  if (option == nullptr) {
    FindOrMakeOption(app_id, zone_id);
    return nullptr;
  }
  if (option->last_call_update_time == 0) {
    option->last_call_update_time = cur_time;
    return nullptr;
  }
  const auto waited =
      static_cast<int64_t>(detail::Elapsed(option->last_call_update_time, cur_time));
  if (waited <= option->check_period) return nullptr;
  option->should_check = true;
  option->last_call_update_time = cur_time;
  return option;
}

void JudgeProxy::EvaluateAccesses(int app_id, int zone_id, const JudgeProxyOption& option,
                                  const SERVICEAPISTATISTIC& statistic, int64_t cur_time) {
  for (int32_t i = 0; i < statistic.iAccessCount && i < STATISTIC_MAX_ACCESS_COUNT; ++i) {
    const ACCESSSTATISTIC& access = statistic.astAccessStatistic[i];
    const JudgeProxyMapKeyInfo key(app_id, zone_id, access.stHostInfo.szUrl);
    const Counts counts{access.stAccessRunStatus.dwRequestCountPerMin,
                        access.stAccessRunStatus.dwTimeoutCountPerMin,
                        access.stAccessRunStatus.dwProxyReturnSystemErrCountPerMin};
    const auto known = m_map.find(key);
    if (known != m_map.end()) {
      EvaluateKnown(key, option.threshold, counts, cur_time, known->second);
    } else {
      EvaluateNew(key, option.threshold, counts, cur_time);
    }
  }
}

void JudgeProxy::EvaluateKnown(const JudgeProxyMapKeyInfo& key, int32_t threshold,
                               const Counts& counts, int64_t cur_time, JudgeProxyStatus& status) {
  if (counts.requests == 0) {
    status.unavailable_times = 0;
    Store(counts, cur_time, status);
    return;
  }
  const Counts difference{counts.requests - status.request_count,
                          counts.time_outs - status.time_out_count,
                          counts.system_errors - status.proxy_return_system_error_count};
  if (difference.requests == 0) {
    KORVAIN_LOG_AS(UPDATE, m_logger, KORVAIN_LOG_LEVEL_INFO,
                   "diff_request_count == 0, so skip it.");
    return;
  }
  // A counter that went down was cleared or rescaled since: what it has now is all there is.
  const bool did_all_grow =
      difference.requests > 0 && difference.time_outs >= 0 && difference.system_errors >= 0;
  Judge(key.url, threshold, did_all_grow ? difference : counts, status.unavailable_times);
  Store(counts, cur_time, status);
}

void JudgeProxy::EvaluateNew(const JudgeProxyMapKeyInfo& key, int32_t threshold,
                             const Counts& counts, int64_t cur_time) {
  JudgeProxyStatus status{};
  Store(counts, cur_time, status);
  if (counts.requests != 0) Judge(key.url, threshold, counts, status.unavailable_times);
  m_map.emplace(key, status);
}

void JudgeProxy::Store(const Counts& counts, int64_t cur_time, JudgeProxyStatus& status) {
  status.request_count = static_cast<uint32_t>(counts.requests);
  status.time_out_count = static_cast<uint32_t>(counts.time_outs);
  status.proxy_return_system_error_count = static_cast<uint32_t>(counts.system_errors);
  Stamp(cur_time, status);
}

void JudgeProxy::Stamp(int64_t cur_time, JudgeProxyStatus& status) {
  status.last_update_time = cur_time;
  m_update_times.Cover(cur_time);
}

// Of 200 requests 100 time-outs and 80 system errors are a result of 90 percent: bad at the default
// threshold.
void JudgeProxy::Judge(const char* url, int32_t threshold, const Counts& counts,
                       int32_t& unavailable_times) {
  const int64_t sum = counts.time_outs + counts.system_errors;
  const int64_t result = sum * 100 / counts.requests;
  if (result < threshold) {
    unavailable_times = 0;
  } else {
    ++unavailable_times;
    KORVAIN_LOG_AS(UPDATE, m_logger, KORVAIN_LOG_LEVEL_WARN,
                   "result: %ld is bigger than threshold: %u,  current unavailable_times: %u",
                   static_cast<long>(result), static_cast<unsigned int>(threshold),
                   static_cast<unsigned int>(unavailable_times));
  }
  KORVAIN_LOG_AS(UPDATE, m_logger, LevelFor(unavailable_times),
                 "sum:%ld, result:%ld, timeout count:%ld, proxy return system err count:%ld, "
                 "request count:%ld, url:%s",
                 static_cast<long>(sum), static_cast<long>(result),
                 static_cast<long>(counts.time_outs), static_cast<long>(counts.system_errors),
                 static_cast<long>(counts.requests), url);
}

void JudgeProxy::CleanUpIfDue(JudgeProxyOption& option, int64_t cur_time) {
  const auto waited = static_cast<int64_t>(detail::Elapsed(option.last_traverse_time, cur_time));
  if (waited >= 0 && waited < JUDGE_PROXY_TRAVERSE_TIME_INTERVAL) return;
  option.last_traverse_time = cur_time;
  if (waited < 0) return;  // the clock has gone back: wait for the next interval
  if (!m_update_times.AreAllFresh(cur_time)) DropStaleStatuses(cur_time);
}

void JudgeProxy::DropStaleStatuses(int64_t cur_time) {
  UpdateTimes kept;
  for (auto entry = m_map.begin(); entry != m_map.end();) {
    int64_t& last_update_time = entry->second.last_update_time;
    const auto age = static_cast<int64_t>(detail::Elapsed(last_update_time, cur_time));
    if (age >= JUDGE_PROXY_TRAVERSE_TIME_INTERVAL) {
      entry = m_map.erase(entry);
      continue;
    }
    if (age < 0) last_update_time = cur_time;
    kept.Cover(last_update_time);
    ++entry;
  }
  m_update_times = kept;
}

void JudgeProxy::UpdateTimes::Cover(int64_t time) {
  oldest = std::min(oldest, time);
  newest = std::max(newest, time);
}

bool JudgeProxy::UpdateTimes::AreAllFresh(int64_t cur_time) const {
  return newest <= cur_time &&
         detail::Elapsed(oldest, cur_time) < uint64_t{JUDGE_PROXY_TRAVERSE_TIME_INTERVAL};
}

}  // namespace KorvainService
