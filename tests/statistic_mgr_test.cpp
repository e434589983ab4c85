#include "service_api/statistic_mgr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

class StatisticMgrTest : public ::testing::Test {
 protected:
  StatisticMgrTest() { EXPECT_EQ(mgr.Init(&logger), 0); }

  // Its report period begins at second 1000.
  SERVICEAPISTATISTIC& Create(int app_id, int zone_id) {
    test::clock_ms = 1000999;
    EXPECT_EQ(mgr.CreateStatisticMap(1, app_id, zone_id), 0);
    logger.TakeText();
    return *mgr.GetServiceApiStatistic(app_id, zone_id);
  }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
};

TEST_F(StatisticMgrTest, KeepsWhatWasMadeBeforeAFailedAllocation) {
  const test::Allocations allocations;
  test::clock_reads = 0;
  for (const int failing_allocation : {0, 1, -1}) {
    test::Allocations::Restart(failing_allocation);
    EXPECT_EQ(mgr.CreateStatisticMap(1, 10, 20), failing_allocation < 0 ? 0 : -9747);
  }
  EXPECT_EQ(logger.TakeText(),
            "300 CreateStatisticMap: new MapAccessIndex failed. m_access_index_map:0(NULL)\n"
            "700 CreateStatisticMap: allocate memory for MapAccessIndex:" +
                std::to_string(sizeof(MapAccessIndex)) +
                "\n300 CreateStatisticMap: new SERVICEAPISTATISTIC failed. "
                "service_api_statistic:0(NULL)\n"
                "700 CreateStatisticMap: allocate memory for SERVICEAPISTATISTIC:100056\n");
  EXPECT_EQ(test::clock_reads, 1) << "the second call made the option";
}

TEST_F(StatisticMgrTest, PairsAreSeparateAndRecordsNeverMove) {
  SERVICEAPISTATISTIC* const record = &Create(1, 2);
  for (int zone = 100; zone < 400; ++zone) EXPECT_NE(&Create(1, zone), record);
  EXPECT_EQ(mgr.GetServiceApiStatistic(1, 2), record);
  EXPECT_EQ(KorvainServiceStatisticMgr().GetAccessRunStatus(*record, 1, 2), nullptr);
  const auto is_own_pid = [this] { return Create(1, 3).stProcessInfo.iPid == getpid(); };
  EXPECT_EXIT(_exit(is_own_pid() ? 0 : 1), ::testing::ExitedWithCode(0), "") << "of a child";
}

TEST_F(StatisticMgrTest, TakesTheFirstAddressThatIsNotTheLoopback) {
  using Case = std::pair<std::vector<std::string>, std::string>;
  const std::string longest = "fe80:1111:2222:3333:4444:5555:6666:7777";
  test::FakePlatform platform;
  for (const auto& [interfaces, ip] : {
           Case{{"127.0.0.1", "192.0.2.7", "192.0.2.8"}, "192.0.2.7"},
           Case{{"127.0.0.1"}, "127.0.0.1"},
           Case{{"127.0.0.1", "::1", "192.0.2.7"}, "::1"},
           Case{{"127.0.0.10"}, "127.0.0.10"},
           Case{{"", "packet", "unnameable"}, "127.0.0.1"},
           Case{{"", "packet", "unnameable", longest}, longest},
       }) {
    platform.interfaces = interfaces;
    EXPECT_EQ(Create(10, 20).stProcessInfo.szIP, ip);
    EXPECT_EQ(platform.interface_lists_open, 0);
  }
  platform.errors[test::GETIFADDRS] = {EMFILE};
  EXPECT_EQ(Create(10, 20).stProcessInfo.szIP, std::string("127.0.0.1"));
}

TEST_F(StatisticMgrTest, CutsTextsToTheirFields) {
  SERVICEAPISTATISTIC& record = Create(10, 20);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp:/\0behind", 2, 80, ""), 0);
  EXPECT_STREQ(record.astAccessStatistic[0].stHostInfo.szUrl, "") << "shorter than any scheme";
  const std::string name(126, 'n');
  for (const auto& [end, index] : {std::pair("", 0), {"x", 1}, {"xyz", 1}, {"y", 2}, {"", 0}}) {
    EXPECT_EQ(mgr.AddTable(10, 20, (name + end).c_str()), index);
  }
  record.nTableCount = 257;
  EXPECT_EQ(mgr.AddTable(10, 20, name.c_str()), 0) << "known, whatever the count says";
}

TEST_F(StatisticMgrTest, RefusesNullTextsAndFullArrays) {
  SERVICEAPISTATISTIC& record = Create(10, 20);
  mgr.AddAccess(10, 20, "udp://a", 1, 80, "s");
  logger.TakeText();
  record.iAccessCount = 256;
  EXPECT_EQ(mgr.AddAccess(10, 20, nullptr, 1, 80, "s"), -1811);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://a", 1, 80, nullptr), -1811);
  EXPECT_EQ(mgr.AddTable(10, 20, nullptr), -1811);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://a", 2, 80, "s"), -256);
  record.nTableCount = 256;
  EXPECT_EQ(mgr.AddTable(10, 20, "t"), -256);
  EXPECT_EQ(logger.TakeText(),
            "300 AddAccess: NULL == url || NULL == svr_id\n"
            "300 AddAccess: NULL == url || NULL == svr_id\n"
            "300 AddTable: NULL == name || name is empty\n"
            "300 AddAccess: the access count(256) >=  STATISTIC_MAX_ACCESS_COUNT(256), can't add "
            "new table to table statisticapp_id:10, zone_id:20, url:udp://a\n"
            "300 AddTable: the table count(256) is not in 0 to STATISTIC_MAX_TABLE_COUNT(256) - 1, "
            "can't add new table. app_id:10, zone_id:20, name:t\n");
  mgr.Init(nullptr);
  mgr.AddTable(10, 20, nullptr);
  EXPECT_TRUE(logger.text.empty()) << "the last logger given is used";
}

TEST_F(StatisticMgrTest, NamesLiveInThreeTables) {
  mgr.SetSetIdAndName(5, "set");
  EXPECT_EQ(mgr.GetAppName(5), nullptr);
  mgr.SetAppIdAndName(5, "name");
  mgr.SetZoneIdAndName(5, nullptr);
  EXPECT_STREQ(mgr.GetSetName(5), "set");
  EXPECT_STREQ(mgr.GetAppName(5), "name");
  EXPECT_STREQ(mgr.GetZoneName(5), "");
  const char* const kept = mgr.GetAppName(5);
  for (int id = 100; id < 1000; ++id) mgr.SetAppIdAndName(id, "other");
  EXPECT_EQ(mgr.GetAppName(5), kept) << "valid until the id is set again";
  mgr.SetAppIdAndName(5, kept + 3);
  EXPECT_STREQ(mgr.GetAppName(5), "e") << "a name may be set from its own text";
}

TEST_F(StatisticMgrTest, AReportCarriesRatesMeansAndTheUserText) {
  SERVICEAPISTATISTIC& record = Create(10, 20);
  OVERALLRUNSTATUS& overall = record.stOverallRunStatus;
  ACCESSRUNSTATUS& last_access = record.astAccessStatistic[255].stAccessRunStatus;
  record.iAccessCount = 257;
  last_access.dwRequestCountPerMin = 71582790;  // sixty times as much wraps to 104
  overall.ullAverageDelay = 1000;
  overall.dwCalculateAverageDelayResCount = 3;
  test::clock_reads = 0;
  mgr.SetUserDefineText(10, 20, std::string(512, 't').c_str());
  EXPECT_EQ(test::clock_reads, 0) << "only new options take the time";
  mgr.CalculateAverage(10, 20, 1040);
  EXPECT_EQ(+last_access.dwRequestCountPerMin, 2u) << "of 2.6";
  EXPECT_EQ(+overall.ullAverageDelay, 333u);
  EXPECT_EQ(overall.szUserDefinedText, std::string(511, 't'));
  mgr.SetUserDefineText(10, 20, nullptr);
  mgr.CalculateAverage(10, 20, 1040);
  EXPECT_EQ(std::string(overall.szUserDefinedText, 512), std::string(512, 0));
}

TEST_F(StatisticMgrTest, AReportIsDueAtTheEndOfThePeriod) {
  EXPECT_EQ(mgr.GetBusinessId(10, 20), 0) << "without options";
  EXPECT_EQ(mgr.GetMetalibId(10, 20), 0);
  EXPECT_EQ(mgr.GetDynamicErrorCode(10, 20), 0);
  mgr.SetLastReportTime(10, 20, 1000);
  for (const auto& [given, period] : {std::pair(120, 120), {61, 61}, {59, 60}, {-5, 60}}) {
    mgr.SetReportPeriod(10, 20, given);
    EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, 1000 + period - 1)) << given;
    EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, 1000 + period)) << given;
  }
  mgr.SetLastReportTime(10, 21, 5000);
  mgr.CalculateAverage(10, 21, 4000);
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 21, 4060)) << "a pair without record, too";
}

}  // namespace
}  // namespace KorvainService
