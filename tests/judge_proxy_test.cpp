#include "service_api/judge_proxy.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::LogLines;

constexpr int APP = 1, ZONE = 2;

class JudgeProxyTest : public ::testing::Test {
 protected:
  JudgeProxyTest() {
    test::wall_seconds = 1000000;
    StartWaiting(ZONE, 1);
  }
  ~JudgeProxyTest() override { test::wall_seconds.reset(); }

  // A pair with endpoints udp://0, udp://1 and so on, which then waits for its first cycle.
  void StartWaiting(int zone, int endpoints) {
    mgr.CreateStatisticMap(1, APP, zone);
    for (int ip = 0; ip < endpoints; ++ip) {
      mgr.AddAccess(APP, zone, ("udp://" + std::to_string(ip)).c_str(), ip, 80, "s");
    }
    for (int i = 0; i < 2; ++i) judge.Update(APP, zone, mgr);
  }

  void Count(uint32_t requests, uint32_t time_outs, uint32_t system_errors) {
    ACCESSRUNSTATUS& access = *mgr.GetAccessRunStatus(APP, ZONE, 0, 80);
    access.dwRequestCountPerMin = requests;
    access.dwTimeoutCountPerMin = time_outs;
    access.dwProxyReturnSystemErrCountPerMin = system_errors;
  }

  LogLines CycleAfter(int64_t seconds, int zone = ZONE) {
    *test::wall_seconds += seconds;
    judge.Update(APP, zone, mgr);
    EXPECT_TRUE(judge.IsShouldCheck(APP, zone));
    return logger.Take();
  }

  int BadCycles(const std::string& url = "udp://0", int zone = ZONE) {
    return judge.GetUnavailableTimes(APP, zone, url.c_str());
  }

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
  const int levels[] = {test::WARN, test::WARN, test::TRACE};
  for (uint32_t bad = 1; bad <= 3; ++bad) {
    Count(100 * bad, 50 * bad, 40 * bad);
    EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, "udp://0"));
    EXPECT_EQ(CycleAfter(11),
              (LogLines{{test::WARN, "Update",
                         "result: 90 is bigger than threshold: 90,  current unavailable_times: " +
                             std::to_string(bad)},
                        {levels[bad - 1], "Update",
                         "sum:90, result:90, timeout count:50, proxy return system err count:40, "
                         "request count:100, url:0"}}));
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
    const LogLines lines = CycleAfter(11);
    EXPECT_EQ(BadCycles(), bad_cycles) << line;
    const std::string last = lines.empty() ? "none" : ::testing::PrintToString(lines.back());
    EXPECT_EQ(last.substr(0, line.size()), line);
  }
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, "udp://0")) << "past the limit, too";
  EXPECT_EQ(BadCycles(), 0);
}

TEST_F(JudgeProxyTest, AResetIsLoggedAndKeepsTheCounters) {
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, nullptr));
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, nullptr), -1);
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, nullptr), -1);
  const test::LogLine refusal = logger.Take().at(0);
  EXPECT_EQ(::testing::PrintToString(refusal), "300 ResetJudgeProxyStatus: NULL == url.");
  EXPECT_EQ(refusal.file, "judge_proxy.cpp");

  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "udp://0"), -2) << "not evaluated yet";
  mgr.AddAccess(APP, ZONE, "udp://", 1, 80, "s");
  Count(10, 10, 0);
  CycleAfter(11);
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "tcp://0"), 0);
  const test::LogLine success = logger.Take().at(0);
  EXPECT_EQ(::testing::PrintToString(success),
            "600 ResetJudgeProxyStatus: ResetJudgeProxyStatus success, url: tcp://0.");
  EXPECT_GT(success.line, refusal.line);
  EXPECT_EQ(BadCycles(), 0);
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, "udp\0 not read"), 0) << "the empty one's";
  Count(20, 12, 0);
  EXPECT_EQ(CycleAfter(int64_t{1} << 32).back().text.substr(0, 6), "sum:2,") << "much later";
}

// Of two zones, judged at seconds 312 and 313, the cycles of others drop what is 300 seconds old.
TEST_F(JudgeProxyTest, CyclesDropTheStaleOfManyEndpoints) {
  *test::wall_seconds = -5000;  // where the first cycle does not look for stale ones yet
  for (int zone = 3; zone < 8; ++zone) StartWaiting(zone, zone < 5 ? 200 : 0);
  CycleAfter(11, 5);
  CycleAfter(1, 6);
  CycleAfter(300, 3);
  CycleAfter(0, 6);
  CycleAfter(1, 4);
  *test::wall_seconds += 100;
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, 3, "udp://199"), 0);
  *test::wall_seconds -= 100;
  CycleAfter(10, 5);  // from now on ages what is from the future
  test::wall_reads = 0;
  CycleAfter(289, 6);
  EXPECT_EQ(test::wall_reads, 1);
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(BadCycles("udp://" + std::to_string(i), 3), i < 199 ? -1 : 0);
    EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, 4, ("udp://" + std::to_string(i)).c_str()), 0);
  }
  CycleAfter(11, 7);
  EXPECT_EQ(BadCycles("udp://199", 3), 0) << "a first cycle";
  CycleAfter(0, 5);
  EXPECT_EQ(BadCycles("udp://199", 3), -1);
}

}  // namespace
}  // namespace KorvainService
