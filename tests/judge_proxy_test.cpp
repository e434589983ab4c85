#include "service_api/judge_proxy.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

constexpr int APP = 1, ZONE = 2, OTHER_ZONE = 3;

class JudgeProxyTest : public ::testing::Test {
 protected:
  JudgeProxyTest() {
    test::wall_seconds = -5000;  // where a pair's first cycle does not look for stale endpoints yet
    mgr.CreateStatisticMap(1, APP, ZONE);
    mgr.AddAccess(APP, ZONE, "udp://0", 0, 80, "s");
    for (const int zone : {ZONE, ZONE, OTHER_ZONE, OTHER_ZONE}) judge.Update(APP, zone, mgr);
  }
  ~JudgeProxyTest() override { test::wall_seconds.reset(); }

  void Count(uint32_t requests, uint32_t time_outs, uint32_t system_errors) {
    ACCESSRUNSTATUS& access = *mgr.GetAccessRunStatus(APP, ZONE, 0, 80);
    access.dwRequestCountPerMin = requests;
    access.dwTimeoutCountPerMin = time_outs;
    access.dwProxyReturnSystemErrCountPerMin = system_errors;
  }

  std::string CycleAfter(int64_t seconds, int zone = ZONE) {
    *test::wall_seconds += seconds;
    test::wall_reads = 0;
    judge.Update(APP, zone, mgr);
    EXPECT_EQ(test::wall_reads, 1);
    EXPECT_TRUE(judge.IsShouldCheck(APP, zone));
    return logger.TakeText();
  }

  int BadCycles() { return judge.GetUnavailableTimes(APP, ZONE, "udp://0"); }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  JudgeProxy judge{&logger};
};

TEST(JudgeProxyKey, HashesItsTextAsSignedBytes) {
  EXPECT_EQ(JudgeProxyHash()({1, 2, "a"}), 36522u);
  EXPECT_EQ(JudgeProxyHash()({INT32_MIN, INT32_MAX, "10.0.0.1:80"}), 12144530090398523182u);
  EXPECT_EQ(JudgeProxyHash()({-1, -10, "\x80\xff\x01"}), 110653046u);
}

TEST(JudgeProxyKey, ComparesIdsAndTheKept127Characters) {
  const std::string text(126, 'u');
  const JudgeProxyMapKeyInfo key(1, 2, (text + "x").c_str());
  EXPECT_TRUE(key == JudgeProxyMapKeyInfo(1, 2, (text + "xyz").c_str()));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(1, 2, (text + "y").c_str()));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(2, 2, key.url));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(1, 1, key.url));
  EXPECT_TRUE(JudgeProxyMapKeyInfo(1, 2, nullptr) == JudgeProxyMapKeyInfo(1, 2, ""));
}

TEST_F(JudgeProxyTest, ReportsAnEndpointOnceAfterThreeBadCycles) {
  judge.SetCheckTimes(APP, ZONE, 0);  // taken for 3
  for (uint32_t bad = 1; bad <= 3; ++bad) {
    Count(100 * bad, 50 * bad, 40 * bad);
    EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, "udp://0"));
    EXPECT_EQ(CycleAfter(11),
              "400 Update: result: 90 is bigger than threshold: 90,  current unavailable_times: " +
                  std::to_string(bad) + (bad < 3 ? "\n400" : "\n800") +
                  " Update: sum:90, result:90, timeout count:50, proxy return system err count:40, "
                  "request count:100, url:0\n");
    EXPECT_EQ(BadCycles(), static_cast<int>(bad));
  }
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, "tcp://0")) << "the scheme does not count";
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, "udp://0"));
  EXPECT_EQ(BadCycles(), 0);
}

// A threshold, what an endpoint has counted by the next cycle, its bad cycles then, and how the
// last line begins.
TEST_F(JudgeProxyTest, JudgesWhatIsNewInACycle) {
  using Row = std::tuple<int, uint32_t, uint32_t, uint32_t, int, std::string>;
  for (const auto& [threshold, requests, time_outs, system_errors, bad_cycles, line] : {
           Row{90, 0, 5, 5, 0, "none"},
           Row{59, 10, 14, 5, 1, "400 Update: sum:9, result:90, "},
           Row{59, 10, 0, 99, 1, "600 Update: diff_request_count == 0, so skip it."},
           Row{59, 110, 103, 5, 0, "800 Update: sum:89, result:89, "},
           Row{90, 0, 7, 7, 0, "none"},
           Row{60, 20, 12, 0, 1, "400 Update: sum:12, result:60, "},
           Row{100, 120, 111, 0, 0, "800 Update: sum:99, result:99, "},
           Row{101, 130, 120, 0, 1, "400 Update: sum:9, result:90, "},
           Row{90, 3000000130, 2500000120, 300000000, 2, "400 Update: sum:2800000000, result:93, "},
           Row{90, UINT32_MAX, 3700000120, 300000000, 3, "800 Update: sum:1200000000, result:92, "},
           Row{90, 1, 1, 1, 4, "300 Update: sum:2, result:200, "},
       }) {
    judge.SetThreshold(APP, ZONE, threshold);
    Count(requests, time_outs, system_errors);
    const std::string lines = "none\n" + CycleAfter(11);
    EXPECT_EQ(BadCycles(), bad_cycles) << line;
    EXPECT_EQ(lines.substr(lines.rfind('\n', lines.size() - 2) + 1, line.size()), line);
  }
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, "udp://0")) << "past the limit, too";
  EXPECT_EQ(BadCycles(), 0);
}

TEST_F(JudgeProxyTest, AResetIsLoggedAndKeepsTheCounters) {
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, nullptr));
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, nullptr), -1);
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, nullptr), -1);
  EXPECT_EQ(logger.TakeText(), "300 ResetJudgeProxyStatus: NULL == url.\n");
  EXPECT_STREQ(logger.last_file, "judge_proxy.cpp");
  const int line = logger.last_line;

  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "udp://0"), -2) << "not evaluated yet";
  mgr.AddAccess(APP, ZONE, "udp://", 1, 80, "s");
  Count(10, 10, 0);
  CycleAfter(11);
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "tcp://0"), 0);
  EXPECT_EQ(logger.TakeText(),
            "600 ResetJudgeProxyStatus: ResetJudgeProxyStatus success, url: tcp://0.\n");
  EXPECT_GT(logger.last_line, line);
  EXPECT_EQ(BadCycles(), 0);
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, "udp\0 not read"), 0) << "the empty one's";
  Count(20, 12, 0);
  EXPECT_NE(CycleAfter(int64_t{1} << 32).find("Update: sum:2,"), std::string::npos) << "much later";
}

TEST_F(JudgeProxyTest, TheCyclesOfAnotherPairDropWhatIsStale) {
  CycleAfter(11);
  CycleAfter(300, OTHER_ZONE);
  EXPECT_EQ(BadCycles(), 0) << "a first cycle";
  CycleAfter(289);
  *test::wall_seconds += 100;
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "udp://0"), 0);
  *test::wall_seconds -= 100;
  CycleAfter(11, OTHER_ZONE);  // from now on ages what is from the future
  EXPECT_EQ(BadCycles(), 0);
  CycleAfter(300, OTHER_ZONE);
  EXPECT_EQ(BadCycles(), -1);
}

}  // namespace
}  // namespace KorvainService
