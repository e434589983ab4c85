// std::unordered_map of requests, std::list in send order.
#ifndef KORVAIN_BENCH_TRACKERS_STD_LIST_H_
#define KORVAIN_BENCH_TRACKERS_STD_LIST_H_

#include <cstdint>
#include <list>
#include <unordered_map>

#include "accesses.h"
#include "trackers/counter_maps.h"

namespace bench {

class StdListTracker {
 public:
  explicit StdListTracker(const Accesses& accesses) : m_counters(accesses) {}

  int64_t Push(const Access& access, int64_t now) {
    const int64_t id = m_next_id++;
    m_requests.emplace(id, Request{access, now, m_order.insert(m_order.end(), id)});
    return id;
  }

  void Complete(int64_t id, int64_t now) {
    const auto found = m_requests.find(id);
    if (found == m_requests.end()) return;
    m_counters.AddDelay(found->second.access, now - found->second.sent);
    m_order.erase(found->second.position);
    m_requests.erase(found);
  }

  void Sweep() {
    for (int i = 0; i < SWEEP_LIMIT && !m_order.empty(); ++i) {
      const auto oldest = m_requests.find(m_order.front());
      if (KorvainService::GetCurrentMilliseconds() - oldest->second.sent < TIME_OUT) return;
      m_counters.AddTimeOut(oldest->second.access);
      m_order.pop_front();
      m_requests.erase(oldest);
    }
  }

 private:
  struct Request {
    Access access;
    int64_t sent;
    std::list<int64_t>::iterator position;
  };

  StdCounterMaps m_counters;
  std::unordered_map<int64_t, Request> m_requests;
  std::list<int64_t> m_order;
  int64_t m_next_id = 0;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_STD_LIST_H_
