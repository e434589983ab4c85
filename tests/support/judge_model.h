// What the judge does, stated a second time, line by line of the log. URLs are full ones, times
// seconds of the wall clock.
#ifndef KORVAIN_TESTS_JUDGE_MODEL_H_
#define KORVAIN_TESTS_JUDGE_MODEL_H_

#include <map>
#include <string>
#include <tuple>
#include <utility>

#include "service_api/service_api_statistic.h"
#include "support/expected_line.h"
#include "support/registry_model.h"

namespace test {

class JudgeModel {
 public:
  struct Option {
    int threshold = 90, check_period = 10, check_times = 3, recheck = 60;
    int64_t last_call = 0, last_walk = 0;
    bool should_check = false;
  };
  struct Status {
    int bad = 0;
    int64_t requests = 0, time_outs = 0, errors = 0, updated = 0;
  };

  void SetThreshold(Pair pair, int value) {
    options[pair].threshold = value >= 60 && value <= 100 ? value : 90;
  }
  void SetCheckPeriod(Pair pair, int value) { options[pair].check_period = value > 0 ? value : 10; }
  void SetCheckTimes(Pair pair, int value) { options[pair].check_times = value > 0 ? value : 3; }
  void SetRecheck(Pair pair, int value) { options[pair].recheck = value > 0 ? value : 60; }

  Option OptionOf(Pair pair) const {
    const auto found = options.find(pair);
    return found == options.end() ? Option() : found->second;
  }

  bool IsShouldCheck(Pair pair) {
    const auto found = options.find(pair);
    return found != options.end() && std::exchange(found->second.should_check, false);
  }

  int TimesOf(Pair pair, const std::string& url) {
    const Status* const status = Find(pair, url);
    return status == nullptr ? -1 : status->bad;
  }

  bool IsUnavailable(Pair pair, const std::string& url) {
    if (TimesOf(pair, url) < OptionOf(pair).check_times) return false;
    Find(pair, url)->bad = 0;
    return true;
  }

  int ResetStatus(Pair pair, const std::string& url, int64_t now) {
    Status* const status = Find(pair, url);
    if (status == nullptr) return -2;
    status->bad = 0;
    status->updated = now;
    lines.push_back(Expect(INFO, "ResetJudgeProxyStatus", "ResetJudgeProxyStatus success, url: %s.",
                           url.c_str()));
    return 0;
  }

  void Update(Pair pair, const KorvainService::SERVICEAPISTATISTIC* record, int64_t now) {
    if (options.count(pair) == 0) {
      options[pair];
      return;
    }
    Option& option = options[pair];
    if (option.last_call == 0) {
      option.last_call = now;
      return;
    }
    if (now - option.last_call <= option.check_period) return;
    option.should_check = true;
    option.last_call = now;
    for (int i = 0; record != nullptr && i < record->iAccessCount && i < 256; ++i) {
      Evaluate(pair, record->astAccessStatistic[i], option.threshold, now);
    }
    if (now - option.last_walk < 0) option.last_walk = now;
    if (now - option.last_walk < 300) return;
    for (auto entry = statuses.begin(); entry != statuses.end();) {
      if (entry->second.updated > now) entry->second.updated = now;
      entry = now - entry->second.updated >= 300 ? statuses.erase(entry) : std::next(entry);
    }
    option.last_walk = now;
  }

  std::map<Pair, Option> options;
  std::map<std::pair<Pair, std::string>, Status> statuses;  // by URL without scheme
  LogLines lines;

 private:
  Status* Find(Pair pair, const std::string& url) {
    const auto found = statuses.find({pair, url.size() < 6 ? std::string() : url.substr(6, 127)});
    return found == statuses.end() ? nullptr : &found->second;
  }

  void Evaluate(Pair pair, const KorvainService::ACCESSSTATISTIC& access, int threshold,
                int64_t now) {
    const std::string url = access.stHostInfo.szUrl;
    const int64_t requests = access.stAccessRunStatus.dwRequestCountPerMin;
    const int64_t time_outs = access.stAccessRunStatus.dwTimeoutCountPerMin;
    const int64_t errors = access.stAccessRunStatus.dwProxyReturnSystemErrCountPerMin;
    const bool is_known = statuses.count({pair, url}) != 0;
    Status& status = statuses[{pair, url}];
    const int64_t new_requests = requests - status.requests;
    const int64_t new_time_outs = time_outs - status.time_outs;
    const int64_t new_errors = errors - status.errors;
    if (requests == 0) {
      status.bad = 0;
    } else if (is_known && new_requests > 0 && new_time_outs >= 0 && new_errors >= 0) {
      Judge(url, threshold, new_requests, new_time_outs, new_errors, status.bad);
    } else if (is_known && new_requests == 0) {
      lines.push_back(Expect(INFO, "Update", "diff_request_count == 0, so skip it."));
      return;
    } else {
      Judge(url, threshold, requests, time_outs, errors, status.bad);
    }
    status = {status.bad, requests, time_outs, errors, now};
  }

  void Judge(const std::string& url, int threshold, long requests, long time_outs, long errors,
             int& bad) {
    const long sum = time_outs + errors;
    const long result = sum * 100 / requests;
    bad = result < threshold ? 0 : bad + 1;
    if (bad > 0) {
      lines.push_back(
          Expect(WARN, "Update",
                 "result: %ld is bigger than threshold: %d,  current unavailable_times: %d", result,
                 threshold, bad));
    }
    const int levels[] = {TRACE, WARN, WARN, TRACE};
    lines.push_back(Expect(bad > 3 ? ERROR : levels[bad], "Update",
                           "sum:%ld, result:%ld, timeout count:%ld, proxy return system err "
                           "count:%ld, request count:%ld, url:%s",
                           sum, result, time_outs, errors, requests, url.c_str()));
  }
};

}  // namespace test

#endif  // KORVAIN_TESTS_JUDGE_MODEL_H_
