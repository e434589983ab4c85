#include "service_api/latency_data_mgr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::ERROR;
using test::LogLines;

constexpr int APP = 7;
constexpr int ZONE = 3;
constexpr int PORT = 9000;
const auto IP = static_cast<int32_t>(inet_addr("10.0.0.1"));

class LatencyDataMgrTest : public ::testing::Test {
 protected:
  LatencyDataMgrTest() {
    test::clock_ms = 1000;
    mgr.CreateStatisticMap(1, APP, ZONE);
    mgr.AddAccess(APP, ZONE, "udp://10.0.0.1:9000", IP, PORT, "s");
    EXPECT_EQ(latency.Init(APP, 3000, 100, &logger), 0);
    logger.Take();
  }
  ~LatencyDataMgrTest() override { EXPECT_TRUE(logger.is_place_sound); }

  OVERALLRUNSTATUS& Overall() { return mgr.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus; }
  ACCESSRUNSTATUS& Access() { return *mgr.GetAccessRunStatus(APP, ZONE, IP, PORT); }
  int Push(int64_t send_time) { return latency.PushBack(ZONE, send_time, IP, PORT); }
  int Sweep() { return latency.TraverseForDeleteTimeOutNode(&mgr); }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
};

TEST_F(LatencyDataMgrTest, InitRefusesBadArgumentsAndChangesNothing) {
  const int id = Push(1000);
  struct Case {
    int timeout, limit;
    const char* text;
  };
  for (const Case& row : {Case{0, 100, "timeout(0)<=0 || limit(100) <=0"},
                          Case{3000, -5, "timeout(3000)<=0 || limit(-5) <=0"},
                          Case{-1, 0, "timeout(-1)<=0 || limit(0) <=0"}}) {
    test::RecordingLogger other;
    EXPECT_EQ(latency.Init(8, row.timeout, row.limit, &other), API_ERR_PARAMETER_INVALID);
    EXPECT_EQ(other.Take(), (LogLines{{ERROR, "Init", row.text}}));
    EXPECT_EQ(latency.Init(8, row.timeout, row.limit, nullptr), API_ERR_PARAMETER_INVALID);
  }
  EXPECT_EQ(latency.CalculateDelay(id, 1250, &mgr), 0);
  EXPECT_EQ(+Overall().ullAverageDelay, 250u);
}

TEST_F(LatencyDataMgrTest, ARefusedInitKeepsTimeOutLimitAndLogger) {
  test::RecordingLogger other;
  latency.Init(8, 50, 0, &other);
  latency.Init(8, 0, 1, &other);
  other.Take();
  Push(1000);
  Push(1000);
  test::clock_ms = 3999;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 0u);
  test::clock_ms = 4000;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 2u);
  EXPECT_EQ(logger.Take().size(), 2u);
  EXPECT_TRUE(other.Take().empty());
}

TEST_F(LatencyDataMgrTest, ASecondInitBringsItsOwnSettings) {
  mgr.CreateStatisticMap(1, 8, ZONE);
  EXPECT_EQ(latency.Init(8, 500, 1, &logger), 0);
  Push(1000);
  Push(1000);
  test::clock_ms = 1500;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+mgr.GetServiceApiStatistic(8, ZONE)->stOverallRunStatus.dwTimeoutCountPerMin, 1u);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 0u);
}

// Before it is ready a manager counts its refusals like any other, and only an Init that succeeds
// starts the counts again.
TEST_F(LatencyDataMgrTest, CountsRefusalsBeforeItIsReady) {
  const test::Allocations allocations;
  const auto fail_init = [&] {
    test::Allocations::Restart(1);
    EXPECT_EQ(latency.Init(APP, 3000, 100, &logger), API_ERR_ALLOCATE_MEMORY);
    test::Allocations::Restart();
    logger.Take();
  };
  fail_init();
  for (int i = 0; i < 60000; ++i) Push(1000);
  for (int i = 0; i < 99999; ++i) latency.CalculateDelay(i, 1, &mgr);
  fail_init();
  for (int i = 0; i < 40000; ++i) Push(1000);
  latency.CalculateDelay(5, 1, &mgr);
  EXPECT_TRUE(logger.lines.empty());
  EXPECT_EQ(Push(1000), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(latency.CalculateDelay(6, 1, &mgr), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(),
            (LogLines{{ERROR, "PushBack", "objslab is full, frequency:100000"},
                      {ERROR, "CalculateDelay",
                       "objslab_get for latency data pool failed. id:6, frequency:100000"}}));
}

TEST_F(LatencyDataMgrTest, InitReportsEachAllocation) {
  const std::string steps[] = {
      "objslab_new failed. ret:-1, sizeof(LatencyData):32, MAX_NODE_COUNT:100000",
      "objslab_new failed. ret:-1, sizeof(LIST_NODE):24, MAX_NODE_COUNT:100000",
      "new(std::nothrow) CBidirList() failed.  sizeof(CBidirList):24d"};
  for (int failing = 0; failing < 3; ++failing) {
    SCOPED_TRACE(failing);
    const int64_t outstanding = test::Allocations::Outstanding();
    {
      LatencyDataMgr fresh;
      EXPECT_EQ(fresh.Init(APP, 3000, 100, nullptr), 0);
      EXPECT_EQ(fresh.PushBack(ZONE, 1000, IP, PORT), 0);
      const test::Allocations allocations;
      test::Allocations::Restart(failing);
      test::RecordingLogger log;
      EXPECT_EQ(fresh.Init(APP, 3000, 100, &log), API_ERR_ALLOCATE_MEMORY);
      test::Allocations::Restart();
      const LogLines lines = log.Take();
      ASSERT_EQ(lines.size(), static_cast<size_t>(failing) + 1);
      EXPECT_EQ(lines.back(), (test::LogLine{ERROR, "Init", steps[failing]}));

      EXPECT_EQ(fresh.PushBack(ZONE, 1000, IP, PORT), API_ERR_ALLOCATE_MEMORY);
      EXPECT_EQ(fresh.CalculateDelay(0, 2000, &mgr), GEN_ERR_ERR);
      EXPECT_EQ(fresh.TraverseForDeleteTimeOutNode(&mgr), 0);
      EXPECT_EQ(fresh.Init(APP, 3000, 100, nullptr), 0);
      EXPECT_EQ(fresh.PushBack(ZONE, 1000, IP, PORT), 0);
    }
    EXPECT_EQ(test::Allocations::Outstanding(), outstanding);
  }
  EXPECT_EQ(latency.Init(APP, 3000, 100, &logger), 0);
  const LogLines lines = logger.Take();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].text.rfind("allocate memory for latency data:", 0), 0u);
  EXPECT_EQ(lines[1].text.rfind("allocate memory for list node:", 0), 0u);
  EXPECT_EQ(lines[2], (test::LogLine{DEBUG, "Init", "allocate memory for CBidirList:24"}));
}

TEST_F(LatencyDataMgrTest, IsHarmlessBeforeInit) {
  LatencyDataMgr fresh;
  EXPECT_EQ(fresh.PushBack(ZONE, 1, IP, PORT), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(fresh.CalculateDelay(0, 1, &mgr), GEN_ERR_ERR);
  EXPECT_EQ(fresh.CalculateDelay(0, 1, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(fresh.TraverseForDeleteTimeOutNode(&mgr), 0);
  EXPECT_EQ(fresh.TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
}

TEST_F(LatencyDataMgrTest, AddsEachDelayOnce) {
  struct Case {
    int64_t sent, received;
    uint64_t sum;
    uint32_t count;
  };
  for (const Case& row :
       {Case{1000, 1250, 250, 1}, Case{1000, 1001, 251, 2}, Case{1000, 1000, 251, 2},
        Case{1000, 999, 251, 2}, Case{-5, INT64_MIN, 251, 2}}) {
    const int id = Push(row.sent);
    EXPECT_EQ(latency.CalculateDelay(id, row.received, &mgr), 0);
    EXPECT_EQ(latency.CalculateDelay(id, row.received + 9, &mgr), GEN_ERR_ERR) << "released";
    EXPECT_EQ(+Overall().ullAverageDelay, row.sum);
    EXPECT_EQ(+Overall().dwCalculateAverageDelayResCount, row.count);
    EXPECT_EQ(+Access().ullAverageDelay, row.sum);
    EXPECT_EQ(+Access().dwCalculateAverageDelayResCount, row.count);
  }
  EXPECT_TRUE(logger.lines.empty());
}

TEST_F(LatencyDataMgrTest, CountsUnknownAccessesOverallOnly) {
  ACCESSRUNSTATUS& access = Access();
  EXPECT_EQ(latency.CalculateDelay(latency.PushBack(ZONE, 1000, IP, PORT + 1), 1010, &mgr), 0);
  mgr.GetServiceApiStatistic(APP, ZONE)->iAccessCount = 0;  // as after Reset
  EXPECT_EQ(latency.CalculateDelay(Push(1000), 1020, &mgr), 0);
  Push(1000);
  test::clock_ms = 9000;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().ullAverageDelay, 30u);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 1u);
  EXPECT_EQ(+access.dwCalculateAverageDelayResCount, 0u);
  EXPECT_EQ(+access.dwTimeoutCountPerMin, 0u);
  EXPECT_TRUE(logger.lines.empty()) << "only a registered access's time-out is logged";
}

TEST_F(LatencyDataMgrTest, RefusesNullManagersAndForeignIds) {
  const int id = Push(1000);
  EXPECT_EQ(latency.CalculateDelay(id, 1250, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
  const std::string text = "the input parameter is invalid, NULL == statistic_mgr";
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "CalculateDelay", text},
                                     {ERROR, "TraverseForDeleteTimeOutNode", text}}));
  for (const int foreign : {-1, id + 1, 99999, 100000, 131071, id + 131072, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(latency.CalculateDelay(foreign, 1250, &mgr), GEN_ERR_ERR) << foreign;
  }
  EXPECT_EQ(+Overall().dwCalculateAverageDelayResCount, 0u);
  EXPECT_EQ(latency.CalculateDelay(id, 1250, &mgr), 0);
}

TEST_F(LatencyDataMgrTest, ExpiresAtTheTimeOutAndNotBefore) {
  struct Case {
    int64_t age;
    bool is_expired;
  };
  latency.SetTimeOut(250);
  for (const int timeout : {250, 3000}) {
    for (const Case& row : {Case{timeout - 1, false}, Case{timeout, true}, Case{0, false},
                            Case{-1, true}, Case{INT64_MAX - 1000, true}}) {
      SCOPED_TRACE(row.age);
      const uint32_t before = Overall().dwTimeoutCountPerMin;
      test::clock_ms = 1000 + row.age;
      const int id = Push(1000);
      EXPECT_EQ(Sweep(), 0);
      EXPECT_EQ(+Overall().dwTimeoutCountPerMin - before, row.is_expired ? 1u : 0u);
      EXPECT_EQ(+Access().dwTimeoutCountPerMin, +Overall().dwTimeoutCountPerMin);
      EXPECT_EQ(latency.CalculateDelay(id, 1000, &mgr), row.is_expired ? GEN_ERR_ERR : 0);
    }
    latency.SetTimeOut(timeout == 250 ? -1 : 0);  // back to the default
  }
}

TEST_F(LatencyDataMgrTest, ASweepIsBounded) {
  for (int i = 0; i < 250; ++i) Push(1000);
  test::clock_ms = 4000;
  logger.priority_queries = 0;
  test::clock_reads = 0;
  for (const uint32_t expired : {100u, 200u, 250u, 250u}) {
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(+Overall().dwTimeoutCountPerMin, expired);
  }
  EXPECT_EQ(test::clock_reads, 250) << "read once for each entry examined";
  EXPECT_EQ(logger.priority_queries, 0) << "only PushBack asks";
  latency.SetLimit(2);
  for (int i = 0; i < 300; ++i) Push(1000);
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 252u);
  latency.SetLimit(0);
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 352u);
}

TEST_F(LatencyDataMgrTest, SettingsBelowOneBecomeTheDefault) {
  struct Case {
    int32_t given, timeout, limit;  // what it becomes as the one and as the other
  };
  for (const Case& row : {Case{1, 1, 1}, Case{2, 2, 2}, Case{0, 3000, 100}, Case{-1, 3000, 100},
                          Case{INT32_MIN, 3000, 100}}) {
    SCOPED_TRACE(row.given);
    latency.SetTimeOut(row.given);
    latency.SetLimit(row.given);
    for (int i = 0; i <= row.limit; ++i) Push(1000);
    const uint32_t before = Overall().dwTimeoutCountPerMin;
    test::clock_ms = 1000 + row.timeout - 1;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(+Overall().dwTimeoutCountPerMin, before);
    test::clock_ms = 1000 + row.timeout;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(+Overall().dwTimeoutCountPerMin - before, static_cast<uint32_t>(row.limit));
    latency.SetLimit(1000);
    EXPECT_EQ(Sweep(), 0);
  }
}

TEST_F(LatencyDataMgrTest, DelaysAndTheirSumsHave64Bits) {
  constexpr int64_t LONG = 5000000000;
  EXPECT_EQ(latency.CalculateDelay(Push(1000), 1000 + LONG, &mgr), 0);
  EXPECT_EQ(latency.CalculateDelay(Push(INT64_MIN), INT64_MIN + 2 * LONG, &mgr), 0);
  EXPECT_EQ(+Overall().ullAverageDelay, 15000000000u);
  EXPECT_EQ(+Access().ullAverageDelay, 15000000000u);
}

TEST_F(LatencyDataMgrTest, KnowsWhatIsInFlight) {
  LatencyDataMgr fresh;
  EXPECT_EQ(fresh.Count(), 0);
  EXPECT_EQ(fresh.Find(0), nullptr);
  EXPECT_EQ(fresh.Withdraw(0), GEN_ERR_ERR);
  const int id = Push(1234);
  const LatencyData* const request = latency.Find(id);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->id_for_latency_data, id);
  EXPECT_EQ(request->time_ms, 1234);
  EXPECT_EQ(request->zone_id, ZONE);
  EXPECT_EQ(request->ip, IP);
  EXPECT_EQ(request->port, PORT);
  EXPECT_EQ(latency.Count(), 1);
  for (const int foreign : {-1, id + 1, id + 131072, 100000, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(latency.Find(foreign), nullptr) << foreign;
    EXPECT_EQ(latency.Withdraw(foreign), GEN_ERR_ERR) << foreign;
  }
  EXPECT_EQ(latency.Withdraw(id), 0);
  EXPECT_EQ(latency.Find(id), nullptr);
  EXPECT_EQ(latency.Count(), 0);
  EXPECT_EQ(latency.CalculateDelay(id, 2000, &mgr), GEN_ERR_ERR);
  test::clock_ms = 9000;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwCalculateAverageDelayResCount, 0u);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 0u);
  EXPECT_TRUE(logger.lines.empty());
}

TEST_F(LatencyDataMgrTest, UnknownIdsOfBothOperationsAreCountedTogether) {
  for (int i = 0; i < 50000; ++i) {
    latency.CalculateDelay(i, 1, &mgr);
    latency.Withdraw(i);
  }
  EXPECT_TRUE(logger.lines.empty());
  EXPECT_EQ(latency.Withdraw(5), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "Withdraw",
                                      "objslab_get for latency data pool failed. id:5, "
                                      "frequency:100000"}}));
}

TEST_F(LatencyDataMgrTest, ARetryThatIsDueAtOnceEndsWithTheLimit) {
  latency.SetLimit(10);
  Push(1000);
  test::clock_ms = 9000;
  int handled = 0;
  const auto retry = [&](const LatencyData& request) {
    ++handled;
    EXPECT_EQ(+Overall().dwTimeoutCountPerMin, static_cast<uint32_t>(handled)) << "counted before";
    EXPECT_GE(latency.PushBack(request.zone_id, 1000, request.ip, request.port), 0);
  };
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(&mgr, retry), 0);
  EXPECT_EQ(handled, 10);
  EXPECT_EQ(latency.Count(), 1);

  const LatencyDataMgr::TimeOutHandler none;
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(&mgr, none), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 11u);
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(nullptr, none), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(nullptr, retry), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(LatencyDataMgr().TraverseForDeleteTimeOutNode(&mgr, retry), 0);
  for (const test::LogLine& line : logger.Take()) {
    EXPECT_EQ(line.func, "TraverseForDeleteTimeOutNode");
  }
}

TEST_F(LatencyDataMgrTest, AHandlerThatThrowsLosesNoOtherRequest) {
  for (int i = 0; i < 3; ++i) Push(1000);
  test::clock_ms = 9000;
  const auto fail = [](const LatencyData&) { throw std::runtime_error("handler"); };
  EXPECT_THROW(latency.TraverseForDeleteTimeOutNode(&mgr, fail), std::runtime_error);
  EXPECT_EQ(latency.Count(), 2);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 1u);
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 3u);
  for (const int slot : {2, 1, 0}) EXPECT_EQ(Push(9000), slot + 131072) << "all given back";
}

TEST_F(LatencyDataMgrTest, WaitsForAMissingRecord) {
  const int id = latency.PushBack(55, 1000, IP, PORT);
  Push(1000);
  test::clock_ms = 9000;
  const std::string text = "statistic_mgr->GetServiceApiStatistic failed. app_id:7, zone_id:55";
  EXPECT_EQ(Sweep(), GEN_ERR_ERR);
  EXPECT_EQ(latency.CalculateDelay(id, 1100, &mgr), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "TraverseForDeleteTimeOutNode", text},
                                     {ERROR, "CalculateDelay", text}}));
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 0u);
  mgr.CreateStatisticMap(1, APP, 55);
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 1u);
  EXPECT_EQ(+mgr.GetServiceApiStatistic(APP, 55)->stOverallRunStatus.dwTimeoutCountPerMin, 1u);
}

TEST_F(LatencyDataMgrTest, FormatsTheSuccessLineOnlyWhenItIsWanted) {
  Push(1000);
  EXPECT_EQ(logger.priority_queries, 1);
  EXPECT_TRUE(logger.lines.empty());
  logger.enabled_level = DEBUG;
  Push(1234);
  EXPECT_EQ(logger.Take(),
            (LogLines{{DEBUG, "PushBack",
                       "m_bidirection_list->Insert() success. send time:1234, ip:10.0.0.1, "
                       "port:9000, zone_id:3, id_for_latency_data:1, id_for_list_node:1"}}));
}

TEST_F(LatencyDataMgrTest, AFullPoolIsReportedOnceInAHundredThousand) {
  for (int i = 0; i < MAX_NODE_COUNT; ++i) ASSERT_EQ(Push(1000), i);
  for (int round = 1; round <= 3; ++round) {
    const int quiet = round == 1 ? 100000 : 99999;
    for (int i = 0; i < quiet; ++i) ASSERT_EQ(Push(1000), API_ERR_ALLOCATE_MEMORY);
    EXPECT_TRUE(logger.lines.empty());
    EXPECT_EQ(Push(1000), API_ERR_ALLOCATE_MEMORY);
    EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "PushBack", "objslab is full, frequency:100000"}}));
  }
  EXPECT_EQ(latency.CalculateDelay(77, 1001, &mgr), 0);
  EXPECT_EQ(Push(1000), 77 + 131072);
}

TEST_F(LatencyDataMgrTest, UnknownIdsAreReportedOnceInAHundredThousand) {
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(latency.CalculateDelay(i, 1, &mgr), GEN_ERR_ERR);
  EXPECT_TRUE(logger.lines.empty());
  latency.CalculateDelay(-8, 1, &mgr);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "CalculateDelay",
                                      "objslab_get for latency data pool failed. id:-8, "
                                      "frequency:100000"}}));
  latency.Init(APP, 1, 1, &logger);
  logger.Take();
  for (int i = 0; i < 100000; ++i) latency.CalculateDelay(i, 1, &mgr);
  EXPECT_TRUE(logger.lines.empty()) << "Init starts the counters again";
}

TEST_F(LatencyDataMgrTest, AllocatesNothingPerRequest) {
  const test::Allocations allocations;
  int held[500];
  for (int round = 0; round < 3; ++round) {
    for (int& id : held) id = Push(2000);
    for (const int id : held) latency.CalculateDelay(id, 2010, &mgr);
  }
  EXPECT_EQ(test::Allocations::Count(), 0);
  latency.Init(APP, 3000, 1000, nullptr);
  for (int i = 0; i < 1000; ++i) Push(2000);
  test::clock_ms = 9000;
  test::Allocations::Restart();
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(test::Allocations::Count(), 0);
  EXPECT_EQ(+Overall().dwTimeoutCountPerMin, 1000u);
}

}  // namespace
}  // namespace KorvainService
