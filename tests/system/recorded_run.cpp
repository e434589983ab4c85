#include "tests/system/recorded_run.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>

#include "demo/common/command_line.h"

namespace demo {

using nlohmann::json;

namespace {

void ReadLines(const std::string& path, const std::function<void(const std::string&)>& take) {
  std::ifstream file(path);
  if (!file) throw UsageError(fmt::format("cannot open {}: {}", path, strerror(errno)));
  std::string line;
  while (std::getline(file, line)) take(line);
  // A directory can be opened but not read.
  if (!file.eof()) throw UsageError(fmt::format("cannot read {}: {}", path, strerror(errno)));
}

}  // namespace

void ReadJsonLines(const std::string& path, const std::function<void(const json&)>& take) {
  size_t number = 0;
  ReadLines(path, [&](const std::string& line) {
    ++number;
    try {
      take(json::parse(line));
    } catch (const std::exception& error) {
      throw UsageError(fmt::format("{}, line {}: {}", path, number, error.what()));
    }
  });
  if (number == 0) throw UsageError(fmt::format("{} is empty", path));
}

namespace {

int64_t ReadNumber(const json& value, const std::string& name, int64_t min, int64_t max) {
  const bool is_too_great = value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX;
  if (!value.is_number_integer() || is_too_great || value.get<int64_t>() < min ||
      value.get<int64_t>() > max) {
    throw UsageError(
        fmt::format("{} is {}, not an integer from {} to {}", name, value.dump(), min, max));
  }
  return value.get<int64_t>();
}

// Counts that the record keeps in 32 bits.
bool IsRate(const std::string& name) {
  constexpr std::string_view ENDING = "_per_min";
  return name.size() > ENDING.size() && name.substr(name.size() - ENDING.size()) == ENDING;
}

Numbers ReadNumbers(const json& object) {
  Numbers numbers;
  for (const auto& [name, value] : object.items()) {
    if (name == "url") continue;
    const int64_t max = IsRate(name) ? std::numeric_limits<uint32_t>::max() : GREATEST_NUMBER;
    numbers[name] = ReadNumber(value, name, 0, max);
  }
  return numbers;
}

JournalReport ReadJournalReport(const json& entry) {
  JournalReport report;
  report.instance = entry.at("instance").get<std::string>();
  report.server = entry.at("server").get<std::string>();
  report.id = {entry.at("zone").get<std::string>(),
               ReadNumber(entry.at("time_ns"), "time_ns", 0, INT64_MAX)};
  report.period_s = ReadNumber(entry.at("period_s"), "period_s", 1, INT32_MAX);
  report.is_handed_over = entry.at("handed_over").get<bool>();
  for (const auto& [key, numbers] : entry.at("lines").items()) {
    report.lines[key] = ReadNumbers(numbers);
  }
  return report;
}

std::map<std::string, Numbers> ReadSummaries(const std::vector<std::string>& paths) {
  std::map<std::string, Numbers> by_url;
  for (const std::string& path : paths) {
    ReadJsonLines(path, [&](const json& line) {
      const auto url = line.at("url").get<std::string>();
      if (!by_url.emplace(url, ReadNumbers(line)).second) throw UsageError(url + " comes twice");
    });
  }
  return by_url;
}

}  // namespace

std::optional<std::string> KeyOf(const ReportLine& line) {
  if (line.measurement == "korvain_overall") return line.measurement;
  if (line.measurement == "korvain_table") return line.measurement + ' ' + line.Tag("table");
  if (line.measurement == "korvain_access") return line.measurement + ' ' + line.Tag("url");
  return std::nullopt;
}

std::vector<JournalReport> ReadJournal(const std::string& path) {
  std::vector<JournalReport> journal;
  ReadJsonLines(path, [&](const json& line) { journal.push_back(ReadJournalReport(line)); });
  return journal;
}

namespace {

CollectedFile ReadCollected(const std::string& path) {
  CollectedFile file;
  file.name = path.substr(path.find_last_of('/') + 1);
  ReadLines(path, [&](const std::string& text) {
    ++file.lines;
    const std::optional<ReportLine> line = ReadReportLine(text);
    const std::optional<std::string> key = line ? KeyOf(*line) : std::nullopt;
    if (!key) {
      ++file.unusable;
    } else if (!file.reports[{line->Tag("zone"), line->timestamp_ns}].emplace(*key, *line).second) {
      ++file.repeated;
    }
  });
  return file;
}

}  // namespace

int64_t NumberOf(const Numbers& numbers, const std::string& name) {
  const auto found = numbers.find(name);
  return found == numbers.end() ? 0 : found->second;
}

RecordedRun ReadRun(const RunFiles& files) {
  RecordedRun run;
  run.journal = ReadJournal(files.journal);
  run.by_host = ReadSummaries({files.host_summary});
  run.by_proxies = ReadSummaries(files.proxy_summaries);
  for (const auto& [url, numbers] : run.by_host) {
    if (run.by_proxies.count(url) == 0) throw UsageError("no summary of the proxy " + url);
  }
  if (run.by_host.size() < run.by_proxies.size()) throw UsageError("a proxy unknown to the host");
  for (const std::string& path : files.collected) run.collected.push_back(ReadCollected(path));
  return run;
}

}  // namespace demo
