#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "line_protocol/report_packer.h"
#include "support/record_text.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

TEST(DatagramSplitTest, DividesAtLineEndsWithinTheSize) {
  const std::string most(MAX_UDP_PAYLOAD - 1, 'x');
  const struct {
    const char* what;
    std::string text;
    size_t max_size;
    std::vector<std::string> datagrams;
    size_t left_out;
  } rows[] = {
      {"nothing", "", 10, {}, 0},
      {"two lines at the size", "aa\nbb\n", 6, {"aa\nbb\n"}, 0},
      {"two lines one over", "aa\nbb\n", 5, {"aa\n", "bb\n"}, 0},
      {"line at the size", "a\nbbb\nc\n", 4, {"a\n", "bbb\n", "c\n"}, 0},
      {"line one over", "a\nbbb\nc\n", 3, {"a\n", "c\n"}, 1},
      {"filled again behind it", "bbbb\na\nc\nd\n", 4, {"a\nc\n", "d\n"}, 1},
      {"long lines at both ends", "long\na\nlong\n", 2, {"a\n"}, 2},
      {"no room", "a\n\n", 0, {}, 2},
      {"last line without end, at the size", "a\nb", 3, {"a\nb"}, 0},
      {"last line without end, one over", "a\nbb", 3, {"a\n", "bb"}, 0},
      {"most that UDP takes", "a\n" + most + "\n", SIZE_MAX, {"a\n", most + "\n"}, 0},
      {"more than UDP takes", "a\n" + most + "x\n", SIZE_MAX, {"a\n"}, 1},
  };
  for (const auto& row : rows) {
    const DatagramSplit split = SplitIntoDatagrams(row.text, row.max_size);
    EXPECT_EQ(std::vector<std::string>(split.datagrams.begin(), split.datagrams.end()),
              row.datagrams)
        << row.what;
    EXPECT_EQ(split.lines_left_out, row.left_out) << row.what;
  }
}

// The largest numbers and 511 characters of user text.
std::unique_ptr<SERVICEAPISTATISTIC> MakeFullRecord() {
  auto record = std::make_unique<SERVICEAPISTATISTIC>();
  memset(record.get(), 0xFF, sizeof(*record));
  record->nTableCount = 256;
  record->iAccessCount = 256;
  record->stProcessInfo.iPid = INT32_MAX;
  OVERALLRUNSTATUS& overall = record->stOverallRunStatus;
  test::SetText(overall.szUserDefinedText, std::string(511, 'u'));
  for (int i = 0; i < 256; ++i) {
    test::SetText(record->astTableStatistic[i].szTableName, "table" + std::to_string(i));
    STATISTICHOSTINFO& host = record->astAccessStatistic[i].stHostInfo;
    test::SetText(host.szUrl, "10.0.0." + std::to_string(i) + ":9000");
    test::SetText(host.szSvrId, "proxy");
  }
  return record;
}

TEST(DatagramSplitTest, AFullReportFitsIntoOrdinaryDatagrams) {
  const std::string name(50, 'n');
  const ReportSettings settings{name.c_str(), name.c_str(), name.c_str(), name.c_str(),
                                86400,        INT64_MIN,    nullptr};
  const std::string text = PackReport(*MakeFullRecord(), settings);
  const DatagramSplit split = SplitIntoDatagrams(text, 1400);
  EXPECT_EQ(split.lines_left_out, 0u);
  std::string joined;
  std::map<std::string, std::set<std::map<std::string, std::string>>> series;
  for (size_t i = 0; i < split.datagrams.size(); ++i) {
    const std::string_view datagram = split.datagrams[i];
    joined += datagram;
    EXPECT_LE(datagram.size(), 1400u);
    if (i > 0) {
      EXPECT_GT(split.datagrams[i - 1].size() + datagram.find('\n') + 1, 1400u) << "left room";
    }
    for (const auto& line : test::ReadLines(datagram)) {
      series[line.measurement].insert(line.tags);
      EXPECT_EQ(line.timestamp, INT64_MIN);
    }
  }
  EXPECT_EQ(joined, text);
  EXPECT_EQ(series["korvain_overall"].size(), 1u);
  EXPECT_EQ(series["korvain_table"].size(), 256u);
  EXPECT_EQ(series["korvain_access"].size(), 256u);
}

}  // namespace
}  // namespace KorvainService
