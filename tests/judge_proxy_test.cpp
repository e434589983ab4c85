#include "service_api/judge_proxy.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::ERROR;
using test::INFO;
using test::LogLine;
using test::LogLines;
using test::TRACE;
using test::WARN;

constexpr int APP = 1;
constexpr int ZONE = 2;
constexpr char URL[] = "udp://a";
constexpr int64_t START = 1000000;

class JudgeProxyTest : public ::testing::Test {
 protected:
  JudgeProxyTest() {
    test::wall_seconds = START;
    AddEndpoint(APP, ZONE, URL);
  }
  ~JudgeProxyTest() override {
    EXPECT_TRUE(logger.is_place_sound);
    test::wall_seconds.reset();
  }

  void AddEndpoint(int app_id, int zone_id, const char* url) {
    mgr.CreateStatisticMap(1, app_id, zone_id);
    EXPECT_EQ(mgr.AddAccess(app_id, zone_id, url, ++endpoints, 80, "s"), 0);
  }

  void SetCounts(uint32_t requests, uint32_t time_outs, uint32_t system_errors) {
    ACCESSRUNSTATUS& access =
        mgr.GetServiceApiStatistic(APP, ZONE)->astAccessStatistic[0].stAccessRunStatus;
    access.dwRequestCountPerMin = requests;
    access.dwTimeoutCountPerMin = time_outs;
    access.dwProxyReturnSystemErrCountPerMin = system_errors;
  }

  void Update(int64_t seconds_later) {
    *test::wall_seconds += seconds_later;
    judge.Update(APP, ZONE, mgr);
  }

  // Makes the pair's option and starts the waiting for the first cycle, now.
  void Begin() {
    Update(0);
    Update(0);
  }

  LogLines Cycle() {
    Update(11);
    return logger.Take();
  }

  // Bad cycles until IsProxyUnavailable would answer true, seen by asking with ever higher limits.
  int BadCycles(const char* url = URL) {
    for (int limit = 1000;; --limit) {
      if (limit == 0) return 0;
      judge.SetCheckTimes(APP, ZONE, limit);
      if (judge.IsProxyUnavailable(APP, ZONE, url)) return limit;
    }
  }

  int endpoints = 0;
  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  JudgeProxy judge{&logger};
};

uint64_t HashByPrintf(const JudgeProxyMapKeyInfo& key) {
  char text[256];
  snprintf(text, sizeof(text), "%d#%d#%s", key.app_id, key.zone_id, key.url);
  uint64_t hash = 0;
  for (const char* c = text; *c != '\0'; ++c) hash = 5 * hash + static_cast<uint64_t>(*c);
  return hash;
}

TEST(JudgeProxyKey, HashesItsText) {
  EXPECT_EQ(JudgeProxyHash()(JudgeProxyMapKeyInfo(1, 2, "a")), 36522u);
  for (const int id : {0, 9, 10, -1, -10, INT32_MAX, INT32_MIN}) {
    for (const std::string& url : {std::string(), std::string("10.0.0.1:80"),
                                   std::string("\x80\xff\x01"), std::string(127, '\xfe')}) {
      const JudgeProxyMapKeyInfo key(id, 7 - (id / 2), url.c_str());
      EXPECT_EQ(JudgeProxyHash()(key), HashByPrintf(key)) << id << ' ' << url;
    }
  }
}

TEST(JudgeProxyKey, ComparesIdsAndTheKept127Characters) {
  const std::string text(127, 'u');
  const JudgeProxyMapKeyInfo key(1, 2, text.c_str());
  EXPECT_TRUE(key == JudgeProxyMapKeyInfo(1, 2, (text + "behind").c_str()));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(1, 2, (text.substr(1) + "x").c_str()));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(2, 2, text.c_str()));
  EXPECT_FALSE(key == JudgeProxyMapKeyInfo(1, 1, text.c_str()));
  EXPECT_TRUE(JudgeProxyMapKeyInfo(1, 2, nullptr) == JudgeProxyMapKeyInfo(1, 2, ""));
}

TEST_F(JudgeProxyTest, JudgesWithoutALogger) {
  JudgeProxy silent(nullptr);
  silent.SetCheckTimes(APP, ZONE, 1);
  SetCounts(10, 10, 0);
  for (const int64_t later : {0, 11}) {
    *test::wall_seconds += later;
    silent.Update(APP, ZONE, mgr);
  }
  *test::wall_seconds += 11;
  silent.Update(APP, ZONE, mgr);  // nothing new
  EXPECT_EQ(silent.ResetJudgeProxyStatus(APP, ZONE, nullptr), -1);
  EXPECT_TRUE(silent.IsProxyUnavailable(APP, ZONE, URL));
  EXPECT_EQ(silent.ResetJudgeProxyStatus(APP, ZONE, URL), 0);
}

// One endpoint through its cycles: counters, bad cycles afterwards, level of the summary line (0:
// none) and its numbers.
TEST_F(JudgeProxyTest, JudgesThroughTheCycles) {
  struct CycleCase {
    uint32_t requests, time_outs, system_errors;
    int bad_cycles, level;
    std::string numbers;  // sum, result, time-outs, system errors, requests
  };
  struct Sequence {
    const char* name;
    int threshold;
    std::vector<CycleCase> cycles;
  };
  const Sequence table[] = {
      {"levels by count, no gap at three but quiet",
       90,
       {{10, 10, 0, 1, WARN, "10,100,10,0,10"},
        {20, 19, 0, 2, WARN, "9,90,9,0,10"},
        {30, 19, 10, 3, TRACE, "10,100,0,10,10"},
        {40, 28, 10, 4, ERROR, "9,90,9,0,10"},
        {50, 38, 10, 5, ERROR, "10,100,10,0,10"},
        {60, 38, 10, 0, TRACE, "0,0,0,0,10"}}},
      {"share just below the threshold",
       90,
       {{100, 0, 0, 0, TRACE, "0,0,0,0,100"},
        {200, 50, 40, 1, WARN, "90,90,50,40,100"},
        {1200, 949, 40, 0, TRACE, "899,89,899,0,1000"}}},
      {"more failures than requests", 100, {{3, 5, 4, 1, WARN, "9,300,5,4,3"}}},
      {"lowest threshold",
       60,
       {{5, 3, 0, 1, WARN, "3,60,3,0,5"}, {10, 5, 0, 0, TRACE, "2,40,2,0,5"}}},
      {"counters went down: absolute",
       90,
       {{100, 95, 0, 1, WARN, "95,95,95,0,100"},
        {20, 1, 0, 0, TRACE, "1,5,1,0,20"},
        {30, 0, 30, 1, WARN, "30,100,0,30,30"},
        {40, 39, 2, 2, WARN, "41,102,39,2,40"}}},
      {"nothing new: skipped, state kept",
       90,
       {{10, 9, 0, 1, WARN, "9,90,9,0,10"},
        {10, 0, 0, 1, INFO, ""},
        {10, 99, 99, 1, INFO, ""},
        {20, 18, 0, 2, WARN, "9,90,9,0,10"}}},
      {"no requests: quiet, starts again",
       90,
       {{10, 9, 0, 1, WARN, "9,90,9,0,10"},
        {0, 7, 7, 0, 0, ""},
        {10, 16, 9, 1, WARN, "11,110,9,2,10"}}},
      {"new endpoint without requests",
       90,
       {{0, 5, 5, 0, 0, ""}, {1, 6, 5, 1, WARN, "1,100,1,0,1"}}},
      {"large counters",
       90,
       {{UINT32_MAX, UINT32_MAX, UINT32_MAX, 1, WARN,
         "8589934590,200,4294967295,4294967295,4294967295"},
        {1, 0, 0, 0, TRACE, "0,0,0,0,1"}}},
  };
  for (const Sequence& sequence : table) {
    SCOPED_TRACE(sequence.name);
    JudgeProxy fresh(&logger);
    fresh.SetThreshold(APP, ZONE, sequence.threshold);
    fresh.Update(APP, ZONE, mgr);
    for (const CycleCase& cycle : sequence.cycles) {
      SCOPED_TRACE(cycle.requests);
      SetCounts(cycle.requests, cycle.time_outs, cycle.system_errors);
      *test::wall_seconds += 11;
      fresh.Update(APP, ZONE, mgr);
      LogLines expected;
      if (cycle.level == INFO) {
        expected.push_back({INFO, "Update", "diff_request_count == 0, so skip it."});
      } else if (cycle.level != 0) {
        long sum = 0, result = 0, time_outs = 0, errors = 0, requests = 0;
        sscanf(cycle.numbers.c_str(), "%ld,%ld,%ld,%ld,%ld", &sum, &result, &time_outs, &errors,
               &requests);
        if (cycle.bad_cycles > 0) {
          expected.push_back(
              {WARN, "Update",
               "result: " + std::to_string(result) +
                   " is bigger than threshold: " + std::to_string(sequence.threshold) +
                   ",  current unavailable_times: " + std::to_string(cycle.bad_cycles)});
        }
        expected.push_back({cycle.level, "Update",
                            "sum:" + std::to_string(sum) + ", result:" + std::to_string(result) +
                                ", timeout count:" + std::to_string(time_outs) +
                                ", proxy return system err count:" + std::to_string(errors) +
                                ", request count:" + std::to_string(requests) + ", url:a"});
      }
      EXPECT_EQ(logger.Take(), expected);
      fresh.SetCheckTimes(APP, ZONE, cycle.bad_cycles + 1);
      EXPECT_FALSE(fresh.IsProxyUnavailable(APP, ZONE, URL)) << "no more than expected";
    }
    const int last = sequence.cycles.back().bad_cycles;
    fresh.SetCheckTimes(APP, ZONE, last);
    EXPECT_EQ(fresh.IsProxyUnavailable(APP, ZONE, URL), last > 0) << "no fewer";
  }
}

TEST_F(JudgeProxyTest, ReportsAnEndpointOncePerCheckTimes) {
  Begin();
  uint32_t total = 0;
  for (int round = 0; round < 2; ++round) {
    for (int bad = 1; bad <= 3; ++bad) {
      total += 10;
      SetCounts(total, total, 0);
      EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, URL)) << bad;
      Cycle();
    }
    EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE + 1, URL));
    EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, "udp://b"));
    EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, round == 0 ? URL : "xxxxxxa"));
    EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, URL));
  }
  judge.SetCheckTimes(APP, ZONE, 0);
  SetCounts(total + 1, total + 1, 0);
  Cycle();
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, URL)) << "0 stands for 3";
  judge.SetCheckTimes(APP, ZONE, 1);
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, URL));
}

TEST_F(JudgeProxyTest, ShowsBadCyclesWithoutChangingThem) {
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, nullptr), -1);
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, URL), -1);
  Begin();
  SetCounts(10, 0, 0);
  Cycle();
  for (uint32_t bad = 0; bad <= 3; ++bad) {
    SetCounts(10 + 10 * bad, 10 * bad, 0);
    if (bad > 0) Cycle();
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, "tcp://a"), static_cast<int>(bad));
    }
  }
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE + 1, URL), -1);
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, URL));
  EXPECT_EQ(judge.GetUnavailableTimes(APP, ZONE, URL), 0);
}

TEST_F(JudgeProxyTest, DifferencesHave64Bits) {
  Begin();
  SetCounts(1, 0, 0);
  Cycle();
  SetCounts(3000000001, 2000000000, 800000000);
  const std::string summary =
      "sum:2800000000, result:93, timeout count:2000000000, proxy return system err "
      "count:800000000, request count:3000000000, url:a";
  EXPECT_EQ(Cycle().back(), (LogLine{WARN, "Update", summary}));
}

TEST_F(JudgeProxyTest, ShortAndLongUrlsMeetTheRecordsText) {
  const std::string digits(127, '1');
  AddEndpoint(APP, ZONE, "udp");
  AddEndpoint(APP, ZONE, ("udp://" + digits + "tail").c_str());
  Begin();
  for (int i = 1; i <= 2; ++i) {
    ACCESSRUNSTATUS& access =
        mgr.GetServiceApiStatistic(APP, ZONE)->astAccessStatistic[i].stAccessRunStatus;
    access.dwRequestCountPerMin = access.dwTimeoutCountPerMin = 1;
  }
  Cycle();
  judge.SetCheckTimes(APP, ZONE, 1);
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, ""));
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, "12345")) << "the same endpoint, told already";
  EXPECT_TRUE(judge.IsProxyUnavailable(APP, ZONE, ("tcp://" + digits + "other").c_str()));
  EXPECT_FALSE(judge.IsProxyUnavailable(APP, ZONE, nullptr));
}

TEST_F(JudgeProxyTest, AResetKeepsTheCounters) {
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, nullptr), -1);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "ResetJudgeProxyStatus", "NULL == url."}}));
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, URL), -2);
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, ""), -2);
  EXPECT_TRUE(logger.Take().empty());
  Begin();
  SetCounts(10, 10, 0);
  Cycle();
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, "tcp://a"), 0);
  EXPECT_EQ(
      logger.Take(),
      (LogLines{{INFO, "ResetJudgeProxyStatus", "ResetJudgeProxyStatus success, url: tcp://a."}}));
  EXPECT_EQ(BadCycles(), 0);
  SetCounts(20, 12, 0);
  EXPECT_EQ(Cycle().back().text.substr(0, 15), "sum:2, result:2") << "compared with the old counts";
}

// An endpoint is evaluated at second E; then other pairs, which have no records, run cycles and so
// may walk the map. A pair's first cycle walks wherever something may have to change.
TEST_F(JudgeProxyTest, WalksDropStatusesOfEveryPairAtTheirAge) {
  constexpr int RESET = -1;  // instead of a cycle, the endpoint is reset
  struct OtherCycle {
    int zone;
    bool is_first;
    int64_t second;  // after E
  };
  struct Case {
    const char* name;
    int64_t evaluated;
    std::vector<OtherCycle> cycles;
    bool is_kept;
  };
  const Case table[] = {
      {"299 seconds old", START, {{77, true, 299}}, true},
      {"300 seconds old", START, {{77, true, 300}}, false},
      {"299 seconds after the walk: none", START, {{77, true, 1}, {77, false, 300}}, true},
      {"300 seconds after the walk: one", START, {{77, true, 1}, {77, false, 301}}, false},
      {"from the future: ages from the walk on",
       START,
       {{77, true, -1000}, {78, true, -701}},
       true},
      {"and is dropped 300 seconds later", START, {{77, true, -1000}, {78, true, -700}}, false},
      {"before the epoch: the first walk waits", -2000, {{77, true, 400}}, true},
      {"300 seconds", -2000, {{77, true, 400}, {77, false, 700}}, false},
      {"reset after a walk, then the clock goes back: ages from the next walk on",
       START,
       {{77, true, 10}, {RESET, false, 100}, {78, true, 50}, {79, true, 349}},
       true},
      {"and is dropped 300 seconds later, as if never in the future",
       START,
       {{77, true, 10}, {RESET, false, 100}, {78, true, 50}, {79, true, 350}},
       false},
  };
  for (const Case& row : table) {
    SCOPED_TRACE(row.name);
    JudgeProxy fresh(&logger);
    const auto run_cycle = [&](int zone, bool is_first, int64_t second) {
      for (const int64_t before : {12, 11}) {
        *test::wall_seconds = second - before;
        if (is_first) fresh.Update(APP, zone, mgr);
      }
      *test::wall_seconds = second;
      fresh.Update(APP, zone, mgr);
      EXPECT_TRUE(fresh.IsShouldCheck(APP, zone));
    };
    SetCounts(10, 10, 0);
    run_cycle(ZONE, true, row.evaluated);
    for (const OtherCycle& cycle : row.cycles) {
      const int64_t second = row.evaluated + cycle.second;
      if (cycle.zone != RESET) {
        run_cycle(cycle.zone, cycle.is_first, second);
      } else {
        *test::wall_seconds = second;
        EXPECT_EQ(fresh.ResetJudgeProxyStatus(APP, ZONE, URL), 0);
      }
    }
    EXPECT_EQ(fresh.ResetJudgeProxyStatus(APP, ZONE, URL), row.is_kept ? 0 : -2);
  }
}

TEST_F(JudgeProxyTest, TakesDamagedRecordsAsTheyAre) {
  SERVICEAPISTATISTIC& record = *mgr.GetServiceApiStatistic(APP, ZONE);
  Begin();
  for (ACCESSSTATISTIC& access : record.astAccessStatistic) {
    for (char& c : access.stHostInfo.szUrl) c = 'u';  // without end
    access.stAccessRunStatus.dwRequestCountPerMin = 1;
  }
  for (const int32_t count : {-1, 0, 256, 257, INT32_MAX}) {
    record.iAccessCount = count;
    const size_t lines = Cycle().size();
    EXPECT_EQ(lines, count > 0 ? 256u : 0u) << count;
  }
  EXPECT_EQ(judge.ResetJudgeProxyStatus(APP, ZONE, std::string(133, 'u').c_str()), 0);
}

}  // namespace
}  // namespace KorvainService
