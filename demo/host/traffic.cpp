#include "demo/host/traffic.h"

#include <fmt/core.h>

#include <stdexcept>

namespace demo {

using namespace KorvainService;

namespace {

constexpr int SWEEP_LIMIT = 1000;  // requests that one sweep may expire

// Where each kind of counters has a proxy's own error.
void CountError(OVERALLRUNSTATUS& overall) {
  ++overall.dwAccessErrCountPerMin;
}
void CountError(TABLERUNSTATUS& table) {
  ++table.dwOtherErrCountPerMin;
}
void CountError(ACCESSRUNSTATUS& access) {
  ++access.dwProxyReturnSystemErrCountPerMin;
}

// Calls `count` with all the counters that a request has its part in. The proxy has none while a
// record that was emptied is not filled in again, nor has the table, which follows from the time of
// the request: so the module remembers all there is to know of it.
template <class Count>
void CountIn(KorvainServiceStatisticMgr& statistic_mgr, const LatencyData& request,
             const Count& count) {
  SERVICEAPISTATISTIC* const record = statistic_mgr.GetServiceApiStatistic(APP_ID, request.zone_id);
  if (record == nullptr) return;
  count(record->stOverallRunStatus);
  const int64_t table = request.time_ms % TABLES;
  if (table < record->nTableCount) count(record->astTableStatistic[table].stTableRunStatus);
  ACCESSRUNSTATUS* const access =
      statistic_mgr.GetAccessRunStatus(*record, request.ip, request.port);
  if (access != nullptr) count(*access);
}

}  // namespace

Traffic::Traffic(const HostOptions& options, std::vector<Proxy>& proxies,
                 std::vector<ProxySet>& zones, KorvainServiceStatisticMgr& statistic_mgr,
                 Logger& logger)
    : m_options(options),
      m_proxies(proxies),
      m_zones(zones),
      m_statistic_mgr(statistic_mgr),
      m_socket(std::nullopt) {
  const int result = m_latency.Init(APP_ID, options.timeout_ms, SWEEP_LIMIT, &logger);
  if (result != 0) throw std::runtime_error(fmt::format("LatencyDataMgr::Init gave {}", result));
}

void Traffic::SendRequest() {
  ProxySet& zone = m_zones[m_next_zone];
  m_next_zone = (m_next_zone + 1) % m_zones.size();
  OVERALLRUNSTATUS& overall =
      m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.zone_id())->stOverallRunStatus;
  Proxy* const proxy = zone.Next();
  if (proxy == nullptr) {
    ++overall.dwRouteErrCountPerMin;
    return;
  }
  m_last_sent_ms = GetCurrentMilliseconds();
  const int32_t id = m_latency.PushBack(zone.zone_id(), m_last_sent_ms, proxy->ip(), proxy->port());
  const LatencyData* const request = m_latency.Find(id);
  const std::string message = Encode({MessageKind::REQUEST, id});
  if (request == nullptr || !m_socket.Send(message, proxy->address)) {
    if (request != nullptr) m_latency.Withdraw(id);
    ++overall.dwSendErrCountPerMin;
    return;
  }
  ++m_progress.requests;
  ++proxy->counts.sent;
  CountIn(m_statistic_mgr, *request, [](auto& counters) { ++counters.dwRequestCountPerMin; });
}

Proxy* Traffic::FindProxy(int32_t ip, int32_t port) {
  for (Proxy& proxy : m_proxies) {
    if (proxy.ip() == ip && proxy.port() == port) return &proxy;
  }
  return nullptr;
}

void Traffic::TakeResponse(const Datagram& datagram) {
  const auto ip = static_cast<int32_t>(datagram.from.sin_addr.s_addr);
  const int32_t port = ntohs(datagram.from.sin_port);
  Proxy* const proxy = FindProxy(ip, port);
  const std::optional<Message> response = Decode(datagram.bytes);
  if (proxy == nullptr || !response || response->kind == MessageKind::REQUEST) return;
  const LatencyData* const request = m_latency.Find(response->id);
  if (request != nullptr && request->ip == ip && request->port == port) {
    Complete(*proxy, *request, response->kind == MessageKind::RESPONSE);
  } else {
    ++proxy->counts.unexpected;
  }
}

void Traffic::Complete(Proxy& proxy, const LatencyData& in_flight, bool is_ok) {
  const LatencyData request = in_flight;  // which is gone once its delay is taken
  const int64_t now_ms = GetCurrentMilliseconds();
  if (m_latency.CalculateDelay(request.id_for_latency_data, now_ms, &m_statistic_mgr) != 0) return;
  const int64_t delay_ms = now_ms - request.time_ms;
  ++m_progress.answers;
  m_progress.delay_ms += delay_ms;
  ++proxy.counts.answered;
  proxy.counts.errors += is_ok ? 0 : 1;
  proxy.counts.delay_samples += delay_ms > 0 ? 1 : 0;
  // Zones have the ids 1, 2, ...
  if (is_ok) m_zones[static_cast<size_t>(request.zone_id - 1)].CountGoodAnswer(proxy);

  CountIn(m_statistic_mgr, request, [is_ok](auto& counters) {
    ++counters.dwResponseCountPerMin;
    if (is_ok) ++counters.dwSuccessResponseCountPerMin;
    if (!is_ok) CountError(counters);
  });
}

void Traffic::TimeOutRequests() {
  m_latency.TraverseForDeleteTimeOutNode(
      &m_statistic_mgr, [this](const LatencyData& request) { FailRequest(request); });
}

// Here a service API tells its user. The module has counted the time-out.
void Traffic::FailRequest(const LatencyData& request) {
  ++m_progress.time_outs;
  Proxy* const proxy = FindProxy(request.ip, request.port);
  if (proxy != nullptr) ++proxy->counts.timed_out;
}

bool Traffic::IsSettled() const {
  const int64_t two_time_outs_ms = 2 * int64_t{m_options.timeout_ms};
  return InFlight() == 0 && GetCurrentMilliseconds() > m_last_sent_ms + two_time_outs_ms;
}

}  // namespace demo
