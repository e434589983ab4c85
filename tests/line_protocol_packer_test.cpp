#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "line_protocol/report_packer.h"
#include "support/record_text.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

using test::ReadLine;
using test::SetText;

// Gives the numbers 1, 2, 3 and so on to consecutive counters.
void Count(void* first, uint32_t counters) {
  for (uint32_t i = 1; i <= counters; ++i) {
    memcpy(static_cast<char*>(first) + (i - 1) * sizeof(i), &i, sizeof(i));
  }
}

class ReportPackerTest : public ::testing::Test {
 protected:
  void SetCounts(int16_t tables, int32_t accesses) {
    record->nTableCount = tables;
    record->iAccessCount = accesses;
  }

  std::vector<ReadLine> Pack() { return test::ReadLines(PackReport(*record, settings)); }

  const std::unique_ptr<SERVICEAPISTATISTIC> record = std::make_unique<SERVICEAPISTATISTIC>();
  OVERALLRUNSTATUS& overall = record->stOverallRunStatus;
  ACCESSSTATISTIC& access = record->astAccessStatistic[0];
  ReportSettings settings;
};

TEST_F(ReportPackerTest, WritesThisSchema) {
  SetCounts(1, 1);
  record->stProcessInfo.iPid = 4711;
  overall.nAccessCount = -3;
  Count(reinterpret_cast<char*>(&overall) + sizeof(int16_t), 11);
  overall.ullAverageDelay = 12;
  overall.dwCalculateAverageDelayResCount = 13;
  overall.dwDynamicErrCountPerMin = 14;
  overall.dwMaxCallOnUpdateInterval = 4294967295;
  SetText(overall.szUserDefinedText, "now \"up\"");
  SetText(record->astTableStatistic[0].szTableName, "users");
  Count(&record->astTableStatistic[0].stTableRunStatus, 12);
  SetText(access.stHostInfo.szUrl, "10.0.0.2:9000");
  SetText(access.stHostInfo.szSvrId, "proxy-1");
  Count(&access.stAccessRunStatus, sizeof(ACCESSRUNSTATUS) / sizeof(uint32_t));
  access.stAccessRunStatus.ullAverageDelay = 7;
  settings = {"set", "shop", "east", "shop-1", 60, 1700000000000000000, nullptr};
  std::string text = "before\n";
  AppendReport(*record, settings, text);
  EXPECT_EQ(text,
            "before\n"
            "korvain_overall,set_name=set,app=shop,zone=east,instance=shop-1 "
            "access_errors_per_min=1i,send_errors_per_min=2i,recv_errors_per_min=3i,"
            "route_errors_per_min=4i,unpack_errors_per_min=5i,requests_per_min=6i,"
            "batch_requests_per_min=7i,responses_per_min=8i,batch_responses_per_min=9i,"
            "success_responses_per_min=10i,timeouts_per_min=11i,dynamic_errors_per_min=14i,"
            "delay_samples=13i,delay_ms=12i,known_accesses=-3i,max_update_interval=4294967295i,"
            "table_lines=1i,access_lines=1i,pid=4711i,user_text=\"now \\\"up\\\"\",period_s=60i "
            "1700000000000000000\n"
            "korvain_table,set_name=set,app=shop,zone=east,instance=shop-1,table=users "
            "query_errors_per_min=1i,insert_errors_per_min=2i,update_errors_per_min=3i,"
            "replace_errors_per_min=4i,delete_errors_per_min=5i,pack_errors_per_min=6i,"
            "other_errors_per_min=7i,requests_per_min=8i,batch_requests_per_min=9i,"
            "responses_per_min=10i,batch_responses_per_min=11i,success_responses_per_min=12i,"
            "period_s=60i 1700000000000000000\n"
            "korvain_access,set_name=set,app=shop,zone=east,instance=shop-1,url=10.0.0.2:9000,"
            "server=proxy-1 requests_per_min=1i,batch_requests_per_min=2i,responses_per_min=3i,"
            "batch_responses_per_min=4i,success_responses_per_min=5i,timeouts_per_min=6i,"
            "proxy_errors_per_min=10i,proxy_system_errors_per_min=11i,korvsvr_errors_per_min=12i,"
            "dynamic_errors_per_min=13i,delay_samples=9i,delay_ms=7i,period_s=60i "
            "1700000000000000000\n");
}

TEST_F(ReportPackerTest, WhatIsNotGivenIsReplacedOrLeftOut) {
  record->iSetID = -2147483647 - 1;
  record->iAppID = 10;
  SetCounts(2, 1);
  record->stProcessInfo.iPid = 4711;
  settings.app_name = settings.instance = "";
  using Tags = std::map<std::string, std::string>;
  const Tags common = {
      {"set_name", "-2147483648"}, {"app", "10"}, {"zone", "0"}, {"instance", "4711"}};
  std::vector<ReadLine> lines = Pack();
  ASSERT_EQ(lines.size(), 4u);
  Tags tags[] = {common, common, common, common};
  tags[1]["table"] = "#0";
  tags[2]["table"] = "#1";
  tags[3]["url"] = "#0";
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].tags, tags[i]);
    EXPECT_EQ(lines[i].numbers.count("period_s") + lines[i].numbers.count("delay_ms"), 0u);
    EXPECT_EQ(lines[i].numbers.count("delay_samples"), i == 0 || i == 3 ? 1u : 0u);
    EXPECT_TRUE(lines[i].texts.empty());
    EXPECT_FALSE(lines[i].timestamp);
  }
  SetText(record->stProcessInfo.szIP, "10.0.0.1");
  EXPECT_EQ(Pack()[0].tags["instance"], "10.0.0.1-4711");
}

TEST_F(ReportPackerTest, ADelayNeedsASampleAndFitsItsType) {
  const struct {
    uint64_t mean;
    uint32_t samples;
    int64_t written;  // -1: not at all
  } rows[] = {{5, 0, -1},
              {0, 1, 0},
              {INT64_MAX, 4294967295, INT64_MAX},
              {uint64_t{INT64_MAX} + 1, 1, INT64_MAX},
              {UINT64_MAX, 1, INT64_MAX}};
  SetCounts(0, 1);
  for (const auto& row : rows) {
    overall.ullAverageDelay = access.stAccessRunStatus.ullAverageDelay = row.mean;
    overall.dwCalculateAverageDelayResCount = row.samples;
    access.stAccessRunStatus.dwCalculateAverageDelayResCount = row.samples;
    for (const ReadLine& line : Pack()) {
      const auto delay = line.numbers.find("delay_ms");
      EXPECT_EQ(delay == line.numbers.end() ? -1 : delay->second, row.written) << row.mean;
      EXPECT_EQ(line.numbers.at("delay_samples"), row.samples);
    }
  }
}

TEST_F(ReportPackerTest, TheCallerAddsFieldsToAccesses) {
  SetCounts(2, 2);
  settings.access_fields = [](int32_t slot, const AddField& add) {
    if (slot == 1) add("in service", INT64_MIN);
    add("", 5);
    add("bad_cycles", slot);
  };
  const std::vector<ReadLine> lines = Pack();
  ASSERT_EQ(lines.size(), 5u);
  const size_t access_fields = 12;  // ten rates, delay_samples, bad_cycles
  EXPECT_EQ(lines[2].numbers.count("bad_cycles"), 0u) << "a table";
  EXPECT_EQ(lines[3].numbers.size(), access_fields);
  EXPECT_EQ(lines[3].numbers.at("bad_cycles"), 0);
  EXPECT_EQ(lines[4].numbers.size(), access_fields + 1);
  EXPECT_EQ(lines[4].numbers.at("bad_cycles"), 1);
  EXPECT_EQ(lines[4].numbers.at("in service"), INT64_MIN);
}

TEST_F(ReportPackerTest, ReadsNoFurtherThanArraysAndTexts) {
  const struct {
    int16_t tables;
    int32_t accesses;
    size_t table_lines, access_lines;
  } rows[] = {{-1, INT32_MIN, 0, 0},
              {256, 255, 256, 255},
              {257, 257, 256, 256},
              {INT16_MAX, INT32_MAX, 256, 256}};
  memset(record.get(), 'x', sizeof(*record));  // and no NUL anywhere
  access.stHostInfo.szUrl[127] = '\\';         // "\x" with the byte behind the array
  memcpy(record->astTableStatistic[0].szTableName + 127, "\xC3\xBC", 2);  // a letter across its end
  for (const auto& row : rows) {
    SetCounts(row.tables, row.accesses);
    const std::vector<ReadLine> lines = Pack();
    ASSERT_EQ(lines.size(), 1 + row.table_lines + row.access_lines);
    EXPECT_EQ(lines[0].numbers.at("table_lines"), row.table_lines);
    EXPECT_EQ(lines[0].numbers.at("access_lines"), row.access_lines);
    EXPECT_EQ(lines[0].tags.at("instance"), std::string(128, 'x') + "-2021161080");
    EXPECT_EQ(lines[0].texts.at("user_text"), std::string(512, 'x'));
    if (row.table_lines == 0) continue;
    EXPECT_EQ(lines[1].tags.at("table"), std::string(127, 'x') + '?');
    EXPECT_EQ(lines[257].tags.at("url"), std::string(127, 'x') + '/');
    EXPECT_EQ(lines[257].tags.at("server"), std::string(32, 'x'));
  }
}

}  // namespace
}  // namespace KorvainService
