// absl::flat_hash_map to requests from a boost::pool, boost::intrusive::list in send order.
#ifndef KORVAIN_BENCH_TRACKERS_ABSL_H_
#define KORVAIN_BENCH_TRACKERS_ABSL_H_

#include <absl/container/flat_hash_map.h>

#include <boost/intrusive/list.hpp>
#include <boost/pool/pool.hpp>
#include <cstdint>

#include "accesses.h"
#include "trackers/counter_maps.h"

namespace bench {

using AbslCounterMaps =
    CounterMaps<absl::flat_hash_map<int32_t, Counters>, absl::flat_hash_map<Access, Counters>>;

class AbslTracker {
 public:
  explicit AbslTracker(const Accesses& accesses) : m_counters(accesses) {}

  int64_t Push(const Access& access, int64_t now) {
    const int64_t id = m_next_id++;
    auto* request = new (m_pool.malloc()) Request;
    request->id = id;
    request->sent = now;
    request->access = access;
    m_order.push_back(*request);
    m_requests.emplace(id, request);
    return id;
  }

  void Complete(int64_t id, int64_t now) {
    const auto found = m_requests.find(id);
    if (found == m_requests.end()) return;
    Request* const request = found->second;
    m_counters.AddDelay(request->access, now - request->sent);
    m_requests.erase(found);
    Forget(request);
  }

  void Sweep() {
    for (int i = 0; i < SWEEP_LIMIT && !m_order.empty(); ++i) {
      Request* const oldest = &m_order.front();
      if (KorvainService::GetCurrentMilliseconds() - oldest->sent < TIME_OUT) return;
      m_counters.AddTimeOut(oldest->access);
      m_requests.erase(oldest->id);
      Forget(oldest);
    }
  }

 private:
  struct Request : boost::intrusive::list_base_hook<
                       boost::intrusive::link_mode<boost::intrusive::normal_link>> {
    int64_t id;
    int64_t sent;
    Access access;
  };

  void Forget(Request* request) {
    m_order.erase(m_order.iterator_to(*request));
    m_pool.free(request);
  }

  AbslCounterMaps m_counters;
  absl::flat_hash_map<int64_t, Request*> m_requests;
  boost::pool<> m_pool{sizeof(Request)};
  boost::intrusive::list<Request> m_order;
  int64_t m_next_id = 0;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_ABSL_H_
