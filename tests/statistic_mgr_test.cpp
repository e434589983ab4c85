#include "service_api/statistic_mgr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::ERROR;
using test::LogLines;

class StatisticMgrTest : public ::testing::Test {
 protected:
  StatisticMgrTest() { mgr.Init(&logger); }

  SERVICEAPISTATISTIC& Create(int set_id, int app_id, int zone_id) {
    EXPECT_EQ(mgr.CreateStatisticMap(set_id, app_id, zone_id), 0);
    logger.Take();
    return *mgr.GetServiceApiStatistic(app_id, zone_id);
  }

  std::string LocalIp(const std::vector<std::string>& interfaces) {
    test::FakePlatform platform;
    platform.interfaces = interfaces;
    const std::string ip = Create(1, 10, 20).stProcessInfo.szIP;
    EXPECT_EQ(platform.interface_lists_open, 0);
    return ip;
  }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
};

TEST_F(StatisticMgrTest, ANewRecordIsZeroButForItsIdentity) {
  EXPECT_EQ(mgr.CreateStatisticMap(1, 10, 20), 0);
  EXPECT_EQ(
      logger.Take(),
      (LogLines{{DEBUG, "CreateStatisticMap",
                 "allocate memory for MapAccessIndex:" + std::to_string(sizeof(MapAccessIndex))},
                {DEBUG, "CreateStatisticMap", "allocate memory for SERVICEAPISTATISTIC:100056"}}));
  EXPECT_TRUE(logger.is_place_sound);
  const SERVICEAPISTATISTIC* const created = mgr.GetServiceApiStatistic(10, 20);
  ASSERT_NE(created, nullptr);
  const SERVICEAPISTATISTIC& record = *created;
  auto expected = std::make_unique<SERVICEAPISTATISTIC>();
  expected->iSetID = 1;
  expected->iAppID = 10;
  expected->iZoneID = 20;
  memcpy(expected->stProcessInfo.szIP, record.stProcessInfo.szIP, 128);
  expected->stProcessInfo.iPid = getpid();
  EXPECT_NE(record.stProcessInfo.szIP[0], '\0');
  EXPECT_EQ(memcmp(expected.get(), &record, sizeof(record)), 0);
}

TEST_F(StatisticMgrTest, CreatingAgainRefreshesTheIdentityOnly) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  mgr.AddAccess(10, 20, "tcp://a", 1, 2, "s");
  record.stOverallRunStatus.dwRequestCountPerMin = 5;
  record.stProcessInfo.iPid = 0;
  const SERVICEAPISTATISTIC& again = Create(2, 10, 20);
  EXPECT_EQ(&again, &record);
  EXPECT_EQ(record.iSetID, 2);
  EXPECT_EQ(record.stProcessInfo.iPid, getpid());
  EXPECT_EQ(+record.stOverallRunStatus.dwRequestCountPerMin, 5u);
  EXPECT_EQ(record.iAccessCount, 1);
}

TEST_F(StatisticMgrTest, PairsAreSeparate) {
  SERVICEAPISTATISTIC* const records[] = {&Create(1, 1, 2), &Create(1, 2, 1), &Create(1, 1, 1),
                                          &Create(1, -1, 0), &Create(1, 0, -1)};
  for (int i = 0; i < 5; ++i) {
    for (int j = 0; j < i; ++j) EXPECT_NE(records[i], records[j]);
  }
  for (int zone = 100; zone < 400; ++zone) Create(1, 1, zone);
  EXPECT_EQ(mgr.GetServiceApiStatistic(1, 2), records[0]) << "records never move";
  EXPECT_EQ(mgr.GetServiceApiStatistic(0, -1), records[4]);
  EXPECT_EQ(mgr.GetServiceApiStatistic(-1, -1), nullptr);
  EXPECT_TRUE(logger.lines.empty());
}

TEST_F(StatisticMgrTest, FailedAllocationsLeaveWhatWasMadeBefore) {
  const test::Allocations allocations;
  test::Allocations::Restart(0);
  EXPECT_EQ(mgr.CreateStatisticMap(1, 10, 20), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "CreateStatisticMap",
                                      "new MapAccessIndex failed. m_access_index_map:0(NULL)"}}));
  test::clock_reads = 0;
  test::Allocations::Restart(1);
  EXPECT_EQ(mgr.CreateStatisticMap(1, 10, 20), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(logger.Take().back(),
            (test::LogLine{ERROR, "CreateStatisticMap",
                           "new SERVICEAPISTATISTIC failed. service_api_statistic:0(NULL)"}));
  EXPECT_EQ(test::clock_reads, 1) << "the option was made";
  test::Allocations::Restart();
  EXPECT_EQ(mgr.CreateStatisticMap(1, 10, 20), 0);
  EXPECT_EQ(test::clock_reads, 1) << "and was kept";
}

TEST_F(StatisticMgrTest, SurvivesEveryFailedAllocationOfAMap) {
  for (int64_t failing = 0;; ++failing) {
    const int64_t outstanding = test::Allocations::Outstanding();
    bool has_thrown = false;
    {
      KorvainServiceStatisticMgr fresh;
      const test::Allocations allocations;
      test::Allocations::Restart(-1, failing);
      try {
        fresh.CreateStatisticMap(1, 10, 20);
        fresh.AddAccess(10, 20, "udp://x", 1, 2, "s");
        fresh.SetAppIdAndName(10, "a name that is too long to be stored in place");
      } catch (const std::bad_alloc&) {
        has_thrown = true;
      }
      test::Allocations::Restart();
      EXPECT_EQ(fresh.CreateStatisticMap(1, 10, 20), 0);
      EXPECT_EQ(fresh.AddAccess(10, 20, "udp://x", 1, 2, "s"), 0);
      EXPECT_EQ(fresh.GetServiceApiStatistic(10, 20)->iAccessCount, 1);
    }
    EXPECT_EQ(test::Allocations::Outstanding(), outstanding);
    if (!has_thrown) {
      EXPECT_GE(failing, 4);
      break;
    }
  }
}

TEST_F(StatisticMgrTest, TakesTheFirstAddressThatIsNotTheLoopback) {
  struct Case {
    std::vector<std::string> interfaces;
    const char* ip;
  };
  const std::string link_local = "fe80::1:2";
  const std::string longest = "fe80:1111:2222:3333:4444:5555:6666:7777";
  for (const Case& row :
       {Case{{"127.0.0.1", "192.0.2.7", "192.0.2.8"}, "192.0.2.7"}, Case{{}, "127.0.0.1"},
        Case{{"127.0.0.1"}, "127.0.0.1"}, Case{{"127.0.0.1", "::1", "192.0.2.7"}, "::1"},
        Case{{"127.0.0.10"}, "127.0.0.10"}, Case{{"", "packet", "unnameable"}, "127.0.0.1"},
        Case{{"", "packet", "unnameable", link_local}, "fe80::1:2"},
        Case{{"127.0.0.1", longest}, longest.c_str()}}) {
    EXPECT_EQ(LocalIp(row.interfaces), row.ip);
  }
  test::FakePlatform platform;
  platform.is_getifaddrs_failing = true;
  EXPECT_STREQ(Create(1, 10, 20).stProcessInfo.szIP, "127.0.0.1");
}

TEST_F(StatisticMgrTest, ResetClearsThePeriodOnly) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  auto expected = std::make_unique<SERVICEAPISTATISTIC>(record);
  mgr.AddAccess(10, 20, "udp://10.0.0.1:80", 1, 80, "svr");
  const size_t identity = offsetof(SERVICEAPISTATISTIC, nTableCount);
  memset(reinterpret_cast<char*>(&record) + identity, 0x5A, sizeof(record) - identity);
  mgr.Reset(10, 20);
  EXPECT_EQ(memcmp(&record, expected.get(), sizeof(record)), 0);
  EXPECT_EQ(mgr.FindAccessIndex(20, 1, 80), 0) << "the index is not told";
  EXPECT_EQ(mgr.GetAccessRunStatus(record, 1, 80), nullptr);
  logger.Take();
  mgr.Reset(11, 20);
  EXPECT_TRUE(logger.lines.empty());
}

TEST_F(StatisticMgrTest, FindsTheCountersOfAnAccess) {
  EXPECT_EQ(mgr.GetAccessRunStatus(10, 20, 1, 80), nullptr);
  EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "GetAccessRunStatus",
                                      "GetServiceApiStatistic() failed. app_id:10, zone_id:20"}}));
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  mgr.AddAccess(10, 20, "udp://a", 1, 80, "");
  mgr.AddAccess(10, 20, "udp://b", 1, 81, "");
  logger.Take();
  EXPECT_EQ(mgr.GetAccessRunStatus(10, 20, 1, 81), &record.astAccessStatistic[1].stAccessRunStatus);
  EXPECT_EQ(mgr.GetAccessRunStatus(record, 1, 82), nullptr);
  record.iAccessCount = 1;
  EXPECT_EQ(mgr.GetAccessRunStatus(10, 20, 1, 81), nullptr);
  EXPECT_TRUE(logger.lines.empty());
}

TEST_F(StatisticMgrTest, RegistersAccessesOnce) {
  EXPECT_EQ(mgr.FindAccessIndex(20, 1, 80), -1);
  mgr.ClearAccess(20);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://a", 1, 80, "s"), GEN_ERR_ERR);
  EXPECT_EQ(
      logger.Take(),
      (LogLines{{ERROR, "AddAccess", "m_statistic_map.find() failed. app_id:10, zone_id:20"}}));
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  SERVICEAPISTATISTIC& other = Create(1, 11, 20);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://10.0.0.1:80", 1, 80, "svr-1"), 0);
  EXPECT_EQ(logger.Take(),
            (LogLines{{DEBUG, "AddAccess",
                       "m_access_index_map->Insert() success. access count:1, app_id:10, "
                       "zone_id:20, url:udp://10.0.0.1:80, svr_id:svr-1"}}));
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://other", 1, 80, "svr-2"), 0);
  EXPECT_EQ(mgr.AddAccess(11, 20, "udp://10.0.0.1:80", 1, 80, "svr-1"), 0);
  EXPECT_EQ(mgr.AddAccess(99, 20, "udp://10.0.0.1:80", 1, 80, "svr-1"), 0);
  EXPECT_TRUE(logger.Take().empty());
  EXPECT_EQ(record.iAccessCount, 1);
  EXPECT_EQ(other.iAccessCount, 0);
  EXPECT_STREQ(record.astAccessStatistic[0].stHostInfo.szUrl, "10.0.0.1:80");
  EXPECT_STREQ(record.astAccessStatistic[0].stHostInfo.szSvrId, "svr-1");

  mgr.Reset(10, 20);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://10.0.0.1:80", 1, 80, "svr-1"), 0);
  EXPECT_EQ(record.iAccessCount, 0) << "known to the index";
  mgr.ClearAccess(20);
  EXPECT_EQ(mgr.AddAccess(10, 20, "udp://10.0.0.1:80", 1, 80, "svr-1"), 0);
  EXPECT_EQ(record.iAccessCount, 1);
}

TEST_F(StatisticMgrTest, RefusesNullTextsAndFullRecords) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  for (const auto& [url, svr_id] : {std::pair<const char*, const char*>{nullptr, "s"},
                                    {"udp://a", nullptr},
                                    {nullptr, nullptr}}) {
    EXPECT_EQ(mgr.AddAccess(10, 20, url, 1, 80, svr_id), API_ERR_PARAMETER_INVALID);
    EXPECT_EQ(logger.Take(), (LogLines{{ERROR, "AddAccess", "NULL == url || NULL == svr_id"}}));
  }
  for (int i = 0; i < 256; ++i) EXPECT_EQ(mgr.AddAccess(10, 20, "udp://a", i, 80, "s"), 0);
  logger.Take();
  const std::string expected =
      ") >=  STATISTIC_MAX_ACCESS_COUNT(256), can't add new table to table statisticapp_id:10, "
      "zone_id:20, url:udp://b";
  for (const int32_t count : {256, 1000, -1}) {
    record.iAccessCount = count;
    EXPECT_EQ(mgr.AddAccess(10, 20, "udp://b", 256, 80, "s"), GEN_ERR_ERR);
    EXPECT_EQ(
        logger.Take(),
        (LogLines{{ERROR, "AddAccess", "the access count(" + std::to_string(count) + expected}}));
    EXPECT_EQ(record.iAccessCount, count);
    EXPECT_EQ(mgr.FindAccessIndex(20, 256, 80), -1);
  }
}

TEST_F(StatisticMgrTest, CutsTextsToTheirFields) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  struct Case {
    std::string url, svr_id, stored_url, stored_svr_id;
  };
  const std::string digits(250, '7');
  const Case table[] = {
      {"", "", "", ""},
      {"udp:/", "s", "", "s"},
      {"udp://", "s", "", "s"},
      {"123456x", std::string(31, 'i'), "x", std::string(31, 'i')},
      {"udp://" + digits.substr(0, 127), std::string(32, 'i'), digits.substr(0, 127),
       std::string(31, 'i')},
      {"udp://" + digits.substr(0, 128), digits, digits.substr(0, 127), digits.substr(0, 31)},
      {"udp://" + digits, digits, digits.substr(0, 127), digits.substr(0, 31)},
  };
  int port = 0;
  for (const Case& row : table) {
    STATISTICHOSTINFO& host = record.astAccessStatistic[record.iAccessCount].stHostInfo;
    memset(&host, 'x', sizeof(host));
    EXPECT_EQ(mgr.AddAccess(10, 20, row.url.c_str(), 1, ++port, row.svr_id.c_str()), 0);
    STATISTICHOSTINFO expected{};
    memcpy(expected.szUrl, row.stored_url.data(), row.stored_url.size());
    memcpy(expected.szSvrId, row.stored_svr_id.data(), row.stored_svr_id.size());
    EXPECT_EQ(memcmp(&host, &expected, sizeof(host)), 0) << row.url;
  }
}

TEST_F(StatisticMgrTest, EntersTablesByName) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  const std::string name_127(127, 'n');
  EXPECT_EQ(mgr.AddTable(10, 20, "orders"), 0);
  EXPECT_EQ(mgr.AddTable(10, 20, "order"), 1);
  EXPECT_EQ(mgr.AddTable(10, 20, (name_127 + "one").c_str()), 2);
  EXPECT_EQ(mgr.AddTable(10, 20, (name_127 + "other").c_str()), 2);
  EXPECT_EQ(mgr.AddTable(10, 20, name_127.substr(1).c_str()), 3);
  EXPECT_EQ(mgr.AddTable(10, 20, "orders"), 0);
  EXPECT_EQ(+record.nTableCount, 4);
  EXPECT_EQ(record.astTableStatistic[2].szTableName, name_127);
  EXPECT_EQ(mgr.AddTable(10, 20, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(mgr.AddTable(10, 20, ""), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(mgr.AddTable(10, 21, "orders"), GEN_ERR_ERR);
  const std::string no_name = "NULL == name || name is empty";
  EXPECT_EQ(
      logger.Take(),
      (LogLines{{ERROR, "AddTable", no_name},
                {ERROR, "AddTable", no_name},
                {ERROR, "AddTable", "m_statistic_map.find() failed. app_id:10, zone_id:21"}}));

  record.nTableCount = 1;
  EXPECT_EQ(mgr.AddTable(10, 20, "order"), 1) << "a name beyond the count is not in use";
  EXPECT_EQ(+record.nTableCount, 2);
  mgr.Reset(10, 20);
  EXPECT_EQ(mgr.AddTable(10, 20, "order"), 0);
}

TEST_F(StatisticMgrTest, RefusesNewTablesWhereTheArrayIsFullOrItsCountWrong) {
  SERVICEAPISTATISTIC& record = Create(1, 10, 20);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(mgr.AddTable(10, 20, ("t" + std::to_string(i)).c_str()), i);
  }
  struct Case {
    int16_t count;
    int index_of_the_last;
  };
  for (const Case& row : {Case{256, 255}, Case{257, 255}, Case{INT16_MAX, 255},
                          Case{-1, GEN_ERR_ERR}, Case{INT16_MIN, GEN_ERR_ERR}}) {
    record.nTableCount = row.count;
    EXPECT_EQ(mgr.AddTable(10, 20, "t255"), row.index_of_the_last) << row.count;
    logger.Take();
    EXPECT_EQ(mgr.AddTable(10, 20, "new"), GEN_ERR_ERR) << row.count;
    EXPECT_EQ(logger.Take(),
              (LogLines{{ERROR, "AddTable",
                         "the table count(" + std::to_string(row.count) +
                             ") is not in 0 to STATISTIC_MAX_TABLE_COUNT(256) - 1, can't add new "
                             "table. app_id:10, zone_id:20, name:new"}}));
    EXPECT_EQ(+record.nTableCount, row.count);
  }
}

TEST(StatisticMgr, WorksWithoutALogger) {
  KorvainServiceStatisticMgr mgr;
  EXPECT_EQ(mgr.GetAccessRunStatus(1, 2, 3, 4), nullptr);
  EXPECT_EQ(mgr.AddAccess(1, 2, nullptr, 3, 4, nullptr), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(mgr.AddAccess(1, 2, "udp://a", 3, 4, "s"), GEN_ERR_ERR);
  EXPECT_EQ(mgr.CreateStatisticMap(1, 1, 2), 0);
  EXPECT_EQ(mgr.AddAccess(1, 2, "udp://a", 3, 4, "s"), 0);
}

// Each line names its source file, without a path, and the line in it.
TEST_F(StatisticMgrTest, LinesSayWhereTheyComeFrom) {
  struct Case {
    const char* file;
    const char* text;
    std::function<void()> cause;
  };
  const std::string root = KORVAIN_SOURCE_DIR "/src/service_api/";
  for (const Case& row : {Case{"statistic_entries.cpp", "NULL == url || NULL == svr_id",
                               [this] { mgr.AddAccess(1, 2, nullptr, 3, 4, "s"); }},
                          Case{"statistic_entries.cpp", "NULL == name || name is empty",
                               [this] { mgr.AddTable(1, 2, nullptr); }},
                          Case{"statistic_mgr.cpp", "allocate memory for MapAccessIndex",
                               [this] { mgr.CreateStatisticMap(1, 2, 3); }}}) {
    row.cause();
    const test::LogLine logged = logger.Take().front();
    EXPECT_EQ(logged.file, row.file);
    std::ifstream source(root + row.file);
    bool is_near = false;
    std::string text;
    for (int line = 1; std::getline(source, text); ++line) {
      is_near = is_near ||
                (std::abs(line - logged.line) <= 3 && text.find(row.text) != std::string::npos);
    }
    EXPECT_TRUE(is_near) << row.text << " is not at line " << logged.line;
  }
}

TEST_F(StatisticMgrTest, TheLastLoggerGivenIsUsed) {
  test::RecordingLogger other;
  mgr.Init(&other);
  mgr.AddTable(1, 2, nullptr);
  EXPECT_EQ(other.Take().size(), 1u);
  mgr.Init(nullptr);
  mgr.AddTable(1, 2, nullptr);
  EXPECT_TRUE(other.Take().empty());
  EXPECT_TRUE(logger.Take().empty());
}

TEST(StatisticMgr, NamesLiveInThreeTables) {
  KorvainServiceStatisticMgr mgr;
  mgr.SetSetIdAndName(5, "set");
  EXPECT_EQ(mgr.GetAppName(5), nullptr);
  EXPECT_EQ(mgr.GetZoneName(5), nullptr);
  mgr.SetAppIdAndName(5, "first");
  mgr.SetAppIdAndName(5, "second");
  mgr.SetZoneIdAndName(5, "");
  mgr.SetZoneIdAndName(-1, nullptr);
  EXPECT_STREQ(mgr.GetSetName(5), "set");
  EXPECT_STREQ(mgr.GetAppName(5), "second");
  EXPECT_STREQ(mgr.GetZoneName(5), "");
  EXPECT_STREQ(mgr.GetZoneName(-1), "");
  const std::string long_name(1000, 'n');
  mgr.SetAppIdAndName(6, long_name.c_str());
  const char* const kept = mgr.GetAppName(6);
  for (int id = 100; id < 1000; ++id) mgr.SetAppIdAndName(id, "other");
  EXPECT_EQ(mgr.GetAppName(6), kept) << "valid until the id is set again";
  mgr.SetAppIdAndName(6, mgr.GetAppName(6) + 990);
  EXPECT_STREQ(mgr.GetAppName(6), "nnnnnnnnnn") << "a name may be set from its own text";
}

}  // namespace
}  // namespace KorvainService
