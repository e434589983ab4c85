#include "demo/host/traffic.h"

#include <fmt/core.h>

#include <stdexcept>

namespace demo {

using namespace KorvainService;

namespace {

constexpr int SWEEP_LIMIT = 1000;  // requests that one sweep may expire

}  // namespace

Traffic::Traffic(const HostOptions& options, const std::vector<Proxy>& proxies,
                 std::vector<ProxySet>& zones, KorvainServiceStatisticMgr& statistic_mgr,
                 OwnCounts& own_counts, Logger& logger)
    : m_options(options),
      m_proxies(proxies),
      m_zones(zones),
      m_statistic_mgr(statistic_mgr),
      m_own_counts(own_counts),
      m_socket(std::nullopt) {
  const int result = m_latency.Init(APP_ID, options.timeout_ms, SWEEP_LIMIT, &logger);
  if (result != 0) throw std::runtime_error(fmt::format("LatencyDataMgr::Init gave {}", result));
}

Traffic::Counters Traffic::CountersOf(int32_t zone_id, int32_t table, int32_t ip, int32_t port) {
  SERVICEAPISTATISTIC* const record = m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone_id);
  if (record == nullptr) return {};
  const bool is_table_there = table < record->nTableCount;
  return {record, is_table_there ? &record->astTableStatistic[table].stTableRunStatus : nullptr,
          m_statistic_mgr.GetAccessRunStatus(*record, ip, port)};
}

void Traffic::SendRequest() {
  ProxySet& zone = m_zones[m_next_zone];
  m_next_zone = (m_next_zone + 1) % m_zones.size();
  SERVICEAPISTATISTIC& record = *m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone.zone_id());
  const std::optional<size_t> proxy = zone.Next();
  if (!proxy) {
    ++record.stOverallRunStatus.dwRouteErrCountPerMin;
    return;
  }
  const auto table = static_cast<int32_t>(m_random() % static_cast<uint32_t>(m_options.tables));
  m_last_sent_ms = GetCurrentMilliseconds();
  const int32_t id = m_latency.PushBack(zone.zone_id(), m_last_sent_ms, m_proxies[*proxy].ip(),
                                        m_proxies[*proxy].port());
  if (id < 0 || !Transmit(id, *proxy, zone.zone_id(), table)) {
    if (id >= 0) m_latency.Withdraw(id);
    ++record.stOverallRunStatus.dwSendErrCountPerMin;
    return;
  }
  m_requests[id] = {table};
  CountSent(*proxy, zone.zone_id(), table);
}

bool Traffic::Transmit(int32_t id, size_t proxy, int32_t zone_id, int32_t table) {
  const RequestMessage message{static_cast<uint64_t>(id), zone_id, static_cast<uint32_t>(table)};
  return m_socket.Send(Encode(message), m_proxies[proxy].address);
}

void Traffic::CountSent(size_t proxy, int32_t zone_id, int32_t table) {
  ++m_progress.requests;
  m_own_counts.CountSent(proxy);
  const Counters counters =
      CountersOf(zone_id, table, m_proxies[proxy].ip(), m_proxies[proxy].port());
  if (counters.record != nullptr) ++counters.record->stOverallRunStatus.dwRequestCountPerMin;
  if (counters.table != nullptr) ++counters.table->dwRequestCountPerMin;
  if (counters.access != nullptr) ++counters.access->dwRequestCountPerMin;
}

void Traffic::TakeResponses() {
  constexpr int MOST_AT_ONCE = 1000;  // so that a flood cannot stop the loop
  for (int i = 0; i < MOST_AT_ONCE; ++i) {
    const std::optional<Datagram> datagram = m_socket.Receive();
    if (!datagram) return;
    TakeResponse(*datagram);
  }
}

std::optional<size_t> Traffic::FindProxy(int32_t ip, int32_t port) const {
  for (size_t i = 0; i < m_proxies.size(); ++i) {
    if (m_proxies[i].ip() == ip && m_proxies[i].port() == port) return i;
  }
  return std::nullopt;
}

void Traffic::TakeResponse(const Datagram& datagram) {
  const std::optional<size_t> proxy =
      FindProxy(static_cast<int32_t>(datagram.from.sin_addr.s_addr), ntohs(datagram.from.sin_port));
  const std::optional<ResponseMessage> response = DecodeResponse(datagram.bytes);
  constexpr uint64_t GREATEST_ID = INT32_MAX;
  if (!proxy || !response || response->sequence > GREATEST_ID) {
    m_own_counts.CountStray();
    return;
  }
  const int64_t now_ms = GetCurrentMilliseconds();
  const LatencyData* const request = m_latency.Find(static_cast<int32_t>(response->sequence));
  if (request != nullptr && m_proxies[*proxy].Serves(*request)) {
    Complete(*proxy, *request, response->status, now_ms);
  } else {
    m_own_counts.CountUnexpected(*proxy, *response, now_ms);
  }
}

void Traffic::Complete(size_t proxy, const LatencyData& in_flight, ResponseStatus status,
                       int64_t now_ms) {
  const LatencyData request = in_flight;  // which is gone once its delay is taken
  if (m_latency.CalculateDelay(request.id_for_latency_data, now_ms, &m_statistic_mgr) != 0) return;
  const bool is_ok = status == ResponseStatus::OK;
  ++m_progress.answers;
  m_progress.delay_ms += now_ms - request.time_ms;
  m_own_counts.CountAnswer(proxy, status, now_ms - request.time_ms);
  if (is_ok) ZoneOf(request).CountGoodAnswer(proxy, std::chrono::steady_clock::now());
  const auto user_request = m_requests.find(request.id_for_latency_data);
  CountAnswer(request, user_request->second.table, is_ok);
  m_requests.erase(user_request);
}

void Traffic::CountAnswer(const LatencyData& request, int32_t table, bool is_ok) {
  const Counters counters = CountersOf(request.zone_id, table, request.ip, request.port);
  if (counters.record != nullptr) {
    OVERALLRUNSTATUS& overall = counters.record->stOverallRunStatus;
    ++overall.dwResponseCountPerMin;
    if (is_ok) ++overall.dwSuccessResponseCountPerMin;
    if (!is_ok) ++overall.dwAccessErrCountPerMin;
  }
  if (counters.table != nullptr) {
    ++counters.table->dwResponseCountPerMin;
    if (is_ok) ++counters.table->dwSuccessResponseCountPerMin;
    if (!is_ok) ++counters.table->dwOtherErrCountPerMin;
  }
  if (counters.access != nullptr) {
    ++counters.access->dwResponseCountPerMin;
    if (is_ok) ++counters.access->dwSuccessResponseCountPerMin;
    if (!is_ok) ++counters.access->dwProxyReturnSystemErrCountPerMin;
  }
}

void Traffic::TimeOutRequests() {
  m_latency.TraverseForDeleteTimeOutNode(
      &m_statistic_mgr, [this](const LatencyData& request) { FailRequest(request); });
}

// Here a service API tells its user. The module has counted the time-out.
void Traffic::FailRequest(const LatencyData& request) {
  ++m_progress.time_outs;
  m_requests.erase(request.id_for_latency_data);
  const std::optional<size_t> proxy = FindProxy(request.ip, request.port);
  if (proxy) m_own_counts.CountTimeOut(*proxy, request);
}

bool Traffic::IsSettled() const {
  return InFlight() == 0 &&
         GetCurrentMilliseconds() > m_last_sent_ms + 2 * int64_t{m_options.timeout_ms};
}

// Zones have the ids 1, 2, ...
ProxySet& Traffic::ZoneOf(const LatencyData& request) {
  return m_zones[static_cast<size_t>(request.zone_id - 1)];
}

}  // namespace demo
