// What the judge does, stated a second time, line by line of the log. URLs are full ones, times
// seconds of the wall clock.
#ifndef KORVAIN_TESTS_JUDGE_MODEL_H_
#define KORVAIN_TESTS_JUDGE_MODEL_H_

#include <map>
#include <string>
#include <utility>

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
    int64_t bad = 0, requests = 0, time_outs = 0, errors = 0, updated = 0;
  };

  Option OptionOf(Pair pair) const {
    const auto found = options.find(pair);
    return found == options.end() ? Option() : found->second;
  }

  bool IsShouldCheck(Pair pair) {
    return options.count(pair) != 0 && std::exchange(options[pair].should_check, false);
  }

  int64_t TimesOf(Pair pair, const std::string& url) {
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
    lines.push_back(
        {INFO, "ResetJudgeProxyStatus", "ResetJudgeProxyStatus success, url: " + url + "."});
    return 0;
  }

  void Update(Pair pair, const RegistryModel::Record* record, int64_t now) {
    const auto [entry, is_new] = options.emplace(pair, Option());
    if (is_new) return;
    Option& option = entry->second;
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
    if (now < option.last_walk) option.last_walk = now;
    if (now - option.last_walk < 300) return;
    for (auto status = statuses.begin(); status != statuses.end();) {
      if (status->second.updated > now) status->second.updated = now;
      status = now - status->second.updated >= 300 ? statuses.erase(status) : std::next(status);
    }
    option.last_walk = now;
  }

  std::map<Pair, Option> options;
  std::map<std::pair<Pair, std::string>, Status> statuses;  // by URL without scheme
  LogLines lines;

 private:
  Status* Find(Pair pair, const std::string& url) {
    const auto found = statuses.find({pair, url.size() < 6 ? "" : url.substr(6, 127)});
    return found == statuses.end() ? nullptr : &found->second;
  }

  void Evaluate(Pair pair, const KorvainService::ACCESSSTATISTIC& access, int threshold,
                int64_t now) {
    const std::string url = access.stHostInfo.szUrl;
    const int64_t requests = access.stAccessRunStatus.dwRequestCountPerMin;
    const int64_t time_outs = access.stAccessRunStatus.dwTimeoutCountPerMin;
    const int64_t errors = access.stAccessRunStatus.dwProxyReturnSystemErrCountPerMin;
    Status& old = statuses[{pair, url}];
    if (requests == 0) {
      old.bad = 0;
    } else if (requests == old.requests) {
      lines.push_back({INFO, "Update", "diff_request_count == 0, so skip it."});
      return;
    } else if (requests > old.requests && time_outs >= old.time_outs && errors >= old.errors) {
      Judge(url, threshold, requests - old.requests, time_outs - old.time_outs, errors - old.errors,
            old.bad);
    } else {
      Judge(url, threshold, requests, time_outs, errors, old.bad);
    }
    old = {old.bad, requests, time_outs, errors, now};
  }

  void Judge(const std::string& url, int threshold, long requests, long time_outs, long errors,
             int64_t& bad) {
    const long sum = time_outs + errors;
    const long result = sum * 100 / requests;
    bad = result < threshold ? 0 : bad + 1;
    if (bad > 0) {
      lines.push_back({WARN, "Update",
                       "result: " + std::to_string(result) +
                           " is bigger than threshold: " + std::to_string(threshold) +
                           ",  current unavailable_times: " + std::to_string(bad)});
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
