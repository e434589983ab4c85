// The checks of the reports: their contents and their way.
#include <optional>

#include "tests/system/run_checks.h"

namespace demo {

namespace {

// What a raw number becomes in a report, in the record's arithmetic of 32 bits; nothing where the
// report has no such field.
std::optional<int64_t> ExpectedValue(const std::string& field, const Numbers& raw,
                                     int64_t period_s) {
  const bool is_rate = field.find("_per_min") != std::string::npos;
  const int64_t number = NumberOf(raw, field);
  if (is_rate) return static_cast<int64_t>(static_cast<uint32_t>(number * 60)) / period_s;
  if (field == "period_s") return period_s;
  if (field != "delay_ms") return number;
  const int64_t samples = NumberOf(raw, "delay_samples");
  return samples == 0 ? std::nullopt : std::optional<int64_t>(number / samples);
}

std::string Text(const std::optional<int64_t>& number) {
  return number ? std::to_string(*number) : "nothing";
}

// A field that the host does not count in is 0, but for the id of the process.
void CheckLine(const std::string& where, const ReportLine& line, const Numbers& raw,
               int64_t period_s, Verdict& verdict) {
  std::set<std::string> fields{"period_s"};
  for (const auto& [field, value] : raw) fields.insert(field);
  for (const auto& [field, value] : line.integers) fields.insert(field);
  fields.erase("pid");
  for (const std::string& field : fields) {
    const std::optional<int64_t> expected = ExpectedValue(field, raw, period_s);
    verdict.Check(line.Integer(field) == expected, "{}: {} is {}, not {} from {} in {} s", where,
                  field, Text(line.Integer(field)), Text(expected), NumberOf(raw, field), period_s);
  }
}

void CheckContentsOf(const CollectedFile& file,
                     const std::map<ReportId, const JournalReport*>& journal, Verdict& verdict) {
  for (const auto& [id, report] : file.reports) {
    const auto written = journal.find(id);
    for (const auto& [key, line] : report) {
      const std::string where = fmt::format("{}, {}, {}", file.name, id.first, key);
      const bool is_known = written != journal.end() && written->second->lines.count(key) > 0;
      verdict.Check(is_known, "{}: nobody sent this line", where);
      if (!is_known) continue;
      CheckLine(where, line, written->second->lines.at(key), written->second->period_s, verdict);
    }
  }
  verdict.Check(file.unusable == 0 && file.repeated == 0, "{}: {} lines unusable, {} repeated",
                file.name, file.unusable, file.repeated);
}

// Where a report has arrived as a whole, and nowhere in part.
constexpr int LOST = -1;
constexpr int TWICE = -2;

int PlaceOf(const RecordedRun& run, const JournalReport& report) {
  int place = LOST;
  for (size_t i = 0; i < run.collected.size(); ++i) {
    const auto found = run.collected[i].reports.find(report.id);
    if (found == run.collected[i].reports.end()) continue;
    if (found->second.size() != report.lines.size()) continue;
    place = place == LOST ? static_cast<int>(i) : TWICE;
  }
  return place;
}

// Consecutive reports of a zone that have gone the same way.
struct Stretch {
  int place;
  size_t reports;
};

std::string Describe(const RecordedRun& run, const std::vector<Stretch>& stretches) {
  std::string text;
  for (const Stretch& stretch : stretches) {
    const std::string place = stretch.place == LOST ? "lost"
                              : stretch.place == TWICE
                                  ? "at several servers"
                                  : run.collected[static_cast<size_t>(stretch.place)].name;
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", stretch.reports, place);
  }
  return text;
}

bool IsMoveWithOneLoss(const std::vector<Stretch>& stretches) {
  if (stretches.size() != 2 && stretches.size() != 3) return false;
  const bool are_ends_good = stretches.front().place >= 0 && stretches.back().place >= 0;
  const bool is_middle_good =
      stretches.size() == 2 || (stretches[1].place == LOST && stretches[1].reports == 1);
  return are_ends_good && is_middle_good && stretches.front().place != stretches.back().place;
}

}  // namespace

void CheckContents(const RecordedRun& run, Verdict& verdict) {
  std::map<ReportId, const JournalReport*> journal;
  size_t lines = 0;
  for (const JournalReport& report : run.journal) {
    const bool is_new = journal.emplace(report.id, &report).second;
    verdict.Check(is_new, "{}: two reports of the same time in the journal", report.id.first);
  }
  for (const CollectedFile& file : run.collected) {
    CheckContentsOf(file, journal, verdict);
    lines += file.lines;
  }
  verdict.EndGroup("contents", fmt::format("{} lines arrived; each number follows from what the "
                                           "host counted",
                                           lines));
}

void CheckDelivery(const RecordedRun& run, Verdict& verdict) {
  std::map<std::string, std::vector<Stretch>> by_zone;
  for (const JournalReport& report : run.journal) {
    const int place = PlaceOf(run, report);
    std::vector<Stretch>& stretches = by_zone[report.id.first];
    if (stretches.empty() || stretches.back().place != place) stretches.push_back({place, 0});
    ++stretches.back().reports;
    verdict.Check(report.is_handed_over || place == LOST,
                  "{}: a report has arrived that the kernel did not take", report.id.first);
  }
  std::string summary;
  for (const auto& [zone, stretches] : by_zone) {
    verdict.Check(IsMoveWithOneLoss(stretches),
                  "{}: not one server, at most one report lost, then the other, but {}", zone,
                  Describe(run, stretches));
    summary += fmt::format("{}{}: {}", summary.empty() ? "" : "; ", zone, Describe(run, stretches));
  }
  verdict.EndGroup("delivery", summary);
}

}  // namespace demo
