// Examples of what LatencyDataMgr does, and what random runs beside its model (in fuzz/) do not
// reach: the real limits, memory that runs out, and what a request costs.
#include "service_api/latency_data_mgr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

constexpr int APP = 70007, ZONE = 3, PORT = 9000;
const auto IP = static_cast<int32_t>(inet_addr("10.0.0.1"));

class LatencyDataMgrTest : public ::testing::Test {
 protected:
  LatencyDataMgrTest() {
    test::clock_ms = 1000;
    mgr.CreateStatisticMap(1, APP, ZONE);
    mgr.AddAccess(APP, ZONE, "udp://10.0.0.1:9000", IP, PORT, "s");
    EXPECT_EQ(Init(), 0);
    logger.TakeText();
  }

  int Init() { return latency.Init(APP, 2000, 200, &logger); }
  int Push(int64_t send_time) { return latency.PushBack(ZONE, send_time, IP, PORT); }
  int Sweep() { return latency.TraverseForDeleteTimeOutNode(&mgr); }
  uint32_t TimeOuts() {
    return mgr.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus.dwTimeoutCountPerMin;
  }
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

TEST_F(LatencyDataMgrTest, ByDefaultAHundredExpireAfterThreeSeconds) {
  latency.SetTimeOut(0);
  latency.SetLimit(0);
  test::clock_reads = logger.priority_queries = 0;
  for (int i = 0; i <= 100; ++i) Push(1000);
  test::clock_ms = 3999;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(TimeOuts(), 0);
  test::clock_ms = 4000;
  EXPECT_EQ(Sweep(), 0);
  EXPECT_EQ(TimeOuts(), 100);
  EXPECT_EQ(test::clock_reads, 101) << "one for each entry examined";
  EXPECT_EQ(logger.priority_queries, 101) << "only PushBack asks, once";
}

TEST_F(LatencyDataMgrTest, AStepOfTheClockCanBeTakenOutOfAllAges) {
  latency.ShiftSendTimes(INT64_MIN);  // of none
  for (const int64_t step : {-3600000, 3600000}) {
    const int answered = Push(test::clock_ms - 10);
    Push(test::clock_ms);
    test::clock_ms += step;
    latency.ShiftSendTimes(step);
    EXPECT_EQ(latency.Find(answered)->time_ms, test::clock_ms - 10);
    EXPECT_EQ(latency.CalculateDelay(answered, test::clock_ms, &mgr), 0);
    test::clock_ms += 1999;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(latency.Count(), 1) << "neither too old nor sent in the future";
    test::clock_ms += 1;
    EXPECT_EQ(Sweep(), 0);
    EXPECT_EQ(latency.Count(), 0);
  }
  EXPECT_EQ(mgr.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus.ullAverageDelay, 20);
}

TEST_F(LatencyDataMgrTest, ReportsInTheseWords) {
  logger.enabled_level = test::DEBUG;
  Push(1234);
  logger.enabled_level = test::INFO;
  latency.PushBack(55, 1235, IP, PORT);
  test::clock_ms = 9000;
  EXPECT_EQ(latency.CalculateDelay(0, 9000, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(LatencyDataMgr().TraverseForDeleteTimeOutNode(nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(Sweep(), GEN_ERR_ERR) << "and so until zone 55 has a record";
  EXPECT_EQ(logger.TakeText(),
            "700 PushBack: m_bidirection_list->Insert() success. send time:1234, ip:10.0.0.1, "
            "port:9000, zone_id:3, id_for_latency_data:0, id_for_list_node:0\n"
            "300 CalculateDelay: the input parameter is invalid, NULL == statistic_mgr\n"
            "300 TraverseForDeleteTimeOutNode: the input parameter is invalid, "
            "NULL == statistic_mgr\n"
            "300 TraverseForDeleteTimeOutNode: it is timeout. app_id:70007, zone_id:3, "
            "ip:10.0.0.1, port:9000, id_for_latency_data:0, id_for_list_node:0\n"
            "300 TraverseForDeleteTimeOutNode: statistic_mgr->GetServiceApiStatistic failed. "
            "app_id:70007, zone_id:55\n");
}

TEST_F(LatencyDataMgrTest, AFailedInitLeavesItNotReadyAndKeepsTheCountsOfRefusals) {
  const std::string record_pool = "700 Init: allocate memory for latency data:3600048\n";
  const std::string both_pools = record_pool + "700 Init: allocate memory for list node:3200048\n";
  const std::string texts[] = {
      "300 Init: objslab_new failed. ret:-1, sizeof(LatencyData):32, MAX_NODE_COUNT:100000\n",
      record_pool +
          "300 Init: objslab_new failed. ret:-1, sizeof(LIST_NODE):24, MAX_NODE_COUNT:100000\n",
      both_pools + "300 Init: new(std::nothrow) CBidirList() failed.  sizeof(CBidirList):24d\n"};
  const test::Allocations allocations;
  for (const int failing : {0, 1, 1, 2}) {
    test::Allocations::Restart(failing);
    EXPECT_EQ(Init(), API_ERR_ALLOCATE_MEMORY);
    test::Allocations::Restart();
    EXPECT_EQ(logger.TakeText(), texts[failing]);
    EXPECT_EQ(Sweep(), 0);
    Refuse(25000);
  }
  EXPECT_EQ(logger.TakeText(), "");
  Refuse(1);
  EXPECT_EQ(
      logger.TakeText(),
      "300 PushBack: objslab is full, frequency:100000\n"
      "300 CalculateDelay: objslab_get for latency data pool failed. id:-8, frequency:100000\n");
  EXPECT_EQ(Init(), 0);
  EXPECT_EQ(logger.TakeText(), both_pools + "700 Init: allocate memory for CBidirList:24\n");
}

TEST_F(LatencyDataMgrTest, HoldsAHundredThousandRequestsAndAllocatesForNone) {
  const LatencyDataMgr::TimeOutHandler retry = [this](const LatencyData&) { Push(9000); };
  latency.Init(APP, 3000, 100, nullptr);
  const test::Allocations allocations;
  for (int i = 0; i < 500; ++i) latency.CalculateDelay(Push(2000), 2010, &mgr);
  for (int i = 0; i < 100000; ++i) ASSERT_GE(Push(2000), 0);
  EXPECT_EQ(Push(2000), API_ERR_ALLOCATE_MEMORY);
  test::clock_ms = 9000;
  EXPECT_EQ(latency.TraverseForDeleteTimeOutNode(&mgr, retry), 0);
  EXPECT_EQ(test::Allocations::count, 0);
  EXPECT_EQ(TimeOuts(), 100);
}

}  // namespace
}  // namespace KorvainService
