#include "demo/host/host_options.h"

#include <fmt/core.h>

#include <set>

#include "demo/common/command_line.h"
#include "demo/common/udp_socket.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

using namespace KorvainService;

namespace {

constexpr int32_t MOST_ZONES = 64;
constexpr int32_t MOST_SECONDS = 1000000;
constexpr int32_t MOST_DATAGRAMS_PER_MS = 100000;  // no limit, in practice

void AddTrafficOptions(CLI::App& app, HostOptions& options) {
  AddRepeatedOption(app, "--proxy", options.proxy_urls, "proxy to send requests to")
      ->required()
      ->check(UdpUrl());
  app.add_option("--zones", options.zones, "zones 1 to N; each is served by every proxy")
      ->check(InRange(1, MOST_ZONES));
  app.add_option("--tables", options.tables, "tables in each zone")
      ->check(InRange(1, STATISTIC_MAX_TABLE_COUNT));
  app.add_option("--rate", options.rate, "requests per real second")->check(InRange(0.1, 20000));
  app.add_option("--duration", options.duration_s, "real seconds; 0: until SIGINT or SIGTERM")
      ->check(InRange(0, MOST_SECONDS));
  app.add_option("--clock-speed", options.clock_speed, "the host's seconds per real second")
      ->check(InRange(1, 1000));
  app.add_option("--clock-start-ago", options.clock_start_ago_s,
                 "seconds before now at which the host's clock starts")
      ->check(InRange(0, MOST_SECONDS));
  app.add_option("--timeout", options.timeout_ms, "of a request, milliseconds of the host's clock")
      ->check(InRange(1));
}

void AddReportOptions(CLI::App& app, HostOptions& options) {
  AddRepeatedOption(app, "--collect", options.collect_urls, "collect server to report to")
      ->required()
      ->check(UdpUrl());
  app.add_option("--instance", options.instance,
                 "what the host is called in its reports; none by default: address and process id");
  app.add_option("--datagram-size", options.datagram_size, "most bytes of a report datagram")
      ->check(InRange(1, static_cast<double>(MAX_UDP_PAYLOAD)));
  app.add_option("--datagrams-per-ms", options.datagrams_per_ms,
                 "most report datagrams sent in a millisecond")
      ->check(InRange(1, MOST_DATAGRAMS_PER_MS));
  app.add_option("--journal", options.journal,
                 "file for the counts of each report, JSON; none by default");
  app.add_option("--summary", options.summary, "file for the final counts, JSON; none by default");
}

void AddJudgeOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--judge-period", options.judge_period_s,
                 "real seconds: proxies are checked when more than these have passed")
      ->check(InRange(1, MOST_SECONDS));
  app.add_option("--judge-times", options.judge_times, "bad checks that make one unavailable")
      ->check(InRange(1, MOST_SECONDS));
  app.add_option("--judge-threshold", options.judge_threshold,
                 "percent of failures that make a check bad")
      ->check(
          InRange(MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD, MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD));
  app.add_option("--recheck", options.recheck_s,
                 "real seconds until an unavailable proxy is tried again")
      ->check(InRange(1, MOST_SECONDS));
}

void CheckUrls(const char* option, const std::vector<std::string>& urls, int32_t most) {
  if (urls.size() > static_cast<size_t>(most)) {
    throw UsageError(fmt::format("{}: {} are too many, at most {}", option, urls.size(), most));
  }
  std::set<std::string> seen;
  for (const std::string& url : urls) {
    if (!seen.insert(ToUrl(ParseUdpUrl(url).value())).second) {
      throw UsageError(fmt::format("{}: {} is given twice", option, url));
    }
  }
}

}  // namespace

void AddOptions(CLI::App& app, HostOptions& options) {
  AddTrafficOptions(app, options);
  AddReportOptions(app, options);
  AddJudgeOptions(app, options);
  AddConsoleOptions(app, options.console);
}

void CheckOptions(const HostOptions& options) {
  CheckUrls("--proxy", options.proxy_urls, STATISTIC_MAX_ACCESS_COUNT);
  CheckUrls("--collect", options.collect_urls, STATISTIC_MAX_COLLECT_COUNT);
}

}  // namespace demo
