// A small service API: the host of the statistics module, with a poll loop of its own.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "examples/console_logger.h"
#include "examples/line_protocol.h"
#include "examples/program.h"
#include "examples/proxy_set.h"
#include "examples/report_cycle.h"
#include "examples/scaled_clock.h"
#include "examples/service_options.h"
#include "examples/traffic.h"
#include "examples/udp_socket.h"
#include "service_api/korvain_service_statistic.h"

namespace example {

using namespace KorvainService;

namespace {

using Clock = std::chrono::steady_clock;

class ServiceApi {
 public:
  explicit ServiceApi(const ServiceOptions& options)
      : m_options(options),
        m_console(options.name),
        m_signals({SIGINT, SIGTERM, SIGUSR1}),
        m_logger(m_console, options.verbose),
        m_summary(OpenFile(options.summary, "w")),
        m_proxies(MakeProxies(options.proxy_urls)),
        m_judge(&m_logger),
        m_reports(options, m_proxies, m_statistic_mgr, m_channel, m_logger, m_console),
        m_zones(MakeZones()),
        m_traffic(options, m_proxies, m_zones, m_statistic_mgr, m_logger) {}

  int Run() {
    OpenChannel();
    if (m_options.clock_speed != 1) {
      m_console.Print(
          "the clock runs {} times as fast as real time: delays, time-outs and report "
          "periods are in its time",
          m_options.clock_speed);
    }
    while (!m_is_stopped && !IsDurationOver()) RunOnce(true);
    m_console.Print("sends no more requests, waits for {} answers", m_traffic.Waiting());
    m_is_stopped = false;  // one more signal ends the waiting
    while (!(m_traffic.IsSettled() || m_is_stopped) || !m_reports.CanReportAll()) RunOnce(false);
    m_reports.ReportAll();
    Conclude();
    return 0;
  }

 private:
  std::vector<ProxySet> MakeZones() {
    std::vector<ProxySet> zones;
    for (int32_t id = 1; id <= m_options.zones; ++id) {
      zones.emplace_back(m_options, id, m_proxies, m_judge, m_console);
    }
    return zones;
  }

  void OpenChannel() {
    std::vector<const char*> urls;
    for (const std::string& url : m_options.collect_urls) urls.push_back(url.c_str());
    m_channel.Init(&m_logger);
    m_channel.AddCollectServerAddress(urls.data(), static_cast<int32_t>(urls.size()));
  }

  bool IsDurationOver() const {
    return m_options.duration_s > 0 && ElapsedSeconds() >= m_options.duration_s;
  }

  double ElapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
  }

  void RunOnce(bool is_sending) {
    HandleSignal(m_signals.Wait(m_traffic.fd(), MillisecondsToNextRequest()));
    m_traffic.TakeResponses();
    m_traffic.TimeOutRequests();
    if (is_sending) SendDueRequests();
    for (ProxySet& zone : m_zones) zone.Update(m_statistic_mgr, Clock::now());
    m_channel.Update();  // before the reports, which would be lost in a closed channel
    m_reports.ReportDueZones();
    RecordUpdateInterval();
    if (Clock::now() >= m_next_traffic_line) PrintTraffic();
  }

  int MillisecondsToNextRequest() const {
    constexpr double LONGEST_MS = 10;  // the module's clock may run much faster than real time
    const double next_s = static_cast<double>(m_paced + 1) / m_options.rate;
    const double left_ms = std::ceil((next_s - ElapsedSeconds()) * 1000);
    return static_cast<int>(std::clamp(left_ms, 1.0, LONGEST_MS));
  }

  void HandleSignal(int signal) {
    if (signal == SIGINT || signal == SIGTERM) m_is_stopped = true;
    if (signal == SIGUSR1) LeaveCollectServer();
  }

  // UDP does not tell that a server has gone, but a report that the kernel refuses makes the
  // channel turn to the next server.
  void LeaveCollectServer() {
    const std::string unsendable(MAX_DATAGRAM_SIZE + 1, 'x');
    const int result = m_channel.Send(unsendable.data(), static_cast<int>(unsendable.size()));
    m_console.Print(
        "CHANNEL told to leave its collect server: a report of {} bytes, one more than "
        "UDP carries, gave {}; {}",
        unsendable.size(), result,
        result == 0 ? "the channel stays open, against expectation"
                    : "so it is closed and turns to the next server in turn, whoever "
                      "that is");
  }

  void SendDueRequests() {
    const double due = std::floor(ElapsedSeconds() * m_options.rate);
    // After a pause of the process, what lies further back than this is not made up for.
    const double most = std::max(16.0, m_options.rate / 20);
    const auto paced = static_cast<int64_t>(due);
    m_paced = std::max(m_paced, paced - static_cast<int64_t>(most));
    for (; m_paced < paced; ++m_paced) m_traffic.SendRequest();
  }

  void RecordUpdateInterval() {
    const int64_t now_ms = GetCurrentMilliseconds();
    const auto interval = static_cast<uint32_t>(now_ms - m_last_update_ms);
    m_last_update_ms = now_ms;
    for (const ProxySet& zone : m_zones) {
      OVERALLRUNSTATUS& overall =
          m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.zone_id())->stOverallRunStatus;
      const uint32_t longest = overall.dwMaxCallOnUpdateInterval;
      overall.dwMaxCallOnUpdateInterval = std::max(longest, interval);
    }
  }

  void PrintTraffic() {
    m_next_traffic_line += std::chrono::seconds(1);
    const Tally now = m_traffic.TotalTally();
    const Tally& then = m_printed;
    const int64_t answered = now.answered - then.answered;
    const auto delay_ms = static_cast<double>(now.delay_sum_ms - then.delay_sum_ms) /
                          static_cast<double>(std::max<int64_t>(answered, 1));
    std::string in_use;
    for (const ProxySet& zone : m_zones) {
      in_use += fmt::format("{}{}", in_use.empty() ? "" : " + ", zone.InUse());
    }
    m_console.Print(
        "{:3.0f} s: sent {:4}, answered {:4}, timed out {:3}, system errors {:3}, in "
        "flight {:3}, mean delay {:4.0f} ms, proxies in use {} of {}",
        ElapsedSeconds(), now.sent - then.sent, answered, now.timed_out - then.timed_out,
        now.system_errors - then.system_errors, m_traffic.Waiting(), delay_ms, in_use,
        m_proxies.size());
    m_printed = now;
  }

  void Conclude() {
    const Tally total = m_traffic.TotalTally();
    m_console.Print(
        "summary: sent {}, answered in time {}, system errors {}, timed out {}, late "
        "{}, stray datagrams {}",
        total.sent, total.answered, total.system_errors, total.timed_out, total.late,
        m_traffic.Strays());
    if (m_summary == nullptr) return;
    std::string text = FormatLine({"service", {}, TallyFields(total), std::nullopt});
    for (size_t i = 0; i < m_proxies.size(); ++i) text += FormatLine(ProxyLine(i));
    WriteThrough(m_summary.get(), text);
  }

  static std::vector<std::pair<std::string, FieldValue>> TallyFields(const Tally& tally) {
    return {{"sent", tally.sent},
            {"answered", tally.answered},
            {"system_errors", tally.system_errors},
            {"timed_out", tally.timed_out},
            {"late", tally.late},
            {"late_system_errors", tally.late_system_errors},
            {"late_delay_ms", tally.late_delay_ms},
            {"delay_samples", tally.delay_samples}};
  }

  Line ProxyLine(size_t proxy) const {
    int64_t judged = 0;
    int64_t back = 0;
    int64_t out_at_end = 0;
    for (const ProxySet& zone : m_zones) {
      judged += zone.TimesJudged(proxy);
      back += zone.TimesBack(proxy);
      out_at_end += zone.IsInService(proxy) ? 0 : 1;
    }
    Line line{"service_proxy",
              {{"url", m_proxies[proxy].url}},
              TallyFields(m_traffic.ProxyTally(proxy)),
              std::nullopt};
    line.fields.emplace_back("judged_unavailable", judged);
    line.fields.emplace_back("back_in_service", back);
    line.fields.emplace_back("not_in_service_at_end", out_at_end);
    return line;
  }

  const ServiceOptions m_options;
  const Console m_console;
  const SignalWatch m_signals;
  ConsoleLogger m_logger;
  const File m_summary;
  const std::vector<Proxy> m_proxies;
  KorvainServiceStatisticMgr m_statistic_mgr;
  JudgeProxy m_judge;
  UDPClientMgr m_channel;
  ReportCycle m_reports;
  std::vector<ProxySet> m_zones;
  Traffic m_traffic;
  const Clock::time_point m_start = Clock::now();
  Clock::time_point m_next_traffic_line = m_start + std::chrono::seconds(1);
  int64_t m_last_update_ms = GetCurrentMilliseconds();
  int64_t m_paced = 0;  // requests that were due so far
  bool m_is_stopped = false;
  Tally m_printed;
};

int RunService(const ServiceOptions& options) {
  CheckOptions(options);
  SetClockSpeed(options.clock_speed);
  return ServiceApi(options).Run();
}

}  // namespace

}  // namespace example

int main(int argc, char** argv) {
  CLI::App app("A small service API that hosts the statistics module.", "service_api");
  example::ServiceOptions options;
  example::AddOptions(app, options);
  return example::RunProgram(app, argc, argv, [&] { return example::RunService(options); });
}
