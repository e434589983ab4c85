// The parts of the demo that meet what others send: lines of reports and the datagrams of proxies.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "demo/collect_server/report_assembler.h"
#include "demo/common/report_line.h"
#include "demo/common/wire_format.h"

namespace demo {

namespace {

TEST(ReportLineTest, TakesNothingElse) {
  std::ifstream file(MALFORMED_LINES);  // divided by '|', and by line ends that are not of them
  int lines = 0;
  for (std::string line; std::getline(file, line, '|'); ++lines) {
    if (!line.empty() && line.front() == '\n') line.erase(0, 1);
    EXPECT_FALSE(ReadReportLine(line)) << line;
  }
  EXPECT_GT(lines, 40);
}

TEST(ReportAssemblerTest, PassesOnWhatIsCompleteOverdueOrTooMuch) {
  std::vector<AssembledReport> reports;
  ReportAssembler assembler([&](const AssembledReport& report) { reports.push_back(report); });
  ReportAssembler::TimePoint now{};
  const auto add = [&](const char* measurement, int64_t timestamp_ns) {
    ReportLine line;
    line.measurement = measurement;
    line.timestamp_ns = timestamp_ns;
    line.integers = {{"table_lines", 1}, {"access_lines", 0}};
    return assembler.Add("somebody", line, 100, now);
  };
  EXPECT_FALSE(add("other", 1));
  EXPECT_TRUE(add("korvain_table", 1));
  EXPECT_TRUE(add("korvain_table", 2));
  EXPECT_TRUE(reports.empty());
  EXPECT_TRUE(add("korvain_overall", 1));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_TRUE(reports[0].IsComplete());

  assembler.PassOnOverdue(now + std::chrono::nanoseconds(999999999));
  EXPECT_EQ(reports.size(), 1u);
  assembler.PassOnOverdue(now + std::chrono::seconds(1));
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_FALSE(reports[1].IsComplete());

  for (size_t i = 0; i < ReportAssembler::MOST_PENDING; ++i) {
    add("korvain_table", static_cast<int64_t>(1000 - i));
    now += std::chrono::milliseconds(1);
  }
  EXPECT_EQ(assembler.PassedOnEarly(), 0u);
  add("korvain_table", 1);
  EXPECT_EQ(assembler.PassedOnEarly(), 1u);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(reports[2].tables.at(0).timestamp_ns, 1000) << "not the oldest";
}

// That what is read is written the same is for the fuzz target to find.
TEST(WireFormatTest, WritesThese) {
  const std::string request = Encode(RequestMessage{0x0102030405060708u, -2, 0xFFFFFFFFu});
  EXPECT_EQ(request, "KVRQ\1\2\3\4\5\6\7\10\xff\xff\xff\xfe\xff\xff\xff\xff");
  const std::string response = Encode(ResponseMessage{~uint64_t{0}, ResponseStatus::SYSTEM_ERROR});
  EXPECT_EQ(response, "KVRS\xff\xff\xff\xff\xff\xff\xff\xff\1");
  EXPECT_TRUE(DecodeRequest(request) && DecodeResponse(response));
  EXPECT_FALSE(DecodeResponse(response.substr(0, 12) + '\2')) << "an unknown status";
}

}  // namespace

}  // namespace demo
