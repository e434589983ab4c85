// The checks of what is known of the proxies: counts, delays and judgements.
#include <algorithm>

#include "tests/system/run_checks.h"

namespace demo {

namespace {

int64_t SumOverJournal(const RecordedRun& run, const std::string& key, const std::string& field) {
  int64_t sum = 0;
  for (const JournalReport& report : run.journal) {
    const auto line = report.lines.find(key);
    if (line != report.lines.end()) sum += NumberOf(line->second, field);
  }
  return sum;
}

// Records carry URLs without their scheme.
std::string AccessKey(const std::string& url) {
  constexpr size_t SCHEME_SIZE = 6;
  return "korvain_access " + url.substr(std::min(SCHEME_SIZE, url.size()));
}

// One side of the counting: the host as a whole and all proxies, or one proxy.
struct Counted {
  std::string name;
  std::string key;           // of the lines in the journal
  std::string errors_field;  // of those lines
  Numbers host;
  Numbers proxy;
};

// What the proxy has answered and the host has not counted as answered came late: after a time-out.
void CheckCountsOf(const RecordedRun& run, const Counted& counted, Verdict& verdict) {
  const auto reported = [&](const std::string& field) {
    return SumOverJournal(run, counted.key, field);
  };
  const auto host = [&](const char* field) { return NumberOf(counted.host, field); };
  const auto proxy = [&](const char* field) { return NumberOf(counted.proxy, field); };
  const std::string& name = counted.name;
  const int64_t late = proxy("answered") - host("answered");

  verdict.Check(reported("requests_per_min") == host("sent") && host("sent") == proxy("received") &&
                    host("sent") == host("answered") + host("timed_out") && host("sent") > 0,
                "{}: requests: {} reported, {} sent = {} answered in time + {} timed out, {} "
                "received by the proxy side",
                name, reported("requests_per_min"), host("sent"), host("answered"),
                host("timed_out"), proxy("received"));
  verdict.Check(reported("timeouts_per_min") == host("timed_out") &&
                    host("timed_out") == proxy("dropped") + late && host("unexpected") == late,
                "{}: time-outs: {} reported, {} counted = {} dropped + {} answered late, {} "
                "unexpected answers",
                name, reported("timeouts_per_min"), host("timed_out"), proxy("dropped"), late,
                host("unexpected"));
  verdict.Check(reported(counted.errors_field) == host("errors") &&
                    host("errors") <= proxy("errors") && proxy("errors") <= host("errors") + late,
                "{}: errors: {} reported, {} counted in time, {} returned, {} answers late", name,
                reported(counted.errors_field), host("errors"), proxy("errors"), late);
  verdict.Check(reported("responses_per_min") == host("answered") &&
                    reported("delay_samples") == host("delay_samples"),
                "{}: responses: {} reported, {} counted; delays above 0: {} reported, {} counted",
                name, reported("responses_per_min"), host("answered"), reported("delay_samples"),
                host("delay_samples"));
}

Numbers Sums(const std::map<std::string, Numbers>& by_url) {
  Numbers sums;
  for (const auto& [url, numbers] : by_url) {
    for (const auto& [name, number] : numbers) sums[name] += number;
  }
  return sums;
}

}  // namespace

void CheckCounts(const RecordedRun& run, Verdict& verdict) {
  const Numbers host = Sums(run.by_host);
  CheckCountsOf(run,
                {"all", "korvain_overall", "access_errors_per_min", host, Sums(run.by_proxies)},
                verdict);
  for (const auto& [url, own] : run.by_host) {
    CheckCountsOf(run,
                  {url, AccessKey(url), "proxy_system_errors_per_min", own, run.by_proxies.at(url)},
                  verdict);
  }
  verdict.EndGroup("counts",
                   fmt::format("{} requests = {} answered in time + {} timed out; module, host and "
                               "{} proxies agree",
                               NumberOf(host, "sent"), NumberOf(host, "answered"),
                               NumberOf(host, "timed_out"), run.by_proxies.size()));
}

void CheckDelays(const RecordedRun& run, double clock_speed, double tolerance_ms,
                 Verdict& verdict) {
  double greatest_excess_ms = 0;
  for (const auto& [url, proxy] : run.by_proxies) {
    const auto samples = static_cast<double>(SumOverJournal(run, AccessKey(url), "delay_samples"));
    const auto answered = static_cast<double>(NumberOf(proxy, "answered"));
    verdict.Check(samples > 0 && answered > 0, "{}: no delays to compare", url);
    if (samples <= 0 || answered <= 0) continue;
    const auto delay_ms = static_cast<double>(SumOverJournal(run, AccessKey(url), "delay_ms"));
    const double mean_ms = delay_ms / clock_speed / samples;
    const double held_ms = static_cast<double>(NumberOf(proxy, "held_us")) / 1000 / answered;
    verdict.Check(mean_ms >= held_ms - 1 && mean_ms <= held_ms + tolerance_ms,
                  "{}: a mean delay of {:.1f} ms reported, but the proxy held requests {:.1f} ms",
                  url, mean_ms, held_ms);
    greatest_excess_ms = std::max(greatest_excess_ms, mean_ms - held_ms);
  }
  verdict.EndGroup("delays", fmt::format("reported means of {} proxies are at most {:.1f} ms above "
                                         "the time that they held requests",
                                         run.by_proxies.size(), greatest_excess_ms));
}

void CheckJudgements(const RecordedRun& run, const std::set<std::string>& expected,
                     Verdict& verdict) {
  for (const std::string& url : expected) {
    verdict.Check(run.by_host.count(url) > 0, "{}: not a proxy of this run", url);
  }
  for (const auto& [url, own] : run.by_host) {
    const int64_t judged = NumberOf(own, "judged_unavailable");
    const int64_t back = NumberOf(own, "back_in_service");
    const int64_t out = NumberOf(own, "zones_out_at_end");
    const bool is_expected = expected.count(url) > 0;
    verdict.Check(is_expected == (judged > 0) && out == 0 && (back > 0) == is_expected,
                  "{}: {}; judged unavailable {} times, back in service {} times, not in service "
                  "in {} zones at the end",
                  url, is_expected ? "meant to fail for a while" : "meant to be fine", judged, back,
                  out);
  }
  verdict.EndGroup("judgements",
                   fmt::format("{} proxies have failed, were judged unavailable and taken back; {} "
                               "were fine all the time",
                               expected.size(), run.by_host.size() - expected.size()));
}

}  // namespace demo
