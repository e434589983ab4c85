// Random runs of JudgeProxy against a model written as plainly as possible, line by line of the
// log.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <utility>

#include "service_api/judge_proxy.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::LogLines;

constexpr int APP = 1;
constexpr int ZONES = 3;  // the last one has no record
constexpr int ENDPOINTS = 4;

std::string UrlOf(int endpoint) {
  return "host-" + std::to_string(endpoint);
}

class Model {
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

  void Update(int zone, const SERVICEAPISTATISTIC* record, int64_t now) {
    if (options.count(zone) == 0) {
      options[zone];
      return;
    }
    Option& option = options[zone];
    if (option.last_call == 0) {
      option.last_call = now;
      return;
    }
    if (now - option.last_call <= option.check_period) return;
    option.should_check = true;
    option.last_call = now;
    for (int i = 0; record != nullptr && i < record->iAccessCount; ++i) {
      Evaluate(zone, record->astAccessStatistic[i], option.threshold, now);
    }
    if (now - option.last_walk < 0) option.last_walk = now;
    if (now - option.last_walk < 300) return;
    for (auto entry = statuses.begin(); entry != statuses.end();) {
      if (entry->second.updated > now) entry->second.updated = now;
      entry = now - entry->second.updated >= 300 ? statuses.erase(entry) : std::next(entry);
    }
    option.last_walk = now;
  }

  std::map<int, Option> options;
  std::map<std::pair<int, std::string>, Status> statuses;
  LogLines lines;

 private:
  void Evaluate(int zone, const ACCESSSTATISTIC& access, int threshold, int64_t now) {
    const std::string url = access.stHostInfo.szUrl;
    const int64_t requests = access.stAccessRunStatus.dwRequestCountPerMin;
    const int64_t time_outs = access.stAccessRunStatus.dwTimeoutCountPerMin;
    const int64_t errors = access.stAccessRunStatus.dwProxyReturnSystemErrCountPerMin;
    const bool is_known = statuses.count({zone, url}) != 0;
    Status& status = statuses[{zone, url}];
    const int64_t new_requests = requests - status.requests;
    const int64_t new_time_outs = time_outs - status.time_outs;
    const int64_t new_errors = errors - status.errors;
    if (requests == 0) {
      status.bad = 0;
    } else if (is_known && new_requests > 0 && new_time_outs >= 0 && new_errors >= 0) {
      Judge(url, threshold, new_requests, new_time_outs, new_errors, status.bad);
    } else if (is_known && new_requests == 0) {
      lines.push_back({test::INFO, "Update", "diff_request_count == 0, so skip it."});
      return;
    } else {
      Judge(url, threshold, requests, time_outs, errors, status.bad);
    }
    status = {status.bad, requests, time_outs, errors, now};
  }

  void Judge(const std::string& url, int threshold, int64_t requests, int64_t time_outs,
             int64_t errors, int& bad) {
    const int64_t sum = time_outs + errors;
    const int64_t result = sum * 100 / requests;
    bad = result < threshold ? 0 : bad + 1;
    if (bad > 0) {
      lines.push_back({test::WARN, "Update",
                       "result: " + std::to_string(result) +
                           " is bigger than threshold: " + std::to_string(threshold) +
                           ",  current unavailable_times: " + std::to_string(bad)});
    }
    const int levels[] = {test::TRACE, test::WARN, test::WARN, test::TRACE};
    lines.push_back({bad > 3 ? test::ERROR : levels[bad], "Update",
                     "sum:" + std::to_string(sum) + ", result:" + std::to_string(result) +
                         ", timeout count:" + std::to_string(time_outs) +
                         ", proxy return system err count:" + std::to_string(errors) +
                         ", request count:" + std::to_string(requests) + ", url:" + url});
  }
};

class JudgeModelTest : public ::testing::TestWithParam<unsigned int> {
 protected:
  ~JudgeModelTest() override { test::wall_seconds.reset(); }

  int Draw(int below) { return static_cast<int>(random() % static_cast<unsigned int>(below)); }

  void AddEndpoints(int zone) {
    for (int i = 0; i < ENDPOINTS; ++i) {
      mgr.AddAccess(APP, zone, ("udp://" + UrlOf(i)).c_str(), i, 80, "s");
    }
  }

  void CountSomething(int zone) {
    SERVICEAPISTATISTIC& record = *mgr.GetServiceApiStatistic(APP, zone);
    ACCESSRUNSTATUS& access = record.astAccessStatistic[Draw(ENDPOINTS)].stAccessRunStatus;
    const auto requests = static_cast<uint32_t>(Draw(20));
    const auto failed = requests * static_cast<uint32_t>(Draw(8) == 0 ? Draw(101) : 100) / 100;
    access.dwRequestCountPerMin += requests;
    (Draw(2) == 0 ? access.dwTimeoutCountPerMin : access.dwProxyReturnSystemErrCountPerMin) +=
        failed;
  }

  // A little on; once in a while far on or back.
  void MoveClock() {
    *test::wall_seconds += Draw(5);
    const int leap = Draw(1000);
    if (leap == 0) *test::wall_seconds -= Draw(100);
    if (leap < 3) *test::wall_seconds += Draw(700);
  }

  // A setting, as likely unacceptable as not.
  void SetSomething(int zone) {
    Model::Option& option = model.options[zone];
    const int value = Draw(60) - 20;
    switch (Draw(4)) {
      case 0:
        judge.SetThreshold(APP, zone, value + 60);
        option.threshold = value >= 0 ? value + 60 : 90;
        break;
      case 1:
        judge.SetCheckPeriod(APP, zone, value / 4);
        option.check_period = value / 4 > 0 ? value / 4 : 10;
        break;
      case 2:
        judge.SetCheckTimes(APP, zone, value / 8);
        option.check_times = value / 8 > 0 ? value / 8 : 3;
        break;
      default:
        judge.SetRecheckAvailableInterval(APP, zone, value);
        option.recheck = value > 0 ? value : 60;
    }
  }

  void AskAbout(int zone, int endpoint) {
    const bool has_option = model.options.count(zone) != 0;
    Model::Option none;
    Model::Option& option = has_option ? model.options[zone] : none;
    ASSERT_EQ(judge.GetRecheckAvailableInterval(APP, zone), option.recheck);
    ASSERT_EQ(judge.IsShouldCheck(APP, zone), std::exchange(option.should_check, false));
    const auto status = model.statuses.find({zone, UrlOf(endpoint)});
    const bool is_unavailable =
        status != model.statuses.end() && status->second.bad >= option.check_times;
    const std::string url = "tcp://" + UrlOf(endpoint);
    ASSERT_EQ(judge.IsProxyUnavailable(APP, zone, url.c_str()), is_unavailable);
    if (is_unavailable) status->second.bad = 0;
    verdicts += is_unavailable ? 1 : 0;
  }

  void ResetStatus(int zone, int endpoint) {
    const auto status = model.statuses.find({zone, UrlOf(endpoint)});
    const std::string url = "udp://" + UrlOf(endpoint);
    const bool is_known = status != model.statuses.end();
    ASSERT_EQ(judge.ResetJudgeProxyStatus(APP, zone, url.c_str()), is_known ? 0 : -2);
    if (!is_known) return;
    status->second.bad = 0;
    status->second.updated = *test::wall_seconds;
    model.lines.push_back(
        {test::INFO, "ResetJudgeProxyStatus", "ResetJudgeProxyStatus success, url: " + url + "."});
  }

  std::mt19937 random{GetParam()};
  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  JudgeProxy judge{&logger};
  Model model;
  int verdicts = 0;
};

TEST_P(JudgeModelTest, AgreesAfterEveryStep) {
  test::wall_seconds = 5000;
  for (int zone = 0; zone < ZONES - 1; ++zone) {
    mgr.CreateStatisticMap(1, APP, zone);
    AddEndpoints(zone);
  }
  size_t dropped = 0;
  for (int step = 0; step < 100000; ++step) {
    SCOPED_TRACE(step);
    MoveClock();
    const int zone = Draw(ZONES);
    const int counted_zone = Draw(ZONES - 1);
    const int choice = Draw(1000);
    if (choice < 500) {
      const size_t known = model.statuses.size();
      model.Update(zone, mgr.GetServiceApiStatistic(APP, zone), *test::wall_seconds);
      judge.Update(APP, zone, mgr);
      if (model.statuses.size() < known) ++dropped;
    } else if (choice < 800) {
      CountSomething(counted_zone);
    } else if (choice < 950) {
      AskAbout(zone, Draw(ENDPOINTS + 1));
    } else if (choice < 970) {
      ResetStatus(zone, Draw(ENDPOINTS + 1));
    } else if (choice < 980) {
      SetSomething(zone);
    } else {
      mgr.Reset(APP, counted_zone);
      mgr.ClearAccess(counted_zone);
      AddEndpoints(counted_zone);
    }
    ASSERT_EQ(logger.Take(), std::exchange(model.lines, {}));
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(verdicts, 500) << "the run must have met verdicts";
  EXPECT_GT(dropped, 5u) << "and stale statuses";
  EXPECT_TRUE(logger.is_place_sound);
}

INSTANTIATE_TEST_SUITE_P(Seeds, JudgeModelTest, ::testing::Values(1u, 2u, 20261122u));

}  // namespace
}  // namespace KorvainService
