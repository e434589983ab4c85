#include "demo/host/own_counts.h"

#include <nlohmann/json.hpp>

namespace demo {

using namespace KorvainService;

void TimedOutRequests::Remember(const LatencyData& request) {
  const auto sequence = static_cast<uint64_t>(request.id_for_latency_data);
  m_requests[sequence] = request;
  m_order.push_back(sequence);
  if (m_order.size() <= MOST) return;
  m_requests.erase(m_order.front());
  m_order.pop_front();
}

std::optional<LatencyData> TimedOutRequests::Take(uint64_t sequence) {
  const auto found = m_requests.find(sequence);
  if (found == m_requests.end()) return std::nullopt;
  const LatencyData request = found->second;
  m_requests.erase(found);
  return request;
}

void OwnCounts::CountAnswer(size_t proxy, ResponseStatus status, int64_t delay_ms) {
  Tally& tally = m_tallies[proxy];
  ++tally.answered;
  tally.system_errors += status == ResponseStatus::OK ? 0 : 1;
  tally.delay_samples += delay_ms > 0 ? 1 : 0;
}

void OwnCounts::CountTimeOut(size_t proxy, const LatencyData& request) {
  ++m_tallies[proxy].timed_out;
  m_timed_out.Remember(request);
}

void OwnCounts::CountUnexpected(size_t proxy, const ResponseMessage& response, int64_t now_ms) {
  const std::optional<LatencyData> request = m_timed_out.Take(response.sequence);
  if (!request || !m_proxies[proxy].Serves(*request)) {
    CountStray();
    return;
  }
  Tally& tally = m_tallies[proxy];
  ++tally.late;
  tally.late_system_errors += response.status == ResponseStatus::OK ? 0 : 1;
  tally.late_delay_ms += now_ms - request->time_ms;
}

std::string OwnCounts::ToSummary() const {
  std::string lines;
  for (size_t i = 0; i < m_proxies.size(); ++i) {
    const Tally& tally = m_tallies[i];
    const nlohmann::json line = {{"url", m_proxies[i].url},
                                 {"sent", tally.sent},
                                 {"answered", tally.answered},
                                 {"system_errors", tally.system_errors},
                                 {"delay_samples", tally.delay_samples},
                                 {"timed_out", tally.timed_out},
                                 {"late", tally.late},
                                 {"late_system_errors", tally.late_system_errors},
                                 {"late_delay_ms", tally.late_delay_ms},
                                 {"judged_unavailable", m_proxies[i].times_judged},
                                 {"back_in_service", m_proxies[i].times_back},
                                 {"zones_out_at_end", m_proxies[i].zones_out}};
    lines += line.dump() + '\n';
  }
  return lines;
}

}  // namespace demo
