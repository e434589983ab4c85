// Examples of what LatencyDataMgr does, and what random runs beside its model (in fuzz/) do not
// reach: the real limits, memory that runs out, and what a request costs.
#include "service_api/latency_data_mgr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "comm/objslab.h"
#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::ERROR;
using test::LogLines;

constexpr int APP = 70007, ZONE = 3, PORT = 9000;
const auto IP = static_cast<int32_t>(inet_addr("10.0.0.1"));
const LogLines REFUSALS = {
    {ERROR, "PushBack", "objslab is full, frequency:100000"},
    {ERROR, "CalculateDelay", "objslab_get for latency data pool failed. id:-8, frequency:100000"}};

class LatencyDataMgrTest : public ::testing::Test {
 protected:
  LatencyDataMgrTest() {
    test::clock_ms = 1000;
    mgr.CreateStatisticMap(1, APP, ZONE);
    mgr.AddAccess(APP, ZONE, "udp://10.0.0.1:9000", IP, PORT, "s");
    EXPECT_EQ(Init(), 0);
    logger.Take();
  }

  int Init() { return latency.Init(APP, 3000, 100, &logger); }
  int Push(int64_t send_time) { return latency.PushBack(ZONE, send_time, IP, PORT); }
  int Sweep() { return latency.TraverseForDeleteTimeOutNode(&mgr); }
  OVERALLRUNSTATUS& Overall() { return mgr.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus; }
  int TimeOuts() { return static_cast<int>(Overall().dwTimeoutCountPerMin); }
  void Refuse(int times) {
    for (; times > 0; --times) {
      ASSERT_EQ(Push(1000), API_ERR_ALLOCATE_MEMORY);
      ASSERT_EQ(latency.CalculateDelay(-8, 1001, &mgr), GEN_ERR_ERR);
    }
  }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
};

TEST_F(LatencyDataMgrTest, AddsEachDelayOnceToOverallAndAccess) {
  EXPECT_EQ(latency.CalculateDelay(Push(1000), 1250, &mgr), 0);
  EXPECT_EQ(latency.CalculateDelay(0, 1260, &mgr), GEN_ERR_ERR) << "released";
  EXPECT_EQ(latency.CalculateDelay(Push(1000), 1000, &mgr), 0) << "no delay, and no sample";
  EXPECT_EQ(+Overall().ullAverageDelay, 250u);
  EXPECT_EQ(+Overall().dwCalculateAverageDelayResCount, 1u);
  const ACCESSRUNSTATUS& access = *mgr.GetAccessRunStatus(APP, ZONE, IP, PORT);
  EXPECT_EQ(+access.ullAverageDelay, 250u);
  EXPECT_EQ(+access.dwCalculateAverageDelayResCount, 1u);
}

TEST_F(LatencyDataMgrTest, ExpiresAtTheTimeOutAndAsManyAsTheLimit) {
  struct Case {
    int given, timeout, limit;  // what it becomes as the one and as the other
  };
  for (const Case& row : {Case{1, 1, 1}, {2, 2, 2}, {0, 3000, 100}, {-1, 3000, 100}}) {
    SCOPED_TRACE(row.given);
    EXPECT_EQ(Init(), 0);
    latency.SetTimeOut(row.given);
    latency.SetLimit(row.given);
    const int before = TimeOuts();
    test::clock_reads = logger.priority_queries = 0;
    for (int i = 0; i <= row.limit; ++i) Push(1000);
    test::clock_ms = 1000 + row.timeout - 1;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(TimeOuts(), before);
    test::clock_ms = 1000 + row.timeout;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(TimeOuts(), before + row.limit);
    EXPECT_EQ(test::clock_reads, 1 + row.limit) << "one for each entry examined";
    EXPECT_EQ(logger.priority_queries, row.limit + 1) << "only PushBack asks, once";
  }
}

TEST_F(LatencyDataMgrTest, ReportsInTheseWords) {
  logger.enabled_level = DEBUG;
  Push(1234);
  logger.enabled_level = test::INFO;
  latency.PushBack(55, 1235, IP, PORT);
  test::clock_ms = 9000;
  EXPECT_EQ(latency.CalculateDelay(0, 9000, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(LatencyDataMgr().TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(Sweep(), GEN_ERR_ERR) << "and so until zone 55 has a record";
  const std::string sweep = "TraverseForDeleteTimeOutNode";
  const std::string no_manager = "the input parameter is invalid, NULL == statistic_mgr";
  EXPECT_EQ(
      logger.Take(),
      (LogLines{
          {DEBUG, "PushBack",
           "m_bidirection_list->Insert() success. send time:1234, ip:10.0.0.1, port:9000, "
           "zone_id:3, id_for_latency_data:0, id_for_list_node:0"},
          {ERROR, "CalculateDelay", no_manager},
          {ERROR, sweep, no_manager},
          {ERROR, sweep,
           "it is timeout. app_id:70007, zone_id:3, ip:10.0.0.1, port:9000, id_for_latency_data:0, "
           "id_for_list_node:0"},
          {ERROR, sweep,
           "statistic_mgr->GetServiceApiStatistic failed. app_id:70007, zone_id:55"}}));
}

std::string SizeOfPool(size_t slot_size) {
  LPOBJSLAB pool = nullptr;
  EXPECT_EQ(objslab_new(&pool, 100000, slot_size), 0);
  const std::string size = std::to_string(objslab_get_size(pool));
  objslab_destroy(&pool);
  return size;
}

TEST_F(LatencyDataMgrTest, AFailedInitLeavesItNotReadyAndKeepsTheCountsOfRefusals) {
  const std::string texts[] = {
      "objslab_new failed. ret:-1, sizeof(LatencyData):32, MAX_NODE_COUNT:100000",
      "objslab_new failed. ret:-1, sizeof(LIST_NODE):24, MAX_NODE_COUNT:100000",
      "new(std::nothrow) CBidirList() failed.  sizeof(CBidirList):24d"};
  const test::Allocations allocations;
  const int64_t outstanding = test::Allocations::Outstanding();
  for (const int failing : {0, 1, 1, 2}) {
    test::Allocations::Restart(failing);
    EXPECT_EQ(Init(), API_ERR_ALLOCATE_MEMORY);
    test::Allocations::Restart();
    const LogLines lines = logger.Take();
    ASSERT_EQ(lines.size(), static_cast<size_t>(failing) + 1);
    EXPECT_EQ(lines.back(), (test::LogLine{ERROR, "Init", texts[failing]}));
    EXPECT_EQ(Sweep(), 0);
    Refuse(25000);
  }
  EXPECT_EQ(logger.Take(), LogLines());
  Refuse(1);
  EXPECT_EQ(logger.Take(), REFUSALS);

  EXPECT_EQ(Init(), 0);
  EXPECT_EQ(logger.Take(),
            (LogLines{{DEBUG, "Init", "allocate memory for latency data:" + SizeOfPool(32)},
                      {DEBUG, "Init", "allocate memory for list node:" + SizeOfPool(24)},
                      {DEBUG, "Init", "allocate memory for CBidirList:24"}}));
  EXPECT_EQ(test::Allocations::Outstanding(), outstanding);
}

TEST_F(LatencyDataMgrTest, HoldsAHundredThousandRequestsAndReportsRefusalsAsRarely) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Init(), 0);  // starts ids and counts afresh
    logger.Take();
    for (int i = 0; i < 100000; ++i) ASSERT_EQ(Push(1000), i);
    Refuse(100000);
    EXPECT_EQ(logger.Take(), LogLines());
    Refuse(1);
    EXPECT_EQ(logger.Take(), REFUSALS);
  }
  EXPECT_EQ(latency.CalculateDelay(77, 1001, &mgr), 0);
  EXPECT_EQ(Push(1000), 77 + 131072);
}

TEST_F(LatencyDataMgrTest, AllocatesNothingPerRequest) {
  const LatencyDataMgr::TimeOutHandler retry = [this](const LatencyData&) { Push(9000); };
  latency.Init(APP, 3000, 100, nullptr);
  const test::Allocations allocations;
  for (int i = 0; i < 500; ++i) latency.CalculateDelay(Push(2000), 2010, &mgr);
  for (int i = 0; i < 50; ++i) Push(2000);
  test::clock_ms = 9000;
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(&mgr, retry), 0);
  EXPECT_EQ(test::Allocations::Count(), 0);
  EXPECT_EQ(TimeOuts(), 50);
}

}  // namespace
}  // namespace KorvainService
