// A small service API: the host of the statistics module, with a poll loop of its own.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <vector>

#include "demo/common/command_line.h"
#include "demo/common/console.h"
#include "demo/common/output_file.h"
#include "demo/common/signals.h"
#include "demo/host/collect_channel.h"
#include "demo/host/host_options.h"
#include "demo/host/module_logger.h"
#include "demo/host/proxy_set.h"
#include "demo/host/report_cycle.h"
#include "demo/host/run_record.h"
#include "demo/host/scaled_clock.h"
#include "demo/host/traffic.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

using namespace KorvainService;

namespace {

using Clock = std::chrono::steady_clock;

class Host {
 public:
  explicit Host(const HostOptions& options)
      : m_options(options),
        m_console(options.name),
        m_logger(m_console),
        m_journal(options.journal, m_console),
        m_summary(options.summary, m_console),
        m_proxies(MakeProxies(options.proxy_urls)),
        m_judge(&m_logger),
        m_channel(options, m_logger, m_console),
        m_zones(MakeZones()),
        m_reports(options, m_proxies, m_zones, m_statistic_mgr, m_channel, m_journal, m_logger),
        m_traffic(options, m_proxies, m_zones, m_statistic_mgr, m_logger) {}

  void Run() {
    while (!m_is_stopped) RunOnce(true);
    m_console.Note("sends no more requests, waits for {} answers", m_traffic.InFlight());
    m_is_stopped = false;  // one more signal ends the waiting
    while (!(m_traffic.IsSettled() || m_is_stopped) || !m_reports.CanReportAll()) RunOnce(false);
    m_reports.ReportAll();
    for (; !m_channel.IsIdle(); m_channel.Update()) m_traffic.Wait(1);
    m_summary.Write(SummaryLines(m_proxies));
    m_console.Note("messages that nobody read: {}, journal entries lost: {}", m_console.Dropped(),
                   m_journal.Lost());
  }

 private:
  std::vector<ProxySet> MakeZones() {
    std::vector<ProxySet> zones;
    for (int32_t id = 1; id <= m_options.zones; ++id) {
      zones.emplace_back(m_options, id, m_proxies, m_judge, m_console);
    }
    return zones;
  }

  double ElapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
  }

  void RunOnce(bool is_sending) {
    constexpr int LONGEST_WAIT_MS = 2;  // the next request is due soon
    m_traffic.Wait(LONGEST_WAIT_MS);
    if (m_signals.Take() > 0) m_is_stopped = true;
    m_traffic.TakeResponses();
    m_traffic.TimeOutRequests();
    if (is_sending) SendDueRequests();
    for (ProxySet& zone : m_zones) zone.Update(m_statistic_mgr);
    m_channel.Update();
    m_reports.ReportDueZones();
    if (is_sending && Clock::now() >= m_next_status) SayStatus();
  }

  void SendDueRequests() {
    const auto due = static_cast<int64_t>(ElapsedSeconds() * m_options.rate);
    // After a pause of the process, what lies further back than this is not made up for.
    const int64_t most = std::max(16, m_options.rate / 20);
    m_paced = std::max(m_paced, due - most);
    for (; m_paced < due; ++m_paced) m_traffic.SendRequest();
  }

  // The proxies are as the first zone sees them: the others see the same a moment sooner or later.
  void SayStatus() {
    m_next_status += std::chrono::seconds(1);
    const Progress last = m_traffic.TakeProgress();
    const double delay_ms = static_cast<double>(last.delay_ms) / m_options.clock_speed /
                            static_cast<double>(std::max<int64_t>(last.answers, 1));
    m_console.Say(
        "{:3.0f} s: {:3} requests, {:3} answers, {:2} time-outs, mean delay {:2.0f} ms, {:2} in "
        "flight, to {}{}",
        ElapsedSeconds(), last.requests, last.answers, last.time_outs, delay_ms,
        m_traffic.InFlight(), m_channel.CurrentName(), m_zones.front().Describe());
  }

  const HostOptions m_options;
  Console m_console;
  const Signals m_signals{SIGINT, SIGTERM};
  ModuleLogger m_logger;
  OutputFile m_journal;
  OutputFile m_summary;
  std::vector<Proxy> m_proxies;
  KorvainServiceStatisticMgr m_statistic_mgr;
  JudgeProxy m_judge;
  CollectChannel m_channel;
  std::vector<ProxySet> m_zones;
  ReportCycle m_reports;
  Traffic m_traffic;
  const Clock::time_point m_start = Clock::now();
  Clock::time_point m_next_status = m_start + std::chrono::seconds(1);
  int64_t m_paced = 0;  // requests that were due so far
  bool m_is_stopped = false;
};

void RunHost(const HostOptions& options) {
  StartClock(options.clock_speed, options.clock_start_ago_s);
  Host(options).Run();
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::HostOptions options;
  return demo::RunProgram(
      argc, argv, "demo_host", "A small service API that hosts the statistics module.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { demo::RunHost(options); });
}
