#include "demo/host/host_options.h"

#include <fmt/core.h>

#include <algorithm>

#include "demo/common/command_line.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

using namespace KorvainService;

namespace {

constexpr int MOST_SECONDS = 1000000;

void AddTrafficOptions(CLI::App& app, HostOptions& options) {
  AddNumber(app, "--zones", options.zones, 1, 64, "zones 1 to N; each is served by every proxy");
  AddNumber(app, "--rate", options.rate, 1, 20000, "requests per real second");
  AddNumber(app, "--clock-speed", options.clock_speed, 1, 1000,
            "the host's seconds per real second");
  AddNumber(app, "--clock-start-ago", options.clock_start_ago_s, 0, MOST_SECONDS,
            "seconds before now at which the host's clock starts");
  AddNumber(app, "--timeout", options.timeout_ms, 1, INT32_MAX,
            "of a request, milliseconds of the host's clock");
}

void AddReportOptions(CLI::App& app, HostOptions& options) {
  app.add_option("--instance", options.instance,
                 "what the host is called in its reports; none by default: address and process id");
  app.add_option("--journal", options.journal,
                 "file for the counts of each report, JSON; none by default");
  app.add_option("--summary", options.summary, "file for the final counts, JSON; none by default");
}

void AddJudgeOptions(CLI::App& app, HostOptions& options) {
  AddNumber(app, "--judge-period", options.judge_period_s, 1, MOST_SECONDS,
            "real seconds: proxies are checked when more than these have passed");
  AddNumber(app, "--judge-times", options.judge_times, 1, INT32_MAX,
            "bad checks that make one unavailable");
  AddNumber(app, "--judge-threshold", options.judge_threshold,
            MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD, MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD,
            "percent of failures that make a check bad");
  AddNumber(app, "--recheck", options.recheck_s, 1, MOST_SECONDS,
            "real seconds until an unavailable proxy is tried again");
}

void AddUrls(CLI::App& app, const std::string& name, std::vector<std::string>& urls,
             const std::string& description) {
  app.add_option(name, urls, description)
      ->required()
      ->allow_extra_args(false)
      ->check(UdpUrl())
      ->default_str("");
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
  app.footer("SIGINT or SIGTERM ends the program, which waits for the last answers.");
  AddNameOption(app, options.name);
  AddUrls(app, "--proxy", options.proxy_urls, "proxy to send requests to (may be repeated)");
  AddUrls(app, "--collect", options.collect_urls, "server to report to (may be repeated)");
  AddTrafficOptions(app, options);
  AddReportOptions(app, options);
  AddJudgeOptions(app, options);
  app.final_callback([&options] {
    CheckUrls("--proxy", options.proxy_urls, STATISTIC_MAX_ACCESS_COUNT);
    CheckUrls("--collect", options.collect_urls, STATISTIC_MAX_COLLECT_COUNT);
  });
}

}  // namespace demo
