#include "examples/traffic.h"

#include <fmt/core.h>

#include <stdexcept>

namespace example {

using namespace KorvainService;

namespace {

// Requests that one sweep may expire. The module and SentRequests are swept alike, so that both
// always agree about which requests have timed out.
constexpr int SWEEP_LIMIT = 1000;

// How long requests are remembered, in time-outs.
constexpr int64_t TIMEOUTS_TO_REMEMBER = 10;

}  // namespace

Traffic::Traffic(const ServiceOptions& options, const std::vector<Proxy>& proxies,
                 std::vector<ProxySet>& zones, KorvainServiceStatisticMgr& statistic_mgr,
                 Logger& logger)
    : m_options(options),
      m_proxies(proxies),
      m_zones(zones),
      m_statistic_mgr(statistic_mgr),
      m_socket(std::nullopt),
      m_tallies(proxies.size()) {
  const int result = m_latency.Init(APP_ID, options.timeout_ms, SWEEP_LIMIT, &logger);
  if (result != 0) throw std::runtime_error(fmt::format("LatencyDataMgr::Init gave {}", result));
}

Traffic::Counters Traffic::CountersOf(size_t zone, size_t proxy, size_t table) {
  SERVICEAPISTATISTIC* const record =
      m_statistic_mgr.GetServiceApiStatistic(APP_ID, m_zones[zone].zone_id());
  ACCESSRUNSTATUS* const access =
      m_statistic_mgr.GetAccessRunStatus(*record, m_proxies[proxy].ip(), m_proxies[proxy].port());
  static ACCESSRUNSTATUS not_registered;  // what is counted there is in no report
  return {record->stOverallRunStatus, record->astTableStatistic[table].stTableRunStatus,
          access == nullptr ? not_registered : *access};
}

void Traffic::SendRequest() {
  const size_t zone = m_next_zone;
  m_next_zone = (m_next_zone + 1) % m_zones.size();
  const std::optional<size_t> proxy = m_zones[zone].Next();
  if (!proxy) {
    const int32_t zone_id = m_zones[zone].zone_id();
    ++m_statistic_mgr.GetServiceApiStatistic(APP_ID, zone_id)
          ->stOverallRunStatus.dwRouteErrCountPerMin;
    return;
  }
  const size_t table = m_random() % static_cast<size_t>(m_options.tables);
  const Counters counters = CountersOf(zone, *proxy, table);
  const int64_t now_ms = GetCurrentMilliseconds();
  const int32_t id = m_latency.PushBack(m_zones[zone].zone_id(), now_ms, m_proxies[*proxy].ip(),
                                        m_proxies[*proxy].port());
  const SentRequest request{id, now_ms, zone, *proxy, table};
  if (id < 0 || !Transmit(request)) {
    // Without a delay, the entry of a request that did not leave is taken back uncounted.
    if (id >= 0) m_latency.CalculateDelay(id, now_ms, &m_statistic_mgr);
    ++counters.overall.dwSendErrCountPerMin;
    return;
  }
  m_requests.Add(request);
  ++m_tallies[*proxy].sent;
  ++counters.overall.dwRequestCountPerMin;
  ++counters.table.dwRequestCountPerMin;
  ++counters.access.dwRequestCountPerMin;
}

bool Traffic::Transmit(const SentRequest& request) {
  const RequestMessage message{m_requests.NextSequence(), m_zones[request.zone].zone_id(),
                               static_cast<uint32_t>(request.table)};
  return m_socket.Send(Encode(message), m_proxies[request.proxy].address);
}

void Traffic::TakeResponses() {
  constexpr int MOST_AT_ONCE = 1000;  // so that a flood cannot stop the loop
  for (int i = 0; i < MOST_AT_ONCE; ++i) {
    const std::optional<Datagram> datagram = m_socket.Receive();
    if (!datagram) return;
    TakeResponse(*datagram);
  }
}

std::optional<size_t> Traffic::FindProxy(const sockaddr_in& address) const {
  for (size_t i = 0; i < m_proxies.size(); ++i) {
    if (IsSameEndpoint(m_proxies[i].address, address)) return i;
  }
  return std::nullopt;
}

void Traffic::TakeResponse(const Datagram& datagram) {
  const std::optional<size_t> proxy = FindProxy(datagram.from);
  const std::optional<ResponseMessage> response = DecodeResponse(datagram.bytes);
  if (!proxy || !response) {
    ++m_strays;
    return;
  }
  if (m_requests.IsForgotten(response->sequence)) {
    CountLate(m_tallies[*proxy], response->status);
    return;
  }
  SentRequest* const request = m_requests.Find(response->sequence);
  if (request == nullptr || request->proxy != *proxy || request->state == RequestState::ANSWERED) {
    ++m_strays;
    return;
  }
  const int64_t now_ms = GetCurrentMilliseconds();
  if (m_latency.CalculateDelay(request->latency_id, now_ms, &m_statistic_mgr) == 0) {
    TakeInTime(*request, response->status, now_ms);
  } else {
    TakeLate(*request, response->status, now_ms);
  }
}

void Traffic::TakeInTime(SentRequest& request, ResponseStatus status, int64_t now_ms) {
  m_requests.Close(request, RequestState::ANSWERED);
  const bool is_ok = status == ResponseStatus::OK;
  m_zones[request.zone].CountOutcome(request.proxy, is_ok);

  Tally& tally = m_tallies[request.proxy];
  ++tally.answered;
  tally.system_errors += is_ok ? 0 : 1;
  tally.delay_samples += now_ms > request.sent_ms ? 1 : 0;
  tally.delay_sum_ms += now_ms - request.sent_ms;

  const Counters counters = CountersOf(request.zone, request.proxy, request.table);
  ++counters.overall.dwResponseCountPerMin;
  ++counters.table.dwResponseCountPerMin;
  ++counters.access.dwResponseCountPerMin;
  if (is_ok) {
    ++counters.overall.dwSuccessResponseCountPerMin;
    ++counters.table.dwSuccessResponseCountPerMin;
    ++counters.access.dwSuccessResponseCountPerMin;
  } else {
    ++counters.overall.dwAccessErrCountPerMin;
    ++counters.table.dwOtherErrCountPerMin;
    ++counters.access.dwProxyReturnSystemErrCountPerMin;
  }
}

void Traffic::TakeLate(SentRequest& request, ResponseStatus status, int64_t now_ms) {
  if (request.state == RequestState::WAITING) {
    m_requests.Close(request, RequestState::TIMED_OUT);
    CountTimeOut(request);
  }
  request.state = RequestState::ANSWERED;
  m_tallies[request.proxy].late_delay_ms += now_ms - request.sent_ms;
  CountLate(m_tallies[request.proxy], status);
}

void Traffic::CountLate(Tally& tally, ResponseStatus status) {
  ++tally.late;
  tally.late_system_errors += status == ResponseStatus::SYSTEM_ERROR ? 1 : 0;
}

void Traffic::TimeOutRequests() {
  // Read before the sweep: what has timed out by now, the sweep will find timed out as well.
  const int64_t cutoff_ms = GetCurrentMilliseconds() - m_options.timeout_ms;
  m_latency.TraverseForDeleteTimeOutNode(&m_statistic_mgr);
  m_requests.TimeOut(cutoff_ms, SWEEP_LIMIT,
                     [this](const SentRequest& request) { CountTimeOut(request); });
  m_requests.Forget(cutoff_ms - (TIMEOUTS_TO_REMEMBER - 1) * m_options.timeout_ms);
}

bool Traffic::IsSettled() const {
  const int64_t since_ms = GetCurrentMilliseconds() - 2 * int64_t{m_options.timeout_ms};
  return m_requests.Waiting() == 0 && !m_requests.HasUnansweredSince(since_ms);
}

void Traffic::CountTimeOut(const SentRequest& request) {
  ++m_tallies[request.proxy].timed_out;
  m_zones[request.zone].CountOutcome(request.proxy, false);
}

Tally Traffic::TotalTally() const {
  Tally total;
  for (const Tally& tally : m_tallies) {
    total.sent += tally.sent;
    total.answered += tally.answered;
    total.system_errors += tally.system_errors;
    total.timed_out += tally.timed_out;
    total.late += tally.late;
    total.late_system_errors += tally.late_system_errors;
    total.late_delay_ms += tally.late_delay_ms;
    total.delay_samples += tally.delay_samples;
    total.delay_sum_ms += tally.delay_sum_ms;
  }
  return total;
}

}  // namespace example
