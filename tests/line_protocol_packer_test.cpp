#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "line_protocol/report_packer.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

using std::string_view_literals::operator""sv;

struct ReportPackerTest : ::testing::Test {
  const std::unique_ptr<SERVICEAPISTATISTIC> record = std::make_unique<SERVICEAPISTATISTIC>();
  OVERALLRUNSTATUS& overall = record->stOverallRunStatus;
  ReportSettings settings;
};

TEST_F(ReportPackerTest, WritesThisSchema) {
  TABLESTATISTIC& table = record->astTableStatistic[0];
  ACCESSSTATISTIC& access = record->astAccessStatistic[0];
  uint32_t numbers[16];
  std::iota(std::begin(numbers), std::end(numbers), 1);
  record->nTableCount = 1;
  record->iAccessCount = 1;
  record->stProcessInfo.iPid = 4711;
  overall.nAccessCount = -3;
  memcpy(reinterpret_cast<char*>(&overall) + sizeof(int16_t), numbers, 16 * sizeof(uint32_t));
  "now \"up\""sv.copy(overall.szUserDefinedText, 511);
  "users"sv.copy(table.szTableName, 127);
  memcpy(&table.stTableRunStatus, numbers, sizeof(table.stTableRunStatus));
  "10.0.0.2:9000"sv.copy(access.stHostInfo.szUrl, 127);
  "proxy-1"sv.copy(access.stHostInfo.szSvrId, 31);
  memcpy(&access.stAccessRunStatus, numbers, sizeof(access.stAccessRunStatus));
  settings = {"set", "shop", "east", "shop-1", 1, 1700000000000000000, nullptr};
  settings.access_fields = [](int32_t slot, const AddField& add) { add("in service", slot - 1); };
  std::string text = "before\n";
  AppendReport(*record, settings, text);
  EXPECT_EQ(text,
            "before\n"
            "korvain_overall,set_name=set,app=shop,zone=east,instance=shop-1 "
            "access_errors_per_min=1i,send_errors_per_min=2i,recv_errors_per_min=3i,"
            "route_errors_per_min=4i,unpack_errors_per_min=5i,requests_per_min=6i,"
            "batch_requests_per_min=7i,responses_per_min=8i,batch_responses_per_min=9i,"
            "success_responses_per_min=10i,timeouts_per_min=11i,dynamic_errors_per_min=15i,"
            "delay_samples=14i,delay_ms=55834574860i,known_accesses=-3i,max_update_interval=16i,"
            "table_lines=1i,access_lines=1i,pid=4711i,user_text=\"now \\\"up\\\"\",period_s=1i "
            "1700000000000000000\n"
            "korvain_table,set_name=set,app=shop,zone=east,instance=shop-1,table=users "
            "query_errors_per_min=1i,insert_errors_per_min=2i,update_errors_per_min=3i,"
            "replace_errors_per_min=4i,delete_errors_per_min=5i,pack_errors_per_min=6i,"
            "other_errors_per_min=7i,requests_per_min=8i,batch_requests_per_min=9i,"
            "responses_per_min=10i,batch_responses_per_min=11i,success_responses_per_min=12i,"
            "period_s=1i 1700000000000000000\n"
            "korvain_access,set_name=set,app=shop,zone=east,instance=shop-1,url=10.0.0.2:9000,"
            "server=proxy-1 requests_per_min=1i,batch_requests_per_min=2i,responses_per_min=3i,"
            "batch_responses_per_min=4i,success_responses_per_min=5i,timeouts_per_min=6i,"
            "proxy_errors_per_min=10i,proxy_system_errors_per_min=11i,korvsvr_errors_per_min=12i,"
            "dynamic_errors_per_min=13i,delay_samples=9i,delay_ms=34359738375i,in\\ service=-1i,"
            "period_s=1i 1700000000000000000\n");
}

TEST_F(ReportPackerTest, WhatIsNotGivenIsReplacedOrLeftOut) {
  record->iSetID = INT32_MIN;
  record->iAppID = 10;
  record->iAccessCount = 1;
  "10.0.0.1"sv.copy(record->stProcessInfo.szIP, 127);
  settings.app_name = settings.instance = "";
  settings.access_fields = [](int32_t, const AddField& add) { add("", 5); };
  const std::string text = PackReport(*record, settings);
  EXPECT_EQ(text.substr(0, text.find(' ')),
            "korvain_overall,set_name=-2147483648,app=10,zone=0,instance=10.0.0.1-0");
  EXPECT_EQ(text.substr(text.rfind(',')), ",delay_samples=0i\n");
  EXPECT_EQ(text.find("user_text"), text.npos);
}

// The longest overall line leaves an ordinary datagram whole.
TEST_F(ReportPackerTest, WritesAtMostWhatTheArraysHold) {
  const std::string name(50, 'n');
  const char* const names = name.c_str();
  settings = {names, names, names, names, 86400, INT64_MIN, nullptr};
  memset(record.get(), 0xFF, sizeof(*record));
  memcpy(record->astTableStatistic[0].szTableName + 127, "\xC3\xBC", 2);  // a letter across its end
  const std::tuple<int16_t, int32_t, const char*, int> rows[] = {
      {-1, INT32_MIN, ",table_lines=0i,access_lines=0i,", 1},
      {255, 257, ",table_lines=255i,access_lines=256i,", 512},
      {257, 256, ",table_lines=256i,access_lines=256i,", 513}};
  for (const auto& [tables, accesses, counts, lines] : rows) {
    record->nTableCount = tables;
    record->iAccessCount = accesses;
    const std::string text = PackReport(*record, settings);
    EXPECT_NE(text.find(counts), text.npos) << counts;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), lines);
    EXPECT_LT(text.find('\n'), 1400u);
    EXPECT_EQ(text.find('\xC3'), text.npos) << "half of a letter";
  }
}

TEST_F(ReportPackerTest, AnyTextArrivesAsItWasOrInItsReplacement) {
  const std::tuple<const char*, std::string, std::string> rows[] = {
      {" a,b c=d ", " a,b c=d ", " a,b c=d "},
      {"say \"hi\"", "say \"hi\"", "say \"hi\""},
      {"C:\\dir\\\xC3\xBC", "C:\\dir\\\xC3\xBC", "C:\\dir\\\xC3\xBC"},
      {"\\\\host\\share\\", "/\\host\\share/", "\\\\host\\share\\"},
      {"\\,\\=\\ \\\"\\\n", "/,/=/ /\"/ ", "\\,\\=\\ \\\"\\ "},
      {"two\r\nlines\t\x01\x1f\x7f", "two  lines    ", "two  lines\t   "},
      {"\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       "\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       "\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {"\x80|\xC1\xBF|\xE0\x9F\xBF|\xED\xA0\x80", "?|??|???|???", "?|??|???|???"},
      {"\xF0\x8F\xBF\xBF|\xF4\x90\x80\x80|\xF5\x80\x80\x80", "????|????|????", "????|????|????"},
      {"\xE2\x82\xC0|\xE2\x82", "???|??", "???|??"},
  };
  for (const auto& [text, name, user_text] : rows) {
    settings.zone_name = text;
    strncpy(overall.szUserDefinedText, text, 511);
    const auto lines = test::ReadLines(PackReport(*record, settings)).value();
    EXPECT_EQ(lines[0].at("zone"), name);
    EXPECT_EQ(lines[0].at("user_text"), '"' + user_text + '"');
  }
}

TEST(DatagramSplitTest, DividesAtLineEndsWithinTheSize) {
  const DatagramSplit split = SplitIntoDatagrams("a\nbbbb\nc\nd\ne\n"sv, 4);
  EXPECT_EQ(split.datagrams, (std::vector<std::string_view>{"a\n", "c\nd\n", "e\n"}));
  EXPECT_EQ(split.lines_left_out, 1u);
  const std::string most = std::string(65506, 'x') + "\n";  // that a datagram carries
  EXPECT_EQ(SplitIntoDatagrams(most, SIZE_MAX).lines_left_out, 0u);
  const std::string more = "x" + most;
  EXPECT_EQ(SplitIntoDatagrams(more, SIZE_MAX).lines_left_out, 1u);
}

TEST(StrictLineReaderTest, RefusesWhatAReaderRefuses) {
  EXPECT_TRUE(test::ReadLines("m,t=a\\ \\,\\=\\b f=1i,g=\"\\\"\\\\\t\" -5\n"));
  std::istringstream refused(
      " f=1i|m|m,t=v|m,t f=1i|m,t= f=1i|m,=v f=1i|m,_t=v f=1i|m,t=v,t=w f=1i|m f=1i,f=2i|"
      "m,t=\\\\ f=1i|m,t=a\\|m,t=a\tb f=1i|m f=\"\r\"|m f=1|m f=9223372036854775808i|m f=\"a|"
      "m f=\"\\n\"|m f=1i |m f=1i 1i|m f=\"\xC0\x80\"|m f=\"\xC3\"");
  for (std::string line; std::getline(refused, line, '|');) {
    EXPECT_FALSE(test::ReadLines(line + '\n')) << line;
  }
}

}  // namespace
}  // namespace KorvainService
