// What the host counts by itself, for the check at the end of a run: the module plays no part in
// it, nor do these counts in anything else.
#ifndef KORVAIN_DEMO_OWN_COUNTS_H_
#define KORVAIN_DEMO_OWN_COUNTS_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "demo/common/wire_format.h"
#include "demo/host/proxy_set.h"
#include "service_api/latency_data_mgr.h"

namespace demo {

struct Tally {
  int64_t sent = 0;
  int64_t answered = 0;       // in time, system errors included
  int64_t system_errors = 0;  // in time
  int64_t delay_samples = 0;  // in time, after more than 0 ms
  int64_t timed_out = 0;
  int64_t late = 0;  // answers to requests that had timed out
  int64_t late_system_errors = 0;
  int64_t late_delay_ms = 0;  // sum
};

// Requests that have timed out, so that a late answer is told from one that nobody waits for.
class TimedOutRequests {
 public:
  static constexpr size_t MOST = 20000;  // the oldest is forgotten for one more

  void Remember(const KorvainService::LatencyData& request);

  // The request, once: a second answer to it is nothing.
  std::optional<KorvainService::LatencyData> Take(uint64_t sequence);

 private:
  std::unordered_map<uint64_t, KorvainService::LatencyData> m_requests;
  std::deque<uint64_t> m_order;
};

class OwnCounts {
 public:
  explicit OwnCounts(const std::vector<Proxy>& proxies)
      : m_proxies(proxies), m_tallies(proxies.size()) {}

  void CountSent(size_t proxy) { ++m_tallies[proxy].sent; }
  void CountAnswer(size_t proxy, ResponseStatus status, int64_t delay_ms);
  void CountTimeOut(size_t proxy, const KorvainService::LatencyData& request);

  // An answer that names no request in flight: late, or a stray.
  void CountUnexpected(size_t proxy, const ResponseMessage& response, int64_t now_ms);
  void CountStray() { ++m_strays; }

  // One line of JSON for each proxy, its judgements included.
  std::string ToSummary() const;
  int64_t Strays() const { return m_strays; }

 private:
  const std::vector<Proxy>& m_proxies;
  std::vector<Tally> m_tallies;  // per proxy
  TimedOutRequests m_timed_out;
  int64_t m_strays = 0;  // datagrams
};

}  // namespace demo

#endif  // KORVAIN_DEMO_OWN_COUNTS_H_
