#include "examples/recorded_run.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>

#include "examples/report_lines.h"

namespace example {

namespace {

// Calls `take` for each line; counts those that are malformed or that `take` refuses.
size_t ReadLines(const std::string& path, const std::function<bool(const Line&)>& take) {
  std::ifstream file(path);
  size_t unusable = 0;
  std::string text;
  while (std::getline(file, text)) {
    const std::optional<Line> line = ParseLine(text);
    if (!line || !take(*line)) ++unusable;
  }
  // A directory can be opened but not read.
  if (!file.eof()) throw std::runtime_error(fmt::format("cannot read {}", path));
  return unusable;
}

std::optional<ReportId> IdOf(const Line& line) {
  const std::string* zone_id = FindTag(line, "zone_id");
  if (zone_id == nullptr || !line.timestamp_ns) return std::nullopt;
  return ReportId(*line.timestamp_ns, *zone_id);
}

std::optional<std::string> KeyOf(const Line& line) {
  if (line.measurement == PROCESS_MEASUREMENT) return line.measurement;
  const bool is_table = line.measurement == TABLE_MEASUREMENT;
  if (!is_table && line.measurement != ACCESS_MEASUREMENT) return std::nullopt;
  const std::string* name = FindTag(line, is_table ? "table" : "url");
  return name == nullptr ? std::nullopt
                         : std::optional<std::string>(line.measurement + ' ' + *name);
}

bool TakeJournalLine(const Line& line, std::vector<JournalReport>& journal) {
  const std::optional<ReportId> id = IdOf(line);
  if (!id) return false;
  if (line.measurement == "journal_report") {
    const auto period_s = FindInteger(line, "period_s");
    const auto handed_over = FindInteger(line, "handed_over");
    if (!period_s || *period_s <= 0 || !handed_over) return false;
    journal.push_back({*id, *period_s, *handed_over != 0, {}});
    return true;
  }
  const std::optional<std::string> key = KeyOf(line);
  return key && !journal.empty() && journal.back().id == *id &&
         journal.back().lines.emplace(*key, line).second;
}

bool TakeCollectedLine(const Line& line, CollectedFile& file) {
  const std::optional<ReportId> id = IdOf(line);
  const std::optional<std::string> key = KeyOf(line);
  if (!id || !key) return false;
  if (!file.reports[*id].emplace(*key, line).second) ++file.repeated;
  return true;
}

bool TakeByUrl(const Line& line, const char* measurement, LineByUrl& lines) {
  const std::string* url = FindTag(line, "url");
  return line.measurement == measurement && url != nullptr && lines.emplace(*url, line).second;
}

}  // namespace

RecordedRun ReadRun(const RunFiles& files) {
  RecordedRun run;
  run.unusable += ReadLines(files.journal,
                            [&](const Line& line) { return TakeJournalLine(line, run.journal); });
  run.unusable += ReadLines(files.service_summary, [&](const Line& line) {
    if (line.measurement != "service") return TakeByUrl(line, "service_proxy", run.by_service);
    run.service = line;
    return true;
  });
  for (const std::string& path : files.proxy_summaries) {
    run.unusable +=
        ReadLines(path, [&](const Line& line) { return TakeByUrl(line, "proxy", run.by_proxies); });
  }
  for (const std::string& path : files.collected) {
    CollectedFile file;
    file.name = path.substr(path.find_last_of('/') + 1);
    file.unusable =
        ReadLines(path, [&](const Line& line) { return TakeCollectedLine(line, file); });
    run.collected.push_back(std::move(file));
  }
  return run;
}

}  // namespace example
