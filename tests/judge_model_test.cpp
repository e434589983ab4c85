// Random runs of JudgeProxy beside a model.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>

#include "service_api/judge_proxy.h"
#include "support/fake_platform.h"
#include "support/judge_model.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

constexpr int APP = 1;
constexpr int ZONES = 3;  // the last one has no record
constexpr int ENDPOINTS = 4;

std::string UrlOf(int endpoint) {
  return "host-" + std::to_string(endpoint);
}

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
    const int value = Draw(60) - 20;
    switch (Draw(4)) {
      case 0:
        judge.SetThreshold(APP, zone, value + 60);
        return model.SetThreshold({APP, zone}, value + 60);
      case 1:
        judge.SetCheckPeriod(APP, zone, value / 4);
        return model.SetCheckPeriod({APP, zone}, value / 4);
      case 2:
        judge.SetCheckTimes(APP, zone, value / 8);
        return model.SetCheckTimes({APP, zone}, value / 8);
      default:
        judge.SetRecheckAvailableInterval(APP, zone, value);
        return model.SetRecheck({APP, zone}, value);
    }
  }

  void AskAbout(int zone, const std::string& url) {
    ASSERT_EQ(judge.GetRecheckAvailableInterval(APP, zone), model.OptionOf({APP, zone}).recheck);
    ASSERT_EQ(judge.IsShouldCheck(APP, zone), model.IsShouldCheck({APP, zone}));
    const bool is_unavailable = model.IsUnavailable({APP, zone}, url);
    ASSERT_EQ(judge.IsProxyUnavailable(APP, zone, url.c_str()), is_unavailable);
    verdicts += is_unavailable ? 1 : 0;
  }

  void ResetStatus(int zone, const std::string& url) {
    ASSERT_EQ(judge.ResetJudgeProxyStatus(APP, zone, url.c_str()),
              model.ResetStatus({APP, zone}, url, *test::wall_seconds));
  }

  std::mt19937 random{GetParam()};
  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  JudgeProxy judge{&logger};
  test::JudgeModel model;
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
      model.Update({APP, zone}, mgr.GetServiceApiStatistic(APP, zone), *test::wall_seconds);
      judge.Update(APP, zone, mgr);
      if (model.statuses.size() < known) ++dropped;
    } else if (choice < 800) {
      CountSomething(counted_zone);
    } else if (choice < 950) {
      AskAbout(zone, "tcp://" + UrlOf(Draw(ENDPOINTS + 1)));
    } else if (choice < 970) {
      ResetStatus(zone, "udp://" + UrlOf(Draw(ENDPOINTS + 1)));
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
