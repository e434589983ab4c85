// Sends requests to the proxies, takes their responses, and counts both into the report records.
#ifndef KORVAIN_EXAMPLES_TRAFFIC_H_
#define KORVAIN_EXAMPLES_TRAFFIC_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "examples/proxy_set.h"
#include "examples/sent_requests.h"
#include "examples/service_options.h"
#include "examples/udp_socket.h"
#include "examples/wire_format.h"
#include "service_api/korvain_service_statistic.h"

namespace example {

// The service API's own counts, kept apart from those of the module to be compared with them.
struct Tally {
  int64_t sent = 0;
  int64_t answered = 0;       // in time, system errors included
  int64_t system_errors = 0;  // in time
  int64_t timed_out = 0;
  int64_t late = 0;  // answers to requests that had timed out
  int64_t late_system_errors = 0;
  int64_t late_delay_ms = 0;  // sum, of those whose request was not forgotten yet
  int64_t delay_samples = 0;  // answers in time after more than 0 ms
  int64_t delay_sum_ms = 0;
};

class Traffic {
 public:
  // The zones' records exist already. Throws std::runtime_error.
  Traffic(const ServiceOptions& options, const std::vector<Proxy>& proxies,
          std::vector<ProxySet>& zones, KorvainService::KorvainServiceStatisticMgr& statistic_mgr,
          KorvainService::Logger& logger);

  void SendRequest();
  void TakeResponses();
  void TimeOutRequests();

  int fd() const { return m_socket.fd(); }
  size_t Waiting() const { return m_requests.Waiting(); }
  // Whether no answer is expected any more, not even one that comes late.
  bool IsSettled() const;
  const Tally& ProxyTally(size_t proxy) const { return m_tallies[proxy]; }
  Tally TotalTally() const;
  // Datagrams that answer no request.
  int64_t Strays() const { return m_strays; }

 private:
  // The counters that a request of a zone, proxy and table is counted in; always there, since
  // tables and accesses are registered again as soon as a report has emptied the record.
  struct Counters {
    KorvainService::OVERALLRUNSTATUS& overall;
    KorvainService::TABLERUNSTATUS& table;
    KorvainService::ACCESSRUNSTATUS& access;
  };

  Counters CountersOf(size_t zone, size_t proxy, size_t table);
  bool Transmit(const SentRequest& request);
  std::optional<size_t> FindProxy(const sockaddr_in& address) const;
  void TakeResponse(const Datagram& datagram);
  void TakeInTime(SentRequest& request, ResponseStatus status, int64_t now_ms);
  void TakeLate(SentRequest& request, ResponseStatus status, int64_t now_ms);
  static void CountLate(Tally& tally, ResponseStatus status);
  void CountTimeOut(const SentRequest& request);

  const ServiceOptions& m_options;
  const std::vector<Proxy>& m_proxies;
  std::vector<ProxySet>& m_zones;
  KorvainService::KorvainServiceStatisticMgr& m_statistic_mgr;
  KorvainService::LatencyDataMgr m_latency;
  UdpSocket m_socket;
  SentRequests m_requests;
  std::vector<Tally> m_tallies;  // per proxy
  int64_t m_strays = 0;
  size_t m_next_zone = 0;
  std::mt19937 m_random;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_TRAFFIC_H_
