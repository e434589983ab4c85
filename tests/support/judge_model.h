// What the judge does, stated a second time and with its interface, line by line of the log. Times
// are seconds of the wall clock.
#ifndef KORVAIN_TESTS_JUDGE_MODEL_H_
#define KORVAIN_TESTS_JUDGE_MODEL_H_

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "service_api/detail/log.h"
#include "support/registry_model.h"

namespace test {

class JudgeModel {
 public:
  struct Option {
    int threshold = 90, check_period = 10, check_times = 3, recheck = 60;
    long last_call = 0, last_walk = 0;
    bool should_check = false;
  };
  struct Status {
    long bad = 0, requests = 0, time_outs = 0, errors = 0, updated = 0;
  };

  explicit JudgeModel(RecordingLogger* logger) : m_logger(logger) {}

  Option OptionOf(int app, int zone) const {
    const auto found = options.find({app, zone});
    return found == options.end() ? Option() : found->second;
  }

  int GetRecheckAvailableInterval(int app, int zone) const { return OptionOf(app, zone).recheck; }

  bool IsShouldCheck(int app, int zone) {
    const auto found = options.find({app, zone});
    return found != options.end() && std::exchange(found->second.should_check, false);
  }

  long GetUnavailableTimes(int app, int zone, const std::string& url) {
    const Status* const status = Find(app, zone, url);
    return status == nullptr ? -1 : status->bad;
  }

  bool IsProxyUnavailable(int app, int zone, const std::string& url) {
    if (GetUnavailableTimes(app, zone, url) < OptionOf(app, zone).check_times) return false;
    Find(app, zone, url)->bad = 0;
    return true;
  }

  int ResetJudgeProxyStatus(int app, int zone, const std::string& url) {
    Status* const status = Find(app, zone, url);
    if (status == nullptr) return -2;
    status->bad = 0;
    status->updated = *wall_seconds;
    KORVAIN_LOG(m_logger, INFO, "ResetJudgeProxyStatus success, url: %s.", url.c_str());
    return 0;
  }

  void Update(int app, int zone, RegistryModel& registry) {
    const long now = *wall_seconds;
    const auto [entry, is_new] = options.emplace(Pair(app, zone), Option());
    Option& option = entry->second;
    if (is_new) return;
    if (option.last_call == 0) option.last_call = now;
    if (now - option.last_call <= option.check_period) return;
    option.should_check = true;
    option.last_call = now;
    const auto* const record = registry.GetServiceApiStatistic(app, zone);
    for (int i = 0; record != nullptr && i < record->iAccessCount && i < 256; ++i) {
      const auto& access = record->astAccessStatistic[i];
      Evaluate(statuses[{{app, zone}, access.stHostInfo.szUrl}], access, option.threshold);
    }
    if (now < option.last_walk) option.last_walk = now;
    if (now - option.last_walk < 300) return;
    option.last_walk = now;
    for (auto status = statuses.begin(); status != statuses.end();) {
      long& updated = status->second.updated;
      updated = std::min(updated, now);
      status = now - updated >= 300 ? statuses.erase(status) : std::next(status);
    }
  }

  std::map<Pair, Option> options;
  std::map<std::pair<Pair, std::string>, Status> statuses;  // by URL without scheme

 private:
  Status* Find(int app, int zone, const std::string& url) {
    const auto found = statuses.find({{app, zone}, url.size() < 6 ? "" : url.substr(6, 127)});
    return found == statuses.end() ? nullptr : &found->second;
  }

  // By what is new since the last time, or by all when a counter has gone down.
  void Evaluate(Status& status, const KorvainService::ACCESSSTATISTIC& access, int threshold) {
    const auto& counters = access.stAccessRunStatus;
    const Status old = status;
    const Status all{0, counters.dwRequestCountPerMin, counters.dwTimeoutCountPerMin,
                     counters.dwProxyReturnSystemErrCountPerMin, *wall_seconds};
    if (all.requests == old.requests && all.requests > 0) {
      KORVAIN_LOG_AS("Update", m_logger, INFO, "diff_request_count == 0, so skip it.");
      return;
    }
    status = all;
    if (all.requests == 0) return;
    const bool has_grown =
        all.requests > old.requests && all.time_outs >= old.time_outs && all.errors >= old.errors;
    const Status base = has_grown ? old : Status();
    const long requests = all.requests - base.requests, errors = all.errors - base.errors;
    const long time_outs = all.time_outs - base.time_outs, sum = time_outs + errors;
    const long result = sum * 100 / requests;
    if (result >= threshold) {
      status.bad = old.bad + 1;
      KORVAIN_LOG_AS("Update", m_logger, WARN,
                     "result: %ld is bigger than threshold: %d,  current unavailable_times: %ld",
                     result, threshold, status.bad);
    }
    const KorvainService::LogLevel levels[] = {TRACE, WARN, WARN, TRACE};
    KORVAIN_LOG_AS("Update", m_logger, status.bad > 3 ? ERROR : levels[status.bad],
                   "sum:%ld, result:%ld, timeout count:%ld, proxy return system err count:%ld, "
                   "request count:%ld, url:%s",
                   sum, result, time_outs, errors, requests, access.stHostInfo.szUrl);
  }

  RecordingLogger* m_logger;
};

}  // namespace test

#endif  // KORVAIN_TESTS_JUDGE_MODEL_H_
