#include "demo/database/database_checks.h"

#include <set>

namespace demo {

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1000000000;

using Journal = std::vector<const JournalReport*>;

std::map<std::string, Journal> ByZone(const RecordedRun& host) {
  std::map<std::string, Journal> by_zone;
  for (const JournalReport& report : host.journal) by_zone[report.id.first].push_back(&report);
  return by_zone;
}

bool IsWhole(const CollectedFile& stored, const JournalReport& report) {
  const auto found = stored.reports.find(report.id);
  return found != stored.reports.end() && found->second.size() == report.lines.size();
}

// Whether the report is the zone's last before the killed server is left, or the first after.
bool IsAtKill(const Journal& journal, size_t i, const std::string& killed_url) {
  const auto is_to_killed = [&](size_t at) { return journal[at]->server == killed_url; };
  const bool is_last = is_to_killed(i) && i + 1 < journal.size() && !is_to_killed(i + 1);
  const bool is_first = !is_to_killed(i) && i > 0 && is_to_killed(i - 1);
  return is_last || is_first;
}

// How many of the zone's reports are not there as a whole.
int CheckZone(const CollectedFile& stored, const Journal& journal, const std::string& killed_url,
              Verdict& verdict) {
  int missing = 0;
  for (size_t i = 0; i < journal.size(); ++i) {
    const bool is_whole = IsWhole(stored, *journal[i]);
    missing += is_whole ? 0 : 1;
    verdict.Check(is_whole || IsAtKill(journal, i, killed_url),
                  "{}, {}: the report of {} ns, number {} of {}, has not arrived as a whole",
                  stored.name, journal[i]->id.first, journal[i]->id.second, i + 1, journal.size());
  }
  verdict.Check(missing <= 1, "{}, {}: {} reports are missing", stored.name,
                journal.front()->id.first, missing);
  return missing;
}

// Fields, but for the mean of no delays, which is left out.
std::set<std::string> FieldsOf(const ReportLine& line) {
  std::set<std::string> fields;
  for (const auto& [field, value] : line.integers) fields.insert(field);
  fields.erase("delay_ms");
  return fields;
}

// Calls `take` with every stored line and its host's file.
template <class Take>
void ForEachLine(const std::vector<RecordedRun>& hosts, const Take& take) {
  for (const RecordedRun& host : hosts) {
    for (const auto& [id, lines] : host.collected.front().reports) {
      for (const auto& [key, line] : lines) take(host.collected.front(), key, line);
    }
  }
}

// The zone's latest report at that time, if there is one that is not too old.
const JournalReport* LatestOf(const Journal& journal, int64_t time_s, int64_t window_s) {
  const JournalReport* latest = nullptr;
  for (const JournalReport* const report : journal) {
    const int64_t age_ns = time_s * NANOSECONDS_PER_SECOND - report->id.second;
    if (age_ns >= 0 && age_ns < window_s * NANOSECONDS_PER_SECOND) latest = report;
  }
  return latest;
}

void AddRequests(const JournalReport& report, std::map<std::string, int64_t>& sums) {
  constexpr std::string_view ACCESS = "korvain_access ";
  for (const auto& [key, numbers] : report.lines) {
    if (key.rfind(ACCESS, 0) != 0) continue;
    sums[key.substr(ACCESS.size())] += NumberOf(numbers, "requests_per_min") * 60 / report.period_s;
  }
}

}  // namespace

void CheckArrival(const RecordedRun& host, const std::string& killed_url, Verdict& verdict) {
  const CollectedFile& stored = host.collected.front();
  int missing = 0;
  for (const auto& [zone, journal] : ByZone(host)) {
    missing += CheckZone(stored, journal, killed_url, verdict);
  }
  verdict.EndGroup("arrival", fmt::format("{}: {} of {} reports, {} lines; {} lost at the kill",
                                          stored.name, host.journal.size() - size_t(missing),
                                          host.journal.size(), stored.lines, missing));
}

void CheckFields(const std::vector<RecordedRun>& hosts, Verdict& verdict) {
  std::map<std::string, std::set<std::string>> fields;  // by measurement
  ForEachLine(hosts, [&](const CollectedFile&, const std::string&, const ReportLine& line) {
    fields[line.measurement].merge(FieldsOf(line));
  });
  size_t count = 0;
  ForEachLine(hosts,
              [&](const CollectedFile& file, const std::string& key, const ReportLine& line) {
                const std::set<std::string> of_line = FieldsOf(line);
                count += of_line.size();
                verdict.Check(of_line == fields[line.measurement],
                              "{}, {}, {} ns: {} fields, not {}", file.name, key, line.timestamp_ns,
                              of_line.size(), fields[line.measurement].size());
              });
  verdict.EndGroup("fields", fmt::format("{} values, none of a line is missing", count));
}

void CheckSums(const std::vector<RecordedRun>& hosts, const Sums& sums, int64_t window_s,
               Verdict& verdict) {
  std::map<std::string, int64_t> expected;
  for (const RecordedRun& host : hosts) {
    for (const auto& [zone, journal] : ByZone(host)) {
      const JournalReport* const latest = LatestOf(journal, sums.time_s, window_s);
      if (latest != nullptr) AddRequests(*latest, expected);
    }
  }
  for (const auto& [url, sum] : expected) {
    const auto found = sums.requests_per_min.find(url);
    const int64_t stored = found == sums.requests_per_min.end() ? -1 : found->second;
    verdict.Check(stored == sum, "{}: all instances sum up to {}, not {}", url, stored, sum);
  }
  verdict.Check(sums.requests_per_min.size() == expected.size(), "{} sums, not {}",
                sums.requests_per_min.size(), expected.size());
  verdict.EndGroup("sums", fmt::format("the query's sums over {} instances are those of their "
                                       "journals, for {} proxies",
                                       hosts.size(), expected.size()));
}

}  // namespace demo
