// Plays the reports of many service APIs, to find out what a collect server takes.
#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "demo/common/command_line.h"
#include "demo/common/udp_socket.h"
#include "demo/host/datagram_queue.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace demo {

using namespace KorvainService;

namespace {

using Clock = std::chrono::steady_clock;

struct LoadOptions {
  std::string collect_url;
  int services = 100;
  int period_s = 60;
  int duration_s = 10;
  int zones = 2;
  int tables = 8;
  int accesses = 16;
  size_t datagram_size = 1400;
  size_t datagrams_per_ms = DatagramQueue::USUAL_PACE;
};

void AddOptions(CLI::App& app, LoadOptions& options) {
  app.footer("Prints what was sent, JSON.");
  app.add_option("--collect", options.collect_url, "collect server to report to")
      ->check(UdpUrl())
      ->required();
  AddNumber(app, "--services", options.services, 1, 100000,
            "service APIs, each an instance of its own");
  AddNumber(app, "--period", options.period_s, 1, 3600, "seconds from report to report");
  AddNumber(app, "--duration", options.duration_s, 1, 600, "seconds of that to play");
  AddNumber(app, "--zones", options.zones, 1, 64, "of each service API");
  AddNumber(app, "--tables", options.tables, 0, STATISTIC_MAX_TABLE_COUNT, "of each zone");
  AddNumber(app, "--accesses", options.accesses, 0, STATISTIC_MAX_ACCESS_COUNT, "of each zone");
  AddNumber(app, "--datagram-size", options.datagram_size, 1, MAX_UDP_PAYLOAD,
            "most bytes of a datagram");
  AddNumber(app, "--datagrams-per-ms", options.datagrams_per_ms, 1, 100000,
            "most datagrams that a service API sends in a millisecond");
}

// A record with numbers as they come in traffic, which differ from report to report.
class RandomRecord {
 public:
  explicit RandomRecord(const LoadOptions& options) {
    m_record->nTableCount = static_cast<int16_t>(options.tables);
    m_record->iAccessCount = options.accesses;
    for (int i = 0; i < options.tables; ++i) {
      fmt::format("table-{}", i).copy(m_record->astTableStatistic[i].szTableName, 16);
    }
    for (int i = 0; i < options.accesses; ++i) {
      STATISTICHOSTINFO& host = m_record->astAccessStatistic[i].stHostInfo;
      fmt::format("10.0.0.{}:9000", i).copy(host.szUrl, 16);
      fmt::format("proxy-{}", i).copy(host.szSvrId, 16);
    }
  }

  const SERVICEAPISTATISTIC& Draw(int zone) {
    m_record->iZoneID = zone;
    Draw(m_record->stOverallRunStatus);
    DrawDelay(m_record->stOverallRunStatus);
    for (int i = 0; i < m_record->nTableCount; ++i) {
      Draw(m_record->astTableStatistic[i].stTableRunStatus);
    }
    for (int i = 0; i < m_record->iAccessCount; ++i) {
      Draw(m_record->astAccessStatistic[i].stAccessRunStatus);
      DrawDelay(m_record->astAccessStatistic[i].stAccessRunStatus);
    }
    return *m_record;
  }

 private:
  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random() % limit); }

  template <class Status>
  void Draw(Status& status) {
    status.dwRequestCountPerMin = Below(100000);
    status.dwResponseCountPerMin = Below(100000);
    status.dwSuccessResponseCountPerMin = Below(100000);
  }

  template <class Status>
  void DrawDelay(Status& status) {
    status.dwCalculateAverageDelayResCount = 1 + Below(100000);
    status.ullAverageDelay = Below(100);
  }

  const std::unique_ptr<SERVICEAPISTATISTIC> m_record = std::make_unique<SERVICEAPISTATISTIC>();
  std::minstd_rand m_random;
};

class Load {
 public:
  explicit Load(const LoadOptions& options)
      : m_options(options),
        m_to(ParseUdpUrl(options.collect_url).value()),
        m_socket(std::nullopt),
        m_record(options) {
    // Services start whenever they do, so their reports are spread over the period at random.
    std::minstd_rand random;
    std::uniform_real_distribution<> phase(0, options.period_s);
    for (int i = 0; i < options.services; ++i) m_due.emplace(phase(random), i);
  }

  void Run() {
    const auto start = Clock::now();
    for (auto next = m_due.begin(); IsMoreDue(next) || !m_sending.empty();) {
      const std::chrono::duration<double> elapsed = Clock::now() - start;
      for (; IsMoreDue(next) && next->first <= elapsed.count(); ++next) Report(next->second);
      SendSome();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const nlohmann::json sent = {
        {"reports", m_reports}, {"lines", m_lines}, {"datagrams", m_datagrams}, {"bytes", m_bytes}};
    fmt::print("{}\n", sent.dump());
    if (m_failed > 0) throw std::runtime_error(fmt::format("{} reports failed", m_failed));
  }

 private:
  using Schedule = std::multimap<double, int>;  // services by the second of their report

  bool IsMoreDue(Schedule::const_iterator next) const {
    return next != m_due.end() && next->first < m_options.duration_s;
  }

  void Report(int service) {
    const std::string instance = fmt::format("service-{}", service);
    ReportSettings settings;
    settings.instance = instance.c_str();
    settings.period_seconds = m_options.period_s;
    settings.timestamp_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count();
    DatagramQueue& queue = m_sending.try_emplace(service, m_options.datagrams_per_ms).first->second;
    for (int zone = 1; zone <= m_options.zones; ++zone) {
      const std::string report = PackReport(m_record.Draw(zone), settings);
      ++m_reports;
      m_lines += std::count(report.begin(), report.end(), '\n');
      m_bytes += static_cast<int64_t>(report.size());
      queue.Add(report, m_options.datagram_size,
                [this](bool is_handed_over) { m_failed += is_handed_over ? 0 : 1; });
    }
  }

  void SendSome() {
    for (auto each = m_sending.begin(); each != m_sending.end();) {
      each->second.SendDue(Clock::now(), [this](std::string_view datagram) {
        ++m_datagrams;
        return m_socket.Send(datagram, m_to);
      });
      each = each->second.IsEmpty() ? m_sending.erase(each) : std::next(each);
    }
  }

  const LoadOptions m_options;
  const sockaddr_in m_to;
  const UdpSocket m_socket;
  RandomRecord m_record;
  Schedule m_due;
  std::map<int, DatagramQueue> m_sending;  // by service
  int64_t m_reports = 0;
  int64_t m_lines = 0;
  int64_t m_datagrams = 0;
  int64_t m_bytes = 0;
  int64_t m_failed = 0;  // reports
};

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::LoadOptions options;
  return demo::RunProgram(
      argc, argv, "report_load", "Plays the reports of many service APIs to a collect server.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { demo::Load(options).Run(); });
}
