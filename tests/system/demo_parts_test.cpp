// The parts of the demo that meet what others send: lines of reports, the datagrams of proxies and
// URLs.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "demo/collect_server/report_assembler.h"
#include "demo/common/report_line.h"
#include "demo/common/udp_socket.h"
#include "demo/common/wire_format.h"
#include "line_protocol/report_packer.h"

namespace demo {

namespace {

TEST(ReportLineTest, ReadsWhatThePackerWrites) {
  const auto record = std::make_unique<KorvainService::SERVICEAPISTATISTIC>();
  record->iAccessCount = 1;
  record->stOverallRunStatus.dwRequestCountPerMin = 4294967295u;
  record->stOverallRunStatus.ullAverageDelay = std::numeric_limits<uint64_t>::max();
  record->stOverallRunStatus.dwCalculateAverageDelayResCount = 1;
  const std::string_view user_text = "a \"quoted\" \\ text, x=1";
  user_text.copy(record->stOverallRunStatus.szUserDefinedText, user_text.size());
  KorvainService::ReportSettings settings;
  settings.zone_name = "zone, of=two";
  settings.period_seconds = 60;
  settings.timestamp_ns = 77;
  const std::string text = PackReport(*record, settings);

  const std::vector<std::string_view> lines = SplitLines(text);
  ASSERT_EQ(lines.size(), 2u);
  const auto overall = ReadReportLine(lines[0]);
  ASSERT_TRUE(overall) << lines[0];
  EXPECT_EQ(overall->measurement, "korvain_overall");
  EXPECT_EQ(overall->Tag("zone"), "zone, of=two");
  EXPECT_EQ(overall->Tag("table"), "");
  EXPECT_EQ(overall->Integer("requests_per_min"), 4294967295);
  EXPECT_EQ(overall->Integer("delay_ms"), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(overall->texts.at("user_text"), user_text);
  EXPECT_EQ(overall->timestamp_ns, 77);
  const auto access = ReadReportLine(lines[1]);
  ASSERT_TRUE(access) << lines[1];
  EXPECT_EQ(access->Tag("url"), "#0");
  EXPECT_EQ(access->Integer("delay_ms"), std::nullopt);
}

TEST(ReportLineTest, TakesNothingElse) {
  const struct {
    const char* what;
    const char* lines;  // divided by '|'
  } rows[] = {
      {"no measurement", "| | f=1i 1|,t=v f=1i 1"},
      {"no fields", "m|m |m,t=v|m,t=v |m,t=v 1|m,t=v\\ f=1i 1"},
      {"tags", "m, f=1i 1|m,t f=1i 1|m,t= f=1i 1|m,=v f=1i 1|m,t=a=b f=1i 1|m,t=v,t=w f=1i 1"},
      {"fields", "m f 1|m f= 1|m =1i 1|m f=1i, 1|m f=1i,,g=1i 1|m  f=1i 1|m f=1i,f=2i 1"},
      {"integers", "m f=i 1|m f=1 1|m f=1u 1|m f=+1i 1|m f=0x1i 1|m f=9223372036854775808i 1"},
      {"other values", "m f=true 1|m f=1.5 1|m f=text 1"},
      {"texts", "m f=\" 1|m f=\"open 1|m f=\"open\\\" 1|m f=\"a\"b 1|m f=\"a\",f=1i 1"},
      {"timestamp", "m f=1i|m f=1i |m f=1i x|m f=1i 1 |m f=1i  1|m f=1i 9223372036854775808"},
  };
  for (const auto& row : rows) {
    std::istringstream lines(row.lines);
    std::string line;
    while (std::getline(lines, line, '|')) {
      EXPECT_FALSE(ReadReportLine(line)) << row.what << ": " << line;
    }
  }
}

std::string LineWith(size_t tags, size_t fields) {
  std::string line = "m";
  for (size_t i = 0; i < tags; ++i) line += ",t" + std::to_string(i) + "=v";
  for (size_t i = 0; i < fields; ++i) line += (i == 0 ? " f" : ",f") + std::to_string(i) + "=1i";
  return line + " 1";
}

TEST(ReportLineTest, HoldsSoManyTagsAndFieldsAndNoMore) {
  EXPECT_TRUE(ReadReportLine(LineWith(MOST_TAGS, MOST_FIELDS)));
  EXPECT_FALSE(ReadReportLine(LineWith(MOST_TAGS + 1, 1)));
  EXPECT_FALSE(ReadReportLine(LineWith(1, MOST_FIELDS + 1)));
}

ReportLine LineOf(const std::string& measurement, int64_t timestamp_ns) {
  ReportLine line;
  line.measurement = measurement;
  line.timestamp_ns = timestamp_ns;
  line.integers = {{"table_lines", 1}, {"access_lines", 0}};
  return line;
}

class ReportAssemblerTest : public testing::Test {
 protected:
  using Seconds = std::chrono::seconds;

  bool Add(const std::string& measurement, int64_t timestamp_ns, size_t size = 100) {
    return m_assembler.Add("somebody", LineOf(measurement, timestamp_ns), size, m_now);
  }

  std::vector<AssembledReport> m_reports;
  ReportAssembler m_assembler{
      [this](const AssembledReport& report) { m_reports.push_back(report); }};
  ReportAssembler::TimePoint m_now{};
};

TEST_F(ReportAssemblerTest, PassesOnWhatIsCompleteOrOverdue) {
  EXPECT_FALSE(Add("other", 1));
  EXPECT_TRUE(Add("korvain_table", 1));
  EXPECT_TRUE(Add("korvain_table", 2));
  EXPECT_TRUE(m_reports.empty());
  EXPECT_TRUE(Add("korvain_overall", 1));
  ASSERT_EQ(m_reports.size(), 1u);
  EXPECT_TRUE(m_reports[0].IsComplete());

  m_assembler.PassOnOverdue(m_now + Seconds(1) - std::chrono::nanoseconds(1));
  EXPECT_EQ(m_reports.size(), 1u);
  m_assembler.PassOnOverdue(m_now + Seconds(1));
  ASSERT_EQ(m_reports.size(), 2u);
  EXPECT_FALSE(m_reports[1].IsComplete());
  EXPECT_EQ(m_assembler.BytesHeld(), 0u);
}

TEST_F(ReportAssemblerTest, TheOldestGivesWayToTooManyReports) {
  for (size_t i = 0; i < ReportAssembler::MOST_PENDING; ++i) {
    Add("korvain_table", static_cast<int64_t>(1000 - i));
    m_now += std::chrono::milliseconds(1);
  }
  EXPECT_EQ(m_assembler.PassedOnEarly(), 0u);
  Add("korvain_table", 1);
  EXPECT_EQ(m_assembler.PassedOnEarly(), 1u);
  ASSERT_EQ(m_reports.size(), 1u);
  EXPECT_EQ(m_reports[0].tables.at(0).timestamp_ns, 1000);
}

TEST_F(ReportAssemblerTest, TheOldestGivesWayToTooManyBytes) {
  for (int i = 0; i < 10000; ++i) {
    Add("korvain_access", i % 7, 10000);
    ASSERT_LE(m_assembler.BytesHeld(), ReportAssembler::MOST_BYTES);
  }
  EXPECT_GT(m_assembler.PassedOnEarly(), 0u);
}

TEST(WireFormatTest, DecodesWholeMessagesOnly) {
  const std::string request = Encode(RequestMessage{0x0102030405060708u, -2, 0xFFFFFFFFu});
  EXPECT_EQ(request.substr(4), std::string("\1\2\3\4\5\6\7\10\xff\xff\xff\xfe\xff\xff\xff\xff"));
  const std::string response = Encode(ResponseMessage{~uint64_t{0}, ResponseStatus::SYSTEM_ERROR});
  const auto decoded_request = DecodeRequest(request);
  ASSERT_TRUE(decoded_request);
  EXPECT_EQ(decoded_request->sequence, 0x0102030405060708u);
  EXPECT_EQ(decoded_request->zone_id, -2);
  EXPECT_EQ(decoded_request->table_id, 0xFFFFFFFFu);
  const auto decoded_response = DecodeResponse(response);
  ASSERT_TRUE(decoded_response);
  EXPECT_EQ(decoded_response->sequence, ~uint64_t{0});
  EXPECT_EQ(decoded_response->status, ResponseStatus::SYSTEM_ERROR);

  for (const std::string& message : {request, response}) {
    for (size_t size = 0; size <= message.size() + 1; ++size) {
      std::string bytes = message;
      bytes.resize(size);
      EXPECT_EQ(DecodeRequest(bytes).has_value(), bytes == request) << size;
      EXPECT_EQ(DecodeResponse(bytes).has_value(), bytes == response) << size;
    }
  }
  std::string unknown_status = response;
  unknown_status.back() = 2;
  EXPECT_FALSE(DecodeResponse(unknown_status));
}

TEST(UdpSocketTest, TakesNothingButCompleteUrls) {
  EXPECT_EQ(ToUrl(ParseUdpUrl("udp://127.0.0.1:00080").value()), "udp://127.0.0.1:80");
  std::istringstream urls(
      "|udp:|udp://|udp://:80|127.0.0.1:80|tcp://127.0.0.1:80|udp://localhost:80|udp://[::1]:80|"
      "udp://127.0.0:80|udp://256.0.0.1:80|udp://127.0.0.1|udp://127.0.0.1:|udp://127.0.0.1:0|"
      "udp://127.0.0.1:65536|udp://127.0.0.1:000080|udp://127.0.0.1:+80|udp://127.0.0.1:80 ");
  std::string url;
  while (std::getline(urls, url, '|')) EXPECT_FALSE(ParseUdpUrl(url)) << url;
  EXPECT_TRUE(ParseUdpUrl("udp://127.0.0.1:0", PortRule::OR_ZERO));
}

}  // namespace

}  // namespace demo
