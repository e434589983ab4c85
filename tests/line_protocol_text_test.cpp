#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "line_protocol/report_packer.h"
#include "support/record_text.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

using std::string_view_literals::operator""sv;
using test::ReadLine;

TEST(StrictLineReaderTest, RefusesWhatAReaderRefuses) {
  EXPECT_TRUE(test::StrictLineReader::Read("m,t=a\\ \\,\\=\\b f=1i,g=\"\\\"\\\\\t\" -5"));
  const struct {
    const char* what;
    std::vector<std::string_view> lines;
  } rows[] = {
      {"measurement", {"", " f=1i", ",t=v f=1i"}},
      {"no fields", {"m", "m ", "m,t=v", "m,t=v ", "m,t=v  f=1i", "m,t=v\\ f=1i"}},
      {"tags", {"m, f=1i", "m,t f=1i", "m,t= f=1i", "m,=v f=1i", "m,t=a=b f=1i", "m,t=v,f=1i"}},
      {"twice", {"m,t=v,t=w f=1i", "m f=1i,f=2i", "m f=1i,f=\"\"", "m f=\"\",f=\"\""}},
      {"escapes", {"m,t=\\\\ f=1i", "m,t=\\\"a f=1i", "m,t=a\\", "m,t=a\\\\, f=1i"}},
      {"control characters", {"m,t=a\tb f=1i", "m,t=\x7f f=1i", "m f=\"\r\"", "m f=1i\n"}},
      {"NUL", {"m,t=a\0 f=1i"sv, "m f=1i\0"sv}},
      {"numbers", {"m f=", "m f=i", "m f=1", "m f=1u", "m f=+1i", "m f=1.0i", "m f=1i2"}},
      {"range", {"m f=9223372036854775808i", "m f=1i 9223372036854775808"}},
      {"strings", {"m f=\"", "m f=\"a", "m f=\"a\\\"", "m f=\"\\n\"", "m f=\"a\"b", "m f=\"\"\""}},
      {"timestamp", {"m f=1i ", "m f=1i x", "m f=1i 1 ", "m f=1i  1", "m f=1i 1i"}},
      {"UTF-8", {"m f=\"\x80\"", "m f=\"\xC0\x80\"", "m f=\"\xED\xA0\x80\"", "m f=\"\xC3\""}},
  };
  for (const auto& row : rows) {
    for (const std::string_view line : row.lines) {
      EXPECT_FALSE(test::StrictLineReader::Read(line)) << row.what << ": " << line;
    }
  }
}

class HostileTextTest : public ::testing::Test {
 protected:
  struct Arrived {
    std::string name, user_text;
  };

  // What becomes of a text of at most 31 bytes, which must be the same wherever it is a name.
  Arrived Carry(const std::string& text) {
    record->nTableCount = 1;
    record->iAccessCount = 1;
    settings.set_name = settings.app_name = settings.zone_name = settings.instance = text.c_str();
    test::SetText(record->astTableStatistic[0].szTableName, text);
    test::SetText(record->astAccessStatistic[0].stHostInfo.szUrl, text);
    test::SetText(record->astAccessStatistic[0].stHostInfo.szSvrId, text);
    test::SetText(record->stOverallRunStatus.szUserDefinedText, text);
    settings.access_fields = [&text](int32_t, const AddField& add) { add(text, 1234); };
    const std::vector<ReadLine> lines = test::ReadLines(PackReport(*record, settings));
    if (lines.size() != 3) return {"not three lines", ""};
    const std::string name = lines[0].tags.at("set_name");
    const size_t tag_counts[] = {4, 5, 6};
    for (size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(lines[i].tags.size(), tag_counts[i]) << text;
      for (const auto& [key, value] : lines[i].tags) EXPECT_EQ(value, name) << key;
    }
    EXPECT_EQ(lines[2].numbers.count(name), 1u) << text;
    return {name, lines[0].texts.at("user_text")};
  }

  const std::unique_ptr<SERVICEAPISTATISTIC> record = std::make_unique<SERVICEAPISTATISTIC>();
  ReportSettings settings;
};

TEST_F(HostileTextTest, ArrivesAsItWasOrInItsReplacement) {
  const struct {
    const char *text, *name, *user_text;
  } rows[] = {
      {"plain", "plain", "plain"},
      {" a,b c=d ", " a,b c=d ", " a,b c=d "},
      {"say \"hi\"", "say \"hi\"", "say \"hi\""},
      {"C:\\dir\\ü", "C:\\dir\\ü", "C:\\dir\\ü"},
      {"\\\\host\\share", "/\\host\\share", "\\\\host\\share"},
      {"end\\", "end/", "end\\"},
      {"\\,\\=\\ \\\"\\\n.", "/,/=/ /\"/ .", "\\,\\=\\ \\\"\\ ."},
      {"two\r\nlines\n", "two  lines ", "two  lines "},
      {"\t\x01\x1f\x7f#", "    #", "\t   #"},
      {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {"\x80|\xC1\xBF|\xE0\x9F\xBF|\xED\xA0\x80", "?|??|???|???", "?|??|???|???"},
      {"\xF0\x8F\xBF\xBF|\xF4\x90\x80\x80|\xF5\x80\x80\x80|\xFF", "????|????|????|?",
       "????|????|????|?"},
      {"\xC3|\xE2\x82|\xE2\x82\xC0|\xF0\x9F\x98", "?|??|???|???", "?|??|???|???"},
  };
  for (const auto& row : rows) {
    const Arrived arrived = Carry(row.text);
    EXPECT_EQ(arrived.name, row.name);
    EXPECT_EQ(arrived.user_text, row.user_text);
  }
}

TEST_F(HostileTextTest, WhateverArrivedArrivesUnchanged) {
  const std::string alphabet = "a\\,= \"\n\t\xC3\xBC";
  std::vector<std::string> texts = {""};
  for (size_t i = 0; texts[i].size() < 3; ++i) {
    for (const char c : alphabet) texts.push_back(texts[i] + c);
  }
  EXPECT_EQ(texts.size(), 1111u);
  for (size_t i = 1; i < texts.size(); ++i) {
    const Arrived arrived = Carry(texts[i]);
    ASSERT_EQ(Carry(arrived.name).name, arrived.name) << texts[i];
    ASSERT_EQ(Carry(arrived.user_text).user_text, arrived.user_text) << texts[i];
  }
}

}  // namespace
}  // namespace KorvainService
