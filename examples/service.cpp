// A small but whole service API with the statistics module in it:
//
//   service COLLECT_URL PROXY_URL...        such as udp://127.0.0.1:9100 udp://127.0.0.1:9000
//
// sends requests to the proxies in turn, and reports every minute and when it is interrupted. A
// request is "KVRQ" and its id in network byte order; a response "KVRS", on failure "KVRE", and id.
#include <arpa/inet.h>
#include <line_protocol/report_packer.h>
#include <poll.h>
#include <service_api/korvain_service_statistic.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

using namespace KorvainService;

constexpr int32_t SET = 1, APP = 10, ZONE = 20, TIME_OUT_MS = 500;
static volatile std::sig_atomic_t is_interrupted = 0;

struct Proxy {
  const char* url;
  int32_t ip, port;
  int64_t out_until_ms;
};

class Service {
 public:
  Service(const char* collect_url, const std::vector<Proxy>& proxies) : m_proxies(proxies) {
    m_judge.SetCheckPeriod(APP, ZONE, 1);  // seconds, well below those between two reports
    m_channel.Init(nullptr);
    m_channel.SetNoticeUnreachable(true);
    m_channel.AddCollectServerAddress(&collect_url, 1);
  }

  bool Start() {
    return m_socket >= 0 && m_statistic.CreateStatisticMap(SET, APP, ZONE) == 0 &&
           m_latency.Init(APP, TIME_OUT_MS, 1000, nullptr) == 0;
  }

  void RunOnce() {
    const int64_t now_ms = GetCurrentMilliseconds();
    SERVICEAPISTATISTIC& record = *m_statistic.GetServiceApiStatistic(APP, ZONE);
    if (record.iAccessCount == 0) RegisterAccesses(now_ms / 1000);
    SendRequest(record, now_ms);
    pollfd responses{m_socket, POLLIN, 0};
    poll(&responses, 1, 10);
    while (TakeResponse(record)) continue;
    m_latency.TraverseForDeleteTimeOutNode(&m_statistic, [this](const LatencyData& /*request*/) {
      ++m_failed;  // here a request of the application fails
    });
    JudgeProxies(now_ms);
    if (m_statistic.IsShouldReportStatisticNow(APP, ZONE, now_ms / 1000)) Report(now_ms / 1000);
  }

  void Report(int64_t now_s) {
    m_statistic.CalculateAverage(APP, ZONE, now_s);
    ReportSettings settings;
    settings.instance = "example-1";  // the same after a restart
    settings.period_seconds = now_s - m_last_report_s;
    settings.timestamp_ns = now_s * 1000000000;
    settings.access_fields = [this](int32_t slot, const AddField& add) {
      const char* const url = m_proxies[static_cast<size_t>(slot)].url;
      add("bad_cycles", m_judge.GetUnavailableTimes(APP, ZONE, url));
    };
    const std::string text = PackReport(*m_statistic.GetServiceApiStatistic(APP, ZONE), settings);
    for (const std::string_view datagram : SplitIntoDatagrams(text, 1400).datagrams) {
      m_channel.Update();  // so that a server that has gone costs one datagram
      m_channel.Send(datagram.data(), static_cast<int>(datagram.size()));
    }
    std::printf("%d requests failed so far, %d in flight\n", m_failed, m_latency.Count());
    m_statistic.SetLastReportTime(APP, ZONE, now_s);
    m_statistic.Reset(APP, ZONE);  // and so RegisterAccesses comes next
  }

 private:
  // Whenever the record is empty: at the start, after a report, when the clock has gone back.
  void RegisterAccesses(int64_t now_s) {
    m_last_report_s = now_s;
    m_statistic.ClearAccess(ZONE);
    for (const Proxy& proxy : m_proxies)
      m_statistic.AddAccess(APP, ZONE, proxy.url, proxy.ip, proxy.port, "");
    m_table = m_statistic.AddTable(APP, ZONE, "orders");
  }

  void SendRequest(SERVICEAPISTATISTIC& record, int64_t now_ms) {
    const auto& [url, ip, port, out_until_ms] = m_proxies[m_turn++ % m_proxies.size()];
    if (out_until_ms > now_ms) return;
    const int id = m_latency.PushBack(ZONE, now_ms, ip, port);
    if (id < 0) return;  // too many are in flight
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = static_cast<in_addr_t>(ip);
    to.sin_port = htons(static_cast<uint16_t>(port));
    const uint32_t request[] = {htonl(0x4B565251), htonl(static_cast<uint32_t>(id))};
    if (sendto(m_socket, request, sizeof(request), 0, reinterpret_cast<sockaddr*>(&to),
               sizeof(to)) < 0) {
      m_latency.Withdraw(id);
      ++record.stOverallRunStatus.dwSendErrCountPerMin;
      return;
    }
    ++record.stOverallRunStatus.dwRequestCountPerMin;
    if (m_table >= 0) ++record.astTableStatistic[m_table].stTableRunStatus.dwRequestCountPerMin;
    auto* const access = m_statistic.GetAccessRunStatus(record, ip, port);
    if (access != nullptr) ++access->dwRequestCountPerMin;
  }

  bool TakeResponse(SERVICEAPISTATISTIC& record) {
    uint32_t words[2] = {};
    if (recv(m_socket, words, sizeof(words), 0) < 0) return false;
    const auto id = static_cast<int32_t>(ntohl(words[1]));
    const LatencyData* const request = m_latency.Find(id);
    if (request == nullptr) return true;  // the response is late
    ++record.stOverallRunStatus.dwResponseCountPerMin;
    auto* const access = m_statistic.GetAccessRunStatus(record, request->ip, request->port);
    if (access != nullptr && words[0] != htonl(0x4B565253))
      ++access->dwProxyReturnSystemErrCountPerMin;
    m_latency.CalculateDelay(id, GetCurrentMilliseconds(), &m_statistic);
    return true;
  }

  void JudgeProxies(int64_t now_ms) {
    m_judge.Update(APP, ZONE, m_statistic);
    if (!m_judge.IsShouldCheck(APP, ZONE)) return;
    for (Proxy& proxy : m_proxies) {
      if (!m_judge.IsProxyUnavailable(APP, ZONE, proxy.url)) continue;
      const int rest_s = m_judge.GetRecheckAvailableInterval(APP, ZONE);
      proxy.out_until_ms = now_ms + rest_s * 1000;
      std::printf("%s is unavailable, and tried again in %d s\n", proxy.url, rest_s);
    }
  }

  std::vector<Proxy> m_proxies;
  const int m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  KorvainServiceStatisticMgr m_statistic;
  LatencyDataMgr m_latency;
  JudgeProxy m_judge{nullptr};
  UDPClientMgr m_channel;
  int64_t m_last_report_s = 0;
  size_t m_turn = 0;
  int m_table = -1, m_failed = 0;
};

int main(int argc, char** argv) {
  std::vector<Proxy> proxies;
  for (int i = 2; i < argc; ++i) {
    char host[16] = "";
    int port = 0;
    if (std::sscanf(argv[i], "udp://%15[0-9.]:%d", host, &port) != 2) return 2;
    proxies.push_back({argv[i], static_cast<int32_t>(inet_addr(host)), port, 0});
  }
  if (proxies.empty()) return std::puts("usage: service COLLECT_URL PROXY_URL..."), 2;
  Service service(argv[1], proxies);
  if (!service.Start()) return 1;
  std::signal(SIGINT, [](int) { is_interrupted = 1; });
  while (is_interrupted == 0) service.RunOnce();
  service.Report(GetCurrentMilliseconds() / 1000);
}
