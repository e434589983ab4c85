// Sends requests to the proxies, takes their responses, and counts both into the report records.
#ifndef KORVAIN_DEMO_TRAFFIC_H_
#define KORVAIN_DEMO_TRAFFIC_H_

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "demo/common/udp_socket.h"
#include "demo/common/wire_format.h"
#include "demo/host/host_options.h"
#include "demo/host/proxy_set.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

// What has happened since the last look, for the status line.
struct Progress {
  int64_t requests = 0;
  int64_t answers = 0;
  int64_t time_outs = 0;
  int64_t delay_ms = 0;  // sum
};

class Traffic {
 public:
  // The zones' records exist already. Throws std::runtime_error.
  Traffic(const HostOptions& options, std::vector<Proxy>& proxies, std::vector<ProxySet>& zones,
          KorvainService::KorvainServiceStatisticMgr& statistic_mgr,
          KorvainService::Logger& logger);

  void SendRequest();
  void TakeResponses() {
    m_socket.TakeWaiting([this](const Datagram& datagram) { TakeResponse(datagram); });
  }
  void TimeOutRequests();

  void Wait(int timeout_ms) const { m_socket.Wait(timeout_ms); }
  int InFlight() const { return m_latency.Count(); }
  // Whether no answer is expected any more, not even one that comes late.
  bool IsSettled() const;
  Progress TakeProgress() { return std::exchange(m_progress, {}); }

 private:
  Proxy* FindProxy(int32_t ip, int32_t port);
  void TakeResponse(const Datagram& datagram);
  void Complete(Proxy& proxy, const KorvainService::LatencyData& in_flight, bool is_ok);
  void FailRequest(const KorvainService::LatencyData& request);

  const HostOptions& m_options;
  std::vector<Proxy>& m_proxies;
  std::vector<ProxySet>& m_zones;
  KorvainService::KorvainServiceStatisticMgr& m_statistic_mgr;
  KorvainService::LatencyDataMgr m_latency;
  UdpSocket m_socket;
  Progress m_progress;
  int64_t m_last_sent_ms = 0;
  size_t m_next_zone = 0;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_TRAFFIC_H_
