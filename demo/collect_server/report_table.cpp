#include "demo/collect_server/report_table.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace demo {

namespace {

using Row = std::vector<std::string>;

constexpr size_t MOST_CHARACTERS = 60;

// The first column is left-aligned, the numbers in the others are right-aligned.
std::string FormatAligned(const std::vector<Row>& rows) {
  std::vector<size_t> widths(rows.front().size(), 0);
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const Row& row : rows) {
    text += fmt::format("  {:<{}}", row[0], widths[0]);
    for (size_t i = 1; i < row.size(); ++i) text += fmt::format("  {:>{}}", row[i], widths[i]);
    text += '\n';
  }
  return text;
}

std::string Number(const ReportLine& line, const char* key) {
  const auto number = line.Integer(key);
  return number ? std::to_string(*number) : "-";
}

// The sum of all error rates; unsigned, since strangers choose the values.
std::string Errors(const ReportLine& line) {
  constexpr std::string_view ENDING = "_errors_per_min";
  uint64_t sum = 0;
  for (const auto& [name, value] : line.integers) {
    const bool is_error_rate =
        name.size() >= ENDING.size() && name.substr(name.size() - ENDING.size()) == ENDING;
    if (is_error_rate) sum += static_cast<uint64_t>(value);
  }
  return std::to_string(sum);
}

Row MakeRow(const std::string& title, const ReportLine& line) {
  Row row{title};
  for (const char* key : {"requests_per_min", "responses_per_min", "success_responses_per_min"}) {
    row.push_back(Number(line, key));
  }
  row.push_back(Errors(line));
  for (const char* key : {"timeouts_per_min", "delay_ms", "delay_samples"}) {
    row.push_back(Number(line, key));
  }
  return row;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable(text.substr(0, MOST_CHARACTERS));
  std::replace_if(
      printable.begin(), printable.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  if (text.size() > MOST_CHARACTERS) printable += "...";
  return printable;
}

std::string FormatTitle(const AssembledReport& report) {
  if (!report.overall) return "report -- INCOMPLETE, without its first line";
  const ReportLine& line = *report.overall;
  const auto text = line.texts.find("user_text");
  return fmt::format(
      "report: set {}, app {}, zone {}, from {}, {} s, {}{}", Printable(line.Tag("set_name")),
      Printable(line.Tag("app")), Printable(line.Tag("zone")), Printable(line.Tag("instance")),
      Number(line, "period_s"), text == line.texts.end() ? "" : Printable(text->second),
      report.IsComplete() ? "" : " -- INCOMPLETE");
}

std::string FormatTables(const AssembledReport& report) {
  std::vector<Row> rows{{"per minute", "requests", "responses", "successes", "errors", "time-outs",
                         "mean delay ms", "delays"}};
  if (report.overall) rows.push_back(MakeRow("all", *report.overall));
  for (const ReportLine& line : report.tables) {
    rows.push_back(MakeRow("table " + Printable(line.Tag("table")), line));
  }
  for (const ReportLine& line : report.accesses) {
    const std::string title = Printable(line.Tag("server")) + " " + Printable(line.Tag("url"));
    rows.push_back(MakeRow(title, line));
  }
  return FormatAligned(rows);
}

}  // namespace demo
