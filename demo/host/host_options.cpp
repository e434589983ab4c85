#include "demo/host/host_options.h"

#include <fmt/core.h>

#include <algorithm>

#include "demo/common/command_line.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

using namespace KorvainService;

namespace {

constexpr int MOST_SECONDS = 1000000;

void AddTrafficOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--zones", options.zones, "zones 1 to N; each is served by every proxy")
      ->check(CLI::Range(1, 64));
  app.add_option("--tables", options.tables, "tables in each zone")
      ->check(CLI::Range(1, int{STATISTIC_MAX_TABLE_COUNT}));
  app.add_option("--rate", options.rate, "requests per real second")->check(CLI::Range(1, 20000));
  app.add_option("--duration", options.duration_s, "real seconds; 0: until SIGINT or SIGTERM")
      ->check(CLI::Range(0, MOST_SECONDS));
  app.add_option("--clock-speed", options.clock_speed, "the host's seconds per real second")
      ->check(CLI::Range(1, 1000));
  app.add_option("--clock-start-ago", options.clock_start_ago_s,
                 "seconds before now at which the host's clock starts")
      ->check(CLI::Range(0, MOST_SECONDS));
  app.add_option("--timeout", options.timeout_ms, "of a request, milliseconds of the host's clock")
      ->check(CLI::PositiveNumber);
}

void AddReportOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--instance", options.instance,
                 "what the host is called in its reports; none by default: address and process id");
  app.add_option("--datagram-size", options.datagram_size, "most bytes of a report datagram")
      ->check(CLI::Range(size_t{1}, MAX_UDP_PAYLOAD));
  app.add_option("--datagrams-per-ms", options.datagrams_per_ms,
                 "most report datagrams sent in a millisecond")
      ->check(CLI::Range(1, 100000));
  app.add_option("--journal", options.journal,
                 "file for the counts of each report, JSON; none by default");
  app.add_option("--summary", options.summary, "file for the final counts, JSON; none by default");
}

void AddJudgeOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--judge-period", options.judge_period_s,
                 "real seconds: proxies are checked when more than these have passed")
      ->check(CLI::Range(1, MOST_SECONDS));
  app.add_option("--judge-times", options.judge_times, "bad checks that make one unavailable")
      ->check(CLI::PositiveNumber);
  app.add_option("--judge-threshold", options.judge_threshold,
                 "percent of failures that make a check bad")
      ->check(
          CLI::Range(MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD, MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD));
  app.add_option("--recheck", options.recheck_s,
                 "real seconds until an unavailable proxy is tried again")
      ->check(CLI::Range(1, MOST_SECONDS));
}

void AddServerOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--proxy", options.proxy_urls, "proxy to send requests to (may be repeated)")
      ->required()
      ->allow_extra_args(false)
      ->check(UdpUrl());
  app.add_option("--collect", options.collect_urls, "server to report to (may be repeated)")
      ->required()
      ->allow_extra_args(false)
      ->check(UdpUrl());
}

void CheckUrls(const char* option, const std::vector<std::string>& urls, size_t most) {
  if (urls.size() > most) {
    throw CLI::ValidationError(option,
                               fmt::format("{} are too many, at most {}", urls.size(), most));
  }
  for (auto url = urls.begin(); url != urls.end(); ++url) {
    if (std::find(urls.begin(), url, *url) == url) continue;
    throw CLI::ValidationError(option, *url + " is given twice");
  }
}

}  // namespace

void AddOptions(CLI::App& app, HostOptions& options) {
  AddNameOption(app, options.name);
  AddServerOptions(app, options);
  AddTrafficOptions(app, options);
  AddReportOptions(app, options);
  AddJudgeOptions(app, options);
  app.final_callback([&options] {
    CheckUrls("--proxy", options.proxy_urls, STATISTIC_MAX_ACCESS_COUNT);
    CheckUrls("--collect", options.collect_urls, STATISTIC_MAX_COLLECT_COUNT);
  });
}

}  // namespace demo
