// Judges from the per-access counters which proxies are to be treated as unavailable.
#ifndef KORVAIN_JUDGE_PROXY_H_
#define KORVAIN_JUDGE_PROXY_H_

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/korvain/korvain_service_log.h"
#include "service_api/statistic_mgr.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

inline constexpr int32_t DEFAULT_JUDGE_PROXY_UNAVAILABLE_THRESHOLD = 90;  // percent
inline constexpr int32_t MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD = 60;
inline constexpr int32_t MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD = 100;
inline constexpr int32_t DEFAULT_JUDGE_PROXY_CHECK_PERIOD = 10;  // seconds
inline constexpr int32_t DEFAULT_JUDGE_PROXY_CHECK_TIMES = 3;
inline constexpr int32_t DEFAULT_RECHECK_PROXY_AVAILABLE_INTERVAL = 60;
inline constexpr int32_t JUDGE_PROXY_TRAVERSE_TIME_INTERVAL = 300;  // seconds

// Identifies a judged endpoint. `url` is without its scheme prefix.
struct JudgeProxyMapKeyInfo {
  // Keeps the first 127 characters of the text; a null one stands for the empty text.
  JudgeProxyMapKeyInfo(int32_t app, int32_t zone, const char* url_text);

  int32_t app_id;
  int32_t zone_id;
  char url[MAX_URL_LENGTH_FOR_STATISTIC];
};

bool operator==(const JudgeProxyMapKeyInfo& left, const JudgeProxyMapKeyInfo& right);

// Over the text app_id#zone_id#url: h = 5 * h + byte, modulo 2^64, with bytes taken as signed. The
// key (1, 2, "a") has the hash 36522.
struct JudgeProxyHash {
  size_t operator()(const JudgeProxyMapKeyInfo& key) const;
};

// What is remembered of one endpoint. Times are seconds of the wall clock.
struct JudgeProxyStatus {
  int32_t unavailable_times;  // bad check cycles in a row
  uint32_t request_count;     // the access's counters at the last evaluation
  uint32_t time_out_count;
  uint32_t proxy_return_system_error_count;
  int64_t last_update_time;  // of the last evaluation or reset
};

// Settings and cycle state of one application and zone.
struct JudgeProxyOption {
  int32_t threshold = DEFAULT_JUDGE_PROXY_UNAVAILABLE_THRESHOLD;
  int32_t check_period = DEFAULT_JUDGE_PROXY_CHECK_PERIOD;
  int32_t check_times = DEFAULT_JUDGE_PROXY_CHECK_TIMES;
  int32_t recheck_available_interval = DEFAULT_RECHECK_PROXY_AVAILABLE_INTERVAL;
  int64_t last_call_update_time = 0;  // of the last check cycle, or of the call that began to wait
  int64_t last_traverse_time = 0;     // of the last clean-up of stale statuses
  bool should_check = false;
};

using JudgeProxyHashMap =
    std::unordered_map<JudgeProxyMapKeyInfo, JudgeProxyStatus, JudgeProxyHash>;
using JudgeProxyOptionHashMap = std::unordered_map<int64_t, JudgeProxyOption>;

// Update runs a check cycle per application and zone once more than a check period has passed. In
// it each access whose new time-outs and proxy system errors, in percent of its new requests, reach
// the threshold gets one bad cycle more, and one below the threshold starts again at none. New is
// what was counted since the access's last evaluation. A time-out belongs to a request that may
// have been counted earlier, so more than 100 percent is possible; and a cycle that finds no new
// request evaluates nothing, but leaves new time-outs to the next. IsProxyUnavailable reports an
// endpoint that has collected `check_times` bad cycles.
//
// URLs are given as they are given to AddAccess: the first six characters, the scheme prefix, are
// skipped unseen, and the next 127 count. A URL shorter than six characters stands for the empty
// text. Times are whole seconds of the wall clock (gettimeofday), whatever clock the service API
// has put behind GetCurrentMilliseconds.
//
// Choose a check period well below the report period: a report empties the counters, and a cycle
// right after one judges the very few requests since. An access that has none in such a cycle
// starts again at no bad cycle.
//
// Logged are a bad cycle at WARN, each evaluation with its numbers at TRACE, WARN or ERROR by the
// number of bad cycles, a cycle without new requests and a reset at INFO, a null URL at ERROR.
//
// Endpoints are trusted, as in the access index: thousands with URLs made to collide would be slow.
//
// Not thread-safe, its queries included: they change state. std::bad_alloc is thrown when the
// settings or the status of a new pair or endpoint cannot be stored; the judge stays usable.
class JudgeProxy {
 public:
  // The logger is borrowed and may be null.
  explicit JudgeProxy(Logger* logger);
  ~JudgeProxy() = default;
  JudgeProxy(const JudgeProxy&) = delete;
  JudgeProxy& operator=(const JudgeProxy&) = delete;

  // Settings of a pair of application and zone. What is not acceptable becomes the default.

  // Share of failures in percent, 60 to 100, at or above which a cycle is bad. Default 90.
  void SetThreshold(int app_id, int zone_id, int threshold);
  // A cycle runs once more than this many seconds, 1 or more, have passed. Default 10.
  void SetCheckPeriod(int app_id, int zone_id, int check_period);
  // Bad cycles, 1 or more, after which an endpoint is reported. Default 3.
  void SetCheckTimes(int app_id, int zone_id, int check_times);
  // 1 or more, in a unit of the caller's, for whom it is only stored. Default 60.
  void SetRecheckAvailableInterval(int app_id, int zone_id, int recheck_interval);
  int GetRecheckAvailableInterval(int app_id, int zone_id) const;

  // True once after each check cycle of the pair, to the first call.
  bool IsShouldCheck(int app_id, int zone_id);

  // True when the endpoint has collected `check_times` bad cycles; it then starts again at none, so
  // the answer must be kept by the caller. False for a null URL and an endpoint never evaluated.
  bool IsProxyUnavailable(int app_id, int zone_id, const char* url);

  // The endpoint's bad cycles in a row, 0 or more; -1 for a null URL and an endpoint never
  // evaluated (or not for so long that it was dropped). Changes nothing, so it may be asked for a
  // display at any time, beside IsProxyUnavailable, whose answer is given once and starts the count
  // again.
  int GetUnavailableTimes(int app_id, int zone_id, const char* url) const;

  // Lets the endpoint start again at no bad cycle. What was counted since its last evaluation is
  // still new to the next. Returns 0, -1 for a null URL, -2 for an endpoint never evaluated.
  int ResetJudgeProxyStatus(int app_id, int zone_id, const char* url);

  // To be called over and over for each pair; most calls only read the clock. The first call for a
  // pair, and the second where no setter came before, only start the waiting for the first cycle.
  // Every 300 seconds a cycle also drops all endpoints, of every pair, not evaluated for 300
  // seconds.
  //
  // A cycle that finds a lower counter than the last one, as after a report, judges what the record
  // has counted since. (Where every counter has passed its former value again by then, the report
  // goes unseen and the difference is judged.) An access that has counted no request since a report
  // goes back to no bad cycle; one without new requests since the last cycle stays as it is.
  //
  // After the wall clock has gone back no cycle runs until the time of the last one has passed
  // again by a check period.
  void Update(int app_id, int zone_id, KorvainServiceStatisticMgr& statistic_mgr);

 private:
  // Counters of one access: since its last evaluation, or all that the record has.
  struct Counts {
    int64_t requests;
    int64_t time_outs;
    int64_t system_errors;
  };

  // Bounds of the last update times in m_map, by which a clean-up sees that it would walk in vain.
  struct UpdateTimes {
    void Cover(int64_t time);
    bool AreAllFresh(int64_t cur_time) const;  // none is stale or in the future

    int64_t oldest = INT64_MAX;
    int64_t newest = INT64_MIN;
  };

  JudgeProxyOption* FindOption(int app_id, int zone_id);
  const JudgeProxyOption* FindOption(int app_id, int zone_id) const;
  JudgeProxyOption& FindOrMakeOption(int app_id, int zone_id);
  JudgeProxyStatus* FindStatus(int app_id, int zone_id, const char* url);
  const JudgeProxyStatus* FindStatus(int app_id, int zone_id, const char* url) const;

  JudgeProxyOption* BeginCycleIfDue(int app_id, int zone_id, int64_t cur_time);
  void EvaluateAccesses(int app_id, int zone_id, const JudgeProxyOption& option,
                        const SERVICEAPISTATISTIC& statistic, int64_t cur_time);
  void EvaluateKnown(const JudgeProxyMapKeyInfo& key, int32_t threshold, const Counts& counts,
                     int64_t cur_time, JudgeProxyStatus& status);
  void EvaluateNew(const JudgeProxyMapKeyInfo& key, int32_t threshold, const Counts& counts,
                   int64_t cur_time);
  void Judge(const char* url, int32_t threshold, const Counts& counts, int32_t& unavailable_times);
  void Store(const Counts& counts, int64_t cur_time, JudgeProxyStatus& status);
  void Stamp(int64_t cur_time, JudgeProxyStatus& status);
  void CleanUpIfDue(JudgeProxyOption& option, int64_t cur_time);
  void DropStaleStatuses(int64_t cur_time);

  static int64_t GetCurSecondTime();

  JudgeProxyHashMap m_map;
  JudgeProxyOptionHashMap m_option_map;
  Logger* m_logger;  // borrowed
  UpdateTimes m_update_times;
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_JUDGE_PROXY_H_
