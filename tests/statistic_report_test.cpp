#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "service_api/statistic_mgr.h"
#include "support/fake_platform.h"

namespace KorvainService {
namespace {

class StatisticReportTest : public ::testing::Test {
 protected:
  StatisticReportTest() {
    test::clock_ms = 1000999;
    mgr.CreateStatisticMap(1, 10, 20);
  }

  SERVICEAPISTATISTIC& Record() { return *mgr.GetServiceApiStatistic(10, 20); }
  OVERALLRUNSTATUS& Overall() { return Record().stOverallRunStatus; }

  KorvainServiceStatisticMgr mgr;
};

TEST_F(StatisticReportTest, AReportIsDueAfterThePeriod) {
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, 1059));
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, 1060)) << "last report at 1000, not 1001";
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, 1060)) << "until the time is set";
  mgr.SetLastReportTime(10, 20, 1060);
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, 1119));
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, 1120));
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 21, 999999)) << "no option";
  mgr.SetLastReportTime(10, 20, INT64_MIN);
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, INT64_MAX));
}

TEST_F(StatisticReportTest, PeriodsBelowAMinuteBecomeAMinute) {
  struct Case {
    int32_t period, stored;
  };
  for (const Case& row : {Case{30, 60}, Case{0, 60}, Case{-5, 60}, Case{59, 60}, Case{60, 60},
                          Case{61, 61}, Case{INT32_MAX, INT32_MAX}}) {
    mgr.SetReportPeriod(10, 20, row.period);
    mgr.SetReportPeriod(10, 33, row.period);  // makes an option
    for (const int zone : {20, 33}) {
      EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, zone, 1000 + int64_t{row.stored} - 1));
      EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, zone, 1000 + int64_t{row.stored}));
    }
  }
}

TEST_F(StatisticReportTest, AClockThatStepsBackRestartsThePeriod) {
  Overall().dwRequestCountPerMin = 5;
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, 1000));
  EXPECT_EQ(+Overall().dwRequestCountPerMin, 5u);
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, 999));
  EXPECT_EQ(+Overall().dwRequestCountPerMin, 0u);
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, 1059));

  for (const int64_t now : {int64_t{999}, int64_t{998}, int64_t{-7}}) {
    Overall().dwRequestCountPerMin = 5;
    mgr.CalculateAverage(10, 20, now);
    EXPECT_EQ(+Overall().dwRequestCountPerMin, 0u) << now;
    EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 20, now + 59));
    EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 20, now + 60));
  }
}

TEST_F(StatisticReportTest, SettersMakeOptionsThatCreateStatisticMapKeeps) {
  EXPECT_EQ(mgr.GetBusinessId(10, 21), 0);
  EXPECT_EQ(mgr.GetMetalibId(10, 21), 0);
  EXPECT_EQ(mgr.GetDynamicErrorCode(10, 21), 0);
  test::clock_ms = -1999;
  mgr.SetBusinessId(10, 21, -3);
  test::clock_ms = 5000000;
  mgr.SetMetalibId(10, 21, 4);
  mgr.SetDynamicErrorCode(10, 21, 5);
  EXPECT_EQ(mgr.GetBusinessId(21, 10), 0) << "another pair";
  mgr.SetBusinessId(21, 10, 6);
  mgr.CreateStatisticMap(1, 10, 21);
  EXPECT_EQ(mgr.GetBusinessId(10, 21), -3);
  EXPECT_EQ(mgr.GetMetalibId(10, 21), 4);
  EXPECT_EQ(mgr.GetDynamicErrorCode(10, 21), 5);
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(10, 21, 58));
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(10, 21, 59)) << "made at second -1";
}

TEST_F(StatisticReportTest, RatesWrapAndTruncate) {
  struct Case {
    int64_t seconds;
    uint32_t count, rate;
  };
  for (const Case& row :
       {Case{30, 30, 60}, Case{30, 1, 2}, Case{120, 1, 0}, Case{119, 2, 1}, Case{60, 7, 7},
        Case{60, 71582788, 71582788}, Case{60, 71582789, 0}, Case{1, 71582789, 44},
        Case{1, UINT32_MAX, 4294967236u}, Case{INT64_MAX - 1000, UINT32_MAX, 0}}) {
    Overall().dwRequestCountPerMin = row.count;
    mgr.CalculateAverage(10, 20, 1000 + row.seconds);
    EXPECT_EQ(+Overall().dwRequestCountPerMin, row.rate) << row.count << " in " << row.seconds;
  }
}

// Each 32-bit field of a record after averaging over two minutes, when every one held 100: whether
// it was halved tells whether it is a counter.
template <class Status>
std::vector<size_t> FieldsKept(const Status& status, size_t begin, size_t end) {
  std::vector<size_t> kept;
  for (size_t offset = begin; offset + 4 <= end; offset += 4) {
    uint32_t value = 0;
    memcpy(&value, reinterpret_cast<const char*>(&status) + offset, 4);
    if (value != 50) kept.push_back(offset);
  }
  return kept;
}

template <class Status>
void FillWith100(Status& status) {
  for (size_t offset = sizeof(Status) % 4; offset + 4 <= sizeof(Status); offset += 4) {
    const uint32_t value = 100;
    memcpy(reinterpret_cast<char*>(&status) + offset, &value, 4);
  }
}

TEST_F(StatisticReportTest, RescalesEveryCounterInUseAndNothingElse) {
  SERVICEAPISTATISTIC& record = Record();
  FillWith100(Overall());
  record.nTableCount = 2;
  record.iAccessCount = 2;
  for (int i = 0; i < 3; ++i) {
    FillWith100(record.astTableStatistic[i].stTableRunStatus);
    FillWith100(record.astAccessStatistic[i].stAccessRunStatus);
  }
  mgr.CalculateAverage(10, 20, 1120);

  const size_t overall_delay = offsetof(OVERALLRUNSTATUS, ullAverageDelay);
  EXPECT_EQ(FieldsKept(Overall(), 2, offsetof(OVERALLRUNSTATUS, szUserDefinedText)),
            (std::vector<size_t>{overall_delay, overall_delay + 4, overall_delay + 8,
                                 offsetof(OVERALLRUNSTATUS, dwMaxCallOnUpdateInterval)}));
  const size_t access_delay = offsetof(ACCESSRUNSTATUS, ullAverageDelay);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(FieldsKept(record.astTableStatistic[i].stTableRunStatus, 0, 48),
              std::vector<size_t>{});
    EXPECT_EQ(FieldsKept(record.astAccessStatistic[i].stAccessRunStatus, 0, 52),
              (std::vector<size_t>{access_delay, access_delay + 4, access_delay + 8}));
  }
  EXPECT_EQ(FieldsKept(record.astTableStatistic[2].stTableRunStatus, 0, 48).size(), 12u);
  EXPECT_EQ(FieldsKept(record.astAccessStatistic[2].stAccessRunStatus, 0, 52).size(), 13u);
}

TEST_F(StatisticReportTest, DelaySumsBecomeMeans) {
  mgr.AddAccess(10, 20, "udp://a", 1, 2, "s");
  ACCESSRUNSTATUS& access = *mgr.GetAccessRunStatus(10, 20, 1, 2);
  struct Case {
    uint64_t sum;
    uint32_t samples;
    uint64_t mean;
  };
  for (const Case& row : {Case{1000, 3, 333}, Case{77, 0, 77}, Case{15000000000, 3, 5000000000},
                          Case{UINT64_MAX, 1, UINT64_MAX}, Case{UINT32_MAX, UINT32_MAX, 1}}) {
    Overall().ullAverageDelay = access.ullAverageDelay = row.sum;
    Overall().dwCalculateAverageDelayResCount = row.samples;
    access.dwCalculateAverageDelayResCount = row.samples;
    mgr.CalculateAverage(10, 20, 1060);
    EXPECT_EQ(+Overall().ullAverageDelay, row.mean);
    EXPECT_EQ(+Overall().dwCalculateAverageDelayResCount, row.samples);
    EXPECT_EQ(+access.ullAverageDelay, row.mean);
    EXPECT_EQ(+access.dwCalculateAverageDelayResCount, row.samples);
  }
}

TEST_F(StatisticReportTest, CopiesTheUserTextIntoEachReport) {
  mgr.SetUserDefineText(10, 20, std::string(600, 't').c_str());
  mgr.CalculateAverage(10, 20, 1060);
  EXPECT_EQ(std::string(Overall().szUserDefinedText), std::string(511, 't'));
  mgr.SetUserDefineText(10, 20, "short");
  mgr.Reset(10, 20);
  mgr.CalculateAverage(10, 20, 1060);
  EXPECT_EQ(std::string(Overall().szUserDefinedText, 512), "short" + std::string(507, '\0'));
  mgr.SetUserDefineText(10, 20, nullptr);
  mgr.CalculateAverage(10, 20, 1060);
  EXPECT_STREQ(Overall().szUserDefinedText, "");
}

TEST_F(StatisticReportTest, WalksNoFurtherThanItsArrays) {
  SERVICEAPISTATISTIC& record = Record();
  struct Case {
    int16_t tables;
    int32_t accesses;
    uint32_t last;  // counter of the last entry, 100 before, over two minutes
  };
  for (const Case& row : {Case{257, 257, 50}, Case{INT16_MAX, INT32_MAX, 50}, Case{-1, -1, 100},
                          Case{INT16_MIN, INT32_MIN, 100}, Case{0, 0, 100}}) {
    TABLERUNSTATUS& table = record.astTableStatistic[255].stTableRunStatus;
    ACCESSRUNSTATUS& access = record.astAccessStatistic[255].stAccessRunStatus;
    record.nTableCount = row.tables;
    record.iAccessCount = row.accesses;
    table.dwSuccessResponseCountPerMin = 100;
    access.dwDynamicErrCountPerMin = 100;
    mgr.CalculateAverage(10, 20, 1120);
    EXPECT_EQ(+table.dwSuccessResponseCountPerMin, row.last) << row.tables;
    EXPECT_EQ(+access.dwDynamicErrCountPerMin, row.last) << row.accesses;
    EXPECT_EQ(record.nTableCount, row.tables);
    EXPECT_EQ(record.iAccessCount, row.accesses);
  }
}

TEST(StatisticReport, NeedsNoRecord) {
  KorvainServiceStatisticMgr mgr;
  mgr.CalculateAverage(1, 2, 3);
  test::clock_ms = 0;
  mgr.SetReportPeriod(1, 2, 60);
  mgr.CalculateAverage(1, 2, 3);
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(1, 2, 60)) << "the last report time was left alone";
  mgr.CalculateAverage(1, 2, -3);
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(1, 2, 56));
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(1, 2, 57)) << "a clock gone back moves it";
}

}  // namespace
}  // namespace KorvainService
