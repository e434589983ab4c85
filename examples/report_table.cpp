#include "examples/report_table.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <vector>

namespace example {

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

std::string Tag(const Line& line, const char* key) {
  const std::string* tag = FindTag(line, key);
  return tag == nullptr ? "-" : Printable(*tag);
}

std::string Number(const Line& line, const char* key) {
  const auto number = FindInteger(line, key);
  return number ? std::to_string(*number) : "-";
}

// The sum of all fields whose names end in "_errors"; unsigned, since strangers choose the values.
std::string Errors(const Line& line) {
  constexpr std::string_view ENDING = "_errors";
  uint64_t sum = 0;
  for (const auto& [name, value] : line.fields) {
    const auto* number = std::get_if<int64_t>(&value);
    const bool is_error_count =
        name.size() >= ENDING.size() && name.substr(name.size() - ENDING.size()) == ENDING;
    if (number != nullptr && is_error_count) sum += static_cast<uint64_t>(*number);
  }
  return std::to_string(sum);
}

void AddTraffic(const Line& line, Row* row) {
  for (const char* key : {"requests", "responses", "successes"}) row->push_back(Number(line, key));
  row->push_back(Errors(line));
}

void AddDelays(const Line& line, Row* row) {
  for (const char* key : {"timeouts", "delay_ms", "delay_samples"}) {
    row->push_back(Number(line, key));
  }
}

std::string FormatTime(int64_t timestamp_ns) {
  const time_t seconds = timestamp_ns / 1000000000;
  tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
  return text;
}

std::string FormatName(const Line& line, const std::string& kind) {
  const std::string* name = FindTag(line, kind);
  const std::string id = Tag(line, (kind + "_id").c_str());
  return name == nullptr ? fmt::format("{} {}", kind, id)
                         : fmt::format("{} {} \"{}\"", kind, id, Printable(*name));
}

// Any line of the report: all carry who and where. A report has at least one line.
const Line& AnyLine(const AssembledReport& report) {
  if (report.process) return *report.process;
  return report.tables.empty() ? report.accesses.front() : report.tables.front();
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
  const Line& line = AnyLine(report);
  return fmt::format("report of {}, {}, {}, {}, from {} pid {}, {} tables, {} accesses{}",
                     FormatTime(line.timestamp_ns.value_or(0)), FormatName(line, "zone"),
                     FormatName(line, "app"), FormatName(line, "set"), Tag(line, "ip"),
                     Tag(line, "pid"), report.tables.size(), report.accesses.size(),
                     report.IsComplete() ? "" : " -- INCOMPLETE");
}

std::string FormatTables(const AssembledReport& report) {
  std::vector<Row> rows{{"per minute", "requests", "responses", "successes", "errors", "time-outs",
                         "mean delay ms", "delays summed"}};
  if (report.process) {
    Row& row = rows.emplace_back(Row{"all"});
    AddTraffic(*report.process, &row);
    AddDelays(*report.process, &row);
  }
  for (const Line& line : report.tables) {
    Row& row = rows.emplace_back(Row{"table " + Tag(line, "table")});
    AddTraffic(line, &row);
  }
  for (const Line& line : report.accesses) {
    Row& row = rows.emplace_back(Row{Tag(line, "svr_id") + " " + Tag(line, "url")});
    AddTraffic(line, &row);
    AddDelays(line, &row);
  }
  return FormatAligned(rows);
}

}  // namespace example
