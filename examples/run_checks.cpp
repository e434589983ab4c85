#include "examples/run_checks.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "examples/report_lines.h"

namespace example {

namespace {

int64_t Integer(const Line& line, const char* key) {
  return FindInteger(line, key).value_or(0);
}

// What a raw value becomes in the report, in the arithmetic that the collect servers know.
int64_t ExpectedValue(const std::string& field, const Line& raw, int64_t raw_value,
                      int64_t period_s) {
  static const std::set<std::string> UNCHANGED = {"table_count", "access_count", "known_accesses",
                                                  "delay_samples", "max_update_interval_ms"};
  if (UNCHANGED.count(field) > 0) return raw_value;
  if (field == "delay_ms") {
    const int64_t samples = Integer(raw, "delay_samples");
    return samples == 0 ? raw_value : raw_value / samples;
  }
  return static_cast<uint32_t>(raw_value) * 60u / static_cast<uint32_t>(period_s);
}

// The first integer field of `line` that does not follow from `raw`, if there is one.
std::optional<std::string> FindDeviation(const Line& line, const Line& raw, int64_t period_s) {
  for (const auto& [field, value] : raw.fields) {
    const auto* raw_value = std::get_if<int64_t>(&value);
    if (raw_value == nullptr) continue;
    const int64_t expected = ExpectedValue(field, raw, *raw_value, period_s);
    const std::optional<int64_t> reported = FindInteger(line, field);
    if (reported == expected) continue;
    return fmt::format("{} {}: {} from raw {} in {} s, not {}", line.measurement, field,
                       reported ? std::to_string(*reported) : "nothing", *raw_value, period_s,
                       expected);
  }
  return std::nullopt;
}

enum class Arrival { MISSING, PARTIAL, WHOLE };

Arrival ArrivalAt(const CollectedFile& file, const JournalReport& report) {
  const auto found = file.reports.find(report.id);
  if (found == file.reports.end()) return Arrival::MISSING;
  return found->second.size() == report.lines.size() ? Arrival::WHOLE : Arrival::PARTIAL;
}

void CheckContentsOf(const CollectedFile& file, const std::map<ReportId, JournalReport>& journal,
                     Verdict& verdict) {
  size_t lines = 0;
  size_t strangers = 0;
  std::vector<std::string> deviations;
  for (const auto& [id, report] : file.reports) {
    const auto written = journal.find(id);
    for (const auto& [key, line] : report) {
      ++lines;
      const bool is_known = written != journal.end() && written->second.lines.count(key) > 0;
      strangers += is_known ? 0 : 1;
      if (!is_known) continue;
      const JournalReport& source = written->second;
      const auto deviation = FindDeviation(line, source.lines.at(key), source.period_s);
      if (deviation) deviations.push_back(*deviation);
    }
  }
  verdict.Check(!file.reports.empty(), "{}: {} reports, {} lines arrived", file.name,
                file.reports.size(), lines);
  verdict.Check(file.unusable == 0 && file.repeated == 0 && strangers == 0,
                "{}: {} lines unusable, {} repeated, {} that nobody sent", file.name, file.unusable,
                file.repeated, strangers);
  verdict.Check(deviations.empty(), "{}: {} lines differ from the journal{}", file.name,
                deviations.size(), deviations.empty() ? "" : "; the first: " + deviations.front());
}

// Where the journal's reports have arrived, as runs of equal places: a file's index, or LOST.
constexpr int LOST = -1;
constexpr int TWICE = -2;

struct Stretch {
  int place;
  size_t reports;
};

int PlaceOf(const RecordedRun& run, const JournalReport& report, size_t* partial) {
  int place = LOST;
  for (size_t i = 0; i < run.collected.size(); ++i) {
    const Arrival arrival = ArrivalAt(run.collected[i], report);
    if (arrival == Arrival::PARTIAL) ++*partial;
    if (arrival == Arrival::WHOLE) place = place == LOST ? static_cast<int>(i) : TWICE;
  }
  return place;
}

std::string Describe(const RecordedRun& run, const Stretch& stretch) {
  const std::string place = stretch.place == LOST ? "lost"
                            : stretch.place == TWICE
                                ? "at several servers"
                                : "at " + run.collected[static_cast<size_t>(stretch.place)].name;
  return fmt::format("{} {}", stretch.reports, place);
}

// A server that is killed between two datagrams leaves one report that arrived in part.
bool IsPlausible(const std::vector<Stretch>& stretches, size_t partial) {
  const bool has_loss = stretches.size() == 3 && stretches[1].place == LOST;
  const bool is_simple = stretches.size() == 1 || stretches.size() == 2;
  if (!has_loss && !is_simple) return false;
  const bool are_ends_good = stretches.front().place >= 0 && stretches.back().place >= 0 &&
                             (!has_loss || stretches.front().place != stretches.back().place);
  return are_ends_good && partial <= (has_loss ? 1u : 0u);
}

int64_t SumOverJournal(const RecordedRun& run, const std::string& key, const char* field) {
  int64_t sum = 0;
  for (const JournalReport& report : run.journal) {
    const auto line = report.lines.find(key);
    if (line != report.lines.end()) sum += Integer(line->second, field);
  }
  return sum;
}

// Records carry URLs without their scheme.
std::string AccessKey(const std::string& url) {
  constexpr size_t SCHEME_SIZE = 6;
  return std::string(ACCESS_MEASUREMENT) + ' ' + url.substr(std::min(SCHEME_SIZE, url.size()));
}

// One side of the counting: the service API as a whole and all proxies, or one proxy.
struct Counted {
  std::string name;
  std::string key;           // of the lines in the journal
  const char* errors_field;  // of those lines
  Line own;                  // counted by the service API itself
  Line proxy;                // counted by the proxy, or the sum over all
};

void CheckCountsOf(const RecordedRun& run, const Counted& counted, Verdict& verdict) {
  const auto reported = [&](const char* field) { return SumOverJournal(run, counted.key, field); };
  const auto own = [&](const char* field) { return Integer(counted.own, field); };
  const auto proxy = [&](const char* field) { return Integer(counted.proxy, field); };
  const std::string& name = counted.name;

  verdict.Check(reported("requests") == own("sent") && own("sent") == proxy("received") &&
                    own("sent") == own("answered") + own("timed_out") && own("sent") > 0,
                "{}: requests: {} reported, {} sent = {} answered in time + {} timed out, {} "
                "received by the proxy side",
                name, reported("requests"), own("sent"), own("answered"), own("timed_out"),
                proxy("received"));
  verdict.Check(reported("timeouts") == own("timed_out") &&
                    own("timed_out") == proxy("dropped") + own("late"),
                "{}: time-outs: {} reported, {} counted = {} dropped + {} answered late", name,
                reported("timeouts"), own("timed_out"), proxy("dropped"), own("late"));
  verdict.Check(reported(counted.errors_field) == own("system_errors") &&
                    own("system_errors") + own("late_system_errors") == proxy("errors"),
                "{}: system errors: {} reported, {} counted in time + {} late, {} returned", name,
                reported(counted.errors_field), own("system_errors"), own("late_system_errors"),
                proxy("errors"));
  verdict.Check(
      reported("responses") == own("answered") && reported("delay_samples") == own("delay_samples"),
      "{}: responses: {} reported, {} counted; delays above 0: {} reported, {} counted", name,
      reported("responses"), own("answered"), reported("delay_samples"), own("delay_samples"));
}

Line SumOfProxies(const RecordedRun& run) {
  Line sum;
  for (const char* field : {"received", "dropped", "errors"}) {
    int64_t total = 0;
    for (const auto& [url, line] : run.by_proxies) total += Integer(line, field);
    sum.fields.emplace_back(field, total);
  }
  return sum;
}

}  // namespace

void Verdict::Record(bool holds, const std::string& text) {
  ++m_checks;
  m_failures += holds ? 0 : 1;
  fmt::print("{} {}\n", holds ? "[ ok ]" : "[FAIL]", text);
}

bool Verdict::Conclude() const {
  const bool holds = m_checks > 0 && m_failures == 0;
  fmt::print("verdict: {} ({} of {} checks hold)\n",
             holds ? "everything agrees" : "NOT everything agrees", m_checks - m_failures,
             m_checks);
  return holds;
}

void CheckContents(const RecordedRun& run, Verdict& verdict) {
  std::map<ReportId, JournalReport> journal;
  for (const JournalReport& report : run.journal) journal.emplace(report.id, report);
  verdict.Check(run.unusable == 0 && journal.size() == run.journal.size() && !journal.empty(),
                "journal: {} reports; {} unusable lines in journal and summaries",
                run.journal.size(), run.unusable);
  for (const CollectedFile& file : run.collected) CheckContentsOf(file, journal, verdict);
}

void CheckDelivery(const RecordedRun& run, Verdict& verdict) {
  std::vector<Stretch> stretches;
  size_t partial = 0;
  size_t refused = 0;
  for (const JournalReport& report : run.journal) {
    const int place = PlaceOf(run, report, &partial);
    if (stretches.empty() || stretches.back().place != place) stretches.push_back({place, 0});
    ++stretches.back().reports;
    refused += report.is_handed_over ? 0 : 1;
  }
  std::string order;
  for (const Stretch& stretch : stretches) {
    order += (order.empty() ? "" : ", then ") + Describe(run, stretch);
  }
  verdict.Check(IsPlausible(stretches, partial), "delivery in the journal's order: {}", order);
  verdict.Check(refused == 0, "delivery: {} reports in part, {} refused by the channel", partial,
                refused);
}

void CheckCounts(const RecordedRun& run, Verdict& verdict) {
  CheckCountsOf(run, {"all", PROCESS_MEASUREMENT, "access_errors", run.service, SumOfProxies(run)},
                verdict);
  for (const auto& [url, own] : run.by_service) {
    const auto proxy = run.by_proxies.find(url);
    if (proxy == run.by_proxies.end()) {
      verdict.Check(false, "{}: no summary of this proxy", url);
      continue;
    }
    CheckCountsOf(run, {url, AccessKey(url), "proxy_system_errors", own, proxy->second}, verdict);
  }
  verdict.Check(run.by_service.size() == run.by_proxies.size(), "{} proxies used, {} summaries",
                run.by_service.size(), run.by_proxies.size());
}

// The module leaves late answers out, the proxy does not know which of its answers come late: what
// the service API itself has measured of them is added.
void CheckDelays(const RecordedRun& run, double clock_speed, Verdict& verdict) {
  for (const auto& [url, own] : run.by_service) {
    const auto proxy = run.by_proxies.find(url);
    const int64_t samples = SumOverJournal(run, AccessKey(url), "delay_samples");
    const int64_t answered = proxy == run.by_proxies.end() ? 0 : Integer(proxy->second, "answered");
    if (samples <= 0 || answered <= 0) {
      verdict.Check(false, "{}: no delays to compare", url);
      continue;
    }
    const int64_t late = Integer(own, "late");
    const int64_t delay_ms =
        SumOverJournal(run, AccessKey(url), "delay_ms") + Integer(own, "late_delay_ms");
    const double mean = static_cast<double>(delay_ms) / static_cast<double>(samples + late);
    const double held_ms = static_cast<double>(Integer(proxy->second, "delay_us_sum")) / 1000 /
                           static_cast<double>(answered);
    const double excess_ms = mean / clock_speed - held_ms;
    verdict.Check(
        excess_ms >= -1 && excess_ms <= 15,
        "{}: mean delay of {} reported and {} late answers: {:.0f} clock ms = {:.1f} real "
        "ms, held {:.1f} ms by the proxy",
        url, samples, late, mean, mean / clock_speed, held_ms);
  }
}

void CheckJudgements(const RecordedRun& run, const std::set<std::string>& expected,
                     Verdict& verdict) {
  for (const std::string& url : expected) {
    if (run.by_service.count(url) == 0) verdict.Check(false, "{}: not a proxy of this run", url);
  }
  for (const auto& [url, line] : run.by_service) {
    const int64_t judged = Integer(line, "judged_unavailable");
    const int64_t back = Integer(line, "back_in_service");
    const int64_t out = Integer(line, "not_in_service_at_end");
    const bool is_expected = expected.count(url) > 0;
    verdict.Check(
        is_expected == (judged > 0) && out == 0 && (back > 0) == is_expected,
        "{}: {}; judged unavailable {} times, back in service {} times, not in service in {} "
        "zones at the end",
        url, is_expected ? "meant to fail for a while" : "meant to be fine", judged, back, out);
  }
}

}  // namespace example
