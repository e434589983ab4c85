// How reports are written and read as line protocol, divided into datagrams, and how the datagrams
// between service API and proxies are decoded.
#include "examples/line_protocol.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "examples/report_lines.h"
#include "examples/udp_socket.h"
#include "examples/wire_format.h"

namespace example {

namespace {

using KorvainService::SERVICEAPISTATISTIC;

struct CarriedText {
  const char* text;
  const char* as_tag;    // what arrives
  const char* as_field;  // what arrives
};

TEST(LineProtocolTest, TextsArriveAsTheyWereOrInTheirReplacement) {
  const CarriedText rows[] = {
      {"plain", "plain", "plain"},
      {"a,b c=d", "a,b c=d", "a,b c=d"},
      {"say \"hi\"", "say \"hi\"", "say \"hi\""},
      {"C:\\dir\\file", "C:\\dir\\file", "C:\\dir\\file"},
      {"back\\,slash\\ and\\=", "back\\,slash\\ and\\=", "back\\,slash\\ and\\="},
      {"two\\\\", "two\\/", "two\\\\"},
      {"end\\", "end/", "end\\"},
      {"\\", "/", "\\"},
      {"line\nend\r\n", "line end  ", "line end  "},
      {"\xc3\xbc\x01\x7f", "\xc3\xbc\x01\x7f", "\xc3\xbc\x01\x7f"},
  };
  for (const CarriedText& row : rows) {
    SCOPED_TRACE(row.text);
    const Line line{row.text, {{row.text, row.text}, {"empty", ""}}, {{"f", row.text}}, -5};
    const std::string text = FormatLine(line);
    ASSERT_EQ(text.find('\n'), text.size() - 1);
    const auto parsed = ParseLine(std::string_view(text).substr(0, text.size() - 1));
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(parsed->measurement, row.as_tag);
    ASSERT_EQ(parsed->tags.size(), 1u);
    EXPECT_EQ(parsed->tags[0].first, row.as_tag);
    EXPECT_EQ(parsed->tags[0].second, row.as_tag);
    EXPECT_EQ(std::get<std::string>(parsed->fields.at(0).second), row.as_field);
    EXPECT_EQ(parsed->timestamp_ns, -5);
  }
}

TEST(LineProtocolTest, AcceptsWellFormedLines) {
  const struct {
    const char* text;
    FieldValue first_field;
  } rows[] = {
      {"m f=1i", int64_t{1}},
      {"m,t=v f=-9223372036854775808i 9223372036854775807", std::numeric_limits<int64_t>::min()},
      {"m f=1.5,g=2i", 1.5},
      {"m f=-2e3 7", -2000.0},
      {"m f=true", true},
      {"m f=F", false},
      {"m f=\"\" 1", std::string()},
      {"m f=\"a, \\\"b\\\" = \\\\ \\x\",g=1i 1", std::string("a, \"b\" = \\ \\x")},
      {"m\\ n,a\\=b=c\\,d f=0i", int64_t{0}},
  };
  for (const auto& row : rows) {
    const auto line = ParseLine(row.text);
    ASSERT_TRUE(line) << row.text;
    EXPECT_EQ(line->fields.at(0).second, row.first_field) << row.text;
  }
}

TEST(LineProtocolTest, RejectsMalformedLines) {
  const struct {
    const char* what;
    const char* lines;  // divided by '|'
  } rows[] = {
      {"no measurement", "| | f=1i|,t=v f=1i|#m f=1i|\xff\xfe\x80"},
      {"no fields", "m|m |m,t=v|m,t=v |\\|m,t=v\\ f=1i"},
      {"tags", "m, f=1i|m,t f=1i|m,t= f=1i|m,=v f=1i|m,t=a=b f=1i|m,t=v,f=1i"},
      {"fields", "m f|m f=|m =1i|m f=1i,|m f=1i,,g=1i|m  f=1i|m f=1i=2i"},
      {"integers", "m f=i|m f=1u|m f=+1i|m f=1 i|m f=0x1i|m f=--1i|m f=9223372036854775808i"},
      {"other values", "m f=1e999|m f=nan|m f=-inf|m f=tRue|m f=text|m f=.|m f=1.5.5"},
      {"strings", "m f=\"|m f=\"open|m f=\"open\\\"|m f=\"a\"b|m f=\"a\" \"|m f=\"a\nb\""},
      {"timestamp", "m f=1i |m f=1i x|m f=1i 1 |m f=1i  1|m f=1i 1.0|m f=1i 9223372036854775808"},
      {"line ends", "m f=1i\n|m f=1i\r|m f=1i 1\r|m f=1i\nm f=1i|\nm f=1i"},
  };
  for (const auto& row : rows) {
    std::istringstream lines(row.lines);
    std::string line;
    while (std::getline(lines, line, '|'))
      EXPECT_FALSE(ParseLine(line)) << row.what << ": " << line;
  }
  EXPECT_FALSE(ParseLine(std::string_view("m f=1i\0", 7)));
  const std::string whole = "m,t=v f=\"x\",g=1.5 12";
  for (size_t size = 0; size < whole.size(); ++size) {
    const bool may_end_here = size == 11 || (size >= 15 && size != 18);
    EXPECT_EQ(ParseLine(whole.substr(0, size)).has_value(), may_end_here) << size;
  }
}

TEST(LineProtocolTest, SplitsAtLineEndsWithinTheSize) {
  const std::string most(MAX_DATAGRAM_SIZE - 1, 'x');
  const struct {
    const char* what;
    std::string text;
    size_t max_size;
    std::vector<std::string> datagrams;
    size_t left_out;
  } rows[] = {
      {"nothing", "", 10, {}, 0},
      {"fits exactly", "aa\nbb\n", 6, {"aa\nbb\n"}, 0},
      {"one byte short", "aa\nbb\n", 5, {"aa\n", "bb\n"}, 0},
      {"long line alone", "a\nlonger\nb\nc\n", 4, {"a\n", "longer\n", "b\nc\n"}, 0},
      {"no room at all", "a\nb\n", 0, {"a\n", "b\n"}, 0},
      {"last line without end", "a\nb", 10, {"a\nb"}, 0},
      {"longest line", "a\n" + most + "\nb\n", 1400, {"a\n", most + "\n", "b\n"}, 0},
      {"too long a line", "a\n" + most + "x\nb\n", 1400, {"a\n", "b\n"}, 1},
      {"size beyond UDP", most + "\nb\n", 1 << 20, {most + "\n", "b\n"}, 0},
  };
  for (const auto& row : rows) {
    const SplitReport split = SplitAtLineEnds(row.text, row.max_size);
    EXPECT_EQ(std::vector<std::string>(split.datagrams.begin(), split.datagrams.end()),
              row.datagrams)
        << row.what;
    EXPECT_EQ(split.lines_left_out, row.left_out) << row.what;
  }
}

std::vector<Line> ParseAll(const std::string& text) {
  std::vector<Line> lines;
  for (const std::string_view line : SplitLines(text)) {
    lines.push_back(ParseLine(line).value_or(Line{}));
  }
  return lines;
}

TEST(ReportLinesTest, CarriesTheRecord) {
  const auto record = std::make_unique<SERVICEAPISTATISTIC>();
  record->iSetID = -1;
  record->iZoneID = 2;
  record->nTableCount = 1;
  record->iAccessCount = 2;
  memset(record->astTableStatistic[0].szTableName, 't', 128);  // not terminated
  record->astTableStatistic[0].stTableRunStatus.dwOtherErrCountPerMin = 5;
  record->stOverallRunStatus.dwRequestCountPerMin = 4294967295u;
  record->stOverallRunStatus.ullAverageDelay = std::numeric_limits<uint64_t>::max();
  memcpy(record->stOverallRunStatus.szUserDefinedText, "up\nto \"now\"", 11);
  memcpy(record->astAccessStatistic[1].stHostInfo.szUrl, "127.0.0.1:9", 11);
  record->astAccessStatistic[1].stAccessRunStatus.dwTimeoutCountPerMin = 3;

  const std::vector<Line> lines = ParseAll(PackReport(*record, {nullptr, "", "a zone"}, 77));

  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].measurement, PROCESS_MEASUREMENT);
  EXPECT_EQ(FindTag(lines[0], "set"), nullptr);
  EXPECT_EQ(FindTag(lines[0], "app"), nullptr);
  EXPECT_EQ(*FindTag(lines[0], "zone"), "a zone");
  EXPECT_EQ(*FindTag(lines[0], "set_id"), "-1");
  EXPECT_EQ(FindInteger(lines[0], "requests"), 4294967295);
  EXPECT_EQ(FindInteger(lines[0], "delay_ms"), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(std::get<std::string>(lines[0].fields.back().second), "up to \"now\"");
  EXPECT_EQ(*FindTag(lines[1], "table"), std::string(128, 't'));
  EXPECT_EQ(FindInteger(lines[1], "other_errors"), 5);
  EXPECT_EQ(FindTag(lines[2], "url"), nullptr);
  EXPECT_EQ(*FindTag(lines[3], "url"), "127.0.0.1:9");
  EXPECT_EQ(FindInteger(lines[3], "timeouts"), 3);
  for (const Line& line : lines) EXPECT_EQ(line.timestamp_ns, 77);
}

TEST(ReportLinesTest, KeepsCountsWithinTheArrays) {
  const struct {
    int16_t tables;
    int32_t accesses;
    size_t lines;
  } rows[] = {{-1, -2147483647 - 1, 1}, {0, 0, 1}, {256, 256, 513}, {257, 2147483647, 513}};
  for (const auto& row : rows) {
    const auto record = std::make_unique<SERVICEAPISTATISTIC>();
    record->nTableCount = row.tables;
    record->iAccessCount = row.accesses;
    const std::vector<Line> lines = ParseAll(PackReport(*record, {}, 1));
    ASSERT_EQ(lines.size(), row.lines) << row.accesses;
    EXPECT_EQ(FindInteger(lines[0], "table_count"), (row.lines - 1) / 2) << row.tables;
    EXPECT_EQ(FindInteger(lines[0], "access_count"), (row.lines - 1) / 2) << row.accesses;
  }
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
}

}  // namespace

}  // namespace example
