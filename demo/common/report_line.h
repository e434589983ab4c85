// Reads the lines of reports: measurement,tag=value integer=1i,text="..." timestamp
#ifndef KORVAIN_DEMO_REPORT_LINE_H_
#define KORVAIN_DEMO_REPORT_LINE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

// More tags or fields than these are in no report, and a stranger's line need not be held.
inline constexpr size_t MOST_TAGS = 32;
inline constexpr size_t MOST_FIELDS = 128;

struct ReportLine {
  std::string measurement;
  std::map<std::string, std::string> tags;
  std::map<std::string, int64_t> integers;  // fields
  std::map<std::string, std::string> texts;
  int64_t timestamp_ns = 0;

  // Empty when there is no such tag.
  const std::string& Tag(const std::string& key) const;
  std::optional<int64_t> Integer(const std::string& key) const;
};

// Takes a line without its line end. Of line protocol it knows what reports consist of: integer and
// text fields, at least one, and a timestamp. Nothing for any other bytes, and for a line that
// gives a tag or field twice.
std::optional<ReportLine> ReadReportLine(std::string_view text);

// The lines of `text` that are not empty, without their line ends.
std::vector<std::string_view> SplitLines(std::string_view text);

}  // namespace demo

#endif  // KORVAIN_DEMO_REPORT_LINE_H_
