// std::unordered_map of requests, std::multimap by deadline.
#ifndef KORVAIN_BENCH_TRACKERS_DEADLINE_H_
#define KORVAIN_BENCH_TRACKERS_DEADLINE_H_

#include <cstdint>
#include <map>
#include <unordered_map>

#include "accesses.h"
#include "trackers/counter_maps.h"

namespace bench {

class DeadlineTracker {
 public:
  explicit DeadlineTracker(const Accesses& accesses) : m_counters(accesses) {}

  int64_t Push(const Access& access, int64_t now) {
    const int64_t id = m_next_id++;
    m_requests.emplace(id, Request{access, now, m_deadlines.emplace(now + TIME_OUT, id)});
    return id;
  }

  void Complete(int64_t id, int64_t now) {
    const auto found = m_requests.find(id);
    if (found == m_requests.end()) return;
    m_counters.AddDelay(found->second.access, now - found->second.sent);
    m_deadlines.erase(found->second.position);
    m_requests.erase(found);
  }

  void Sweep() {
    for (int i = 0; i < SWEEP_LIMIT && !m_deadlines.empty(); ++i) {
      const auto first = m_deadlines.begin();
      if (first->first > KorvainService::GetCurrentMilliseconds()) return;
      const auto found = m_requests.find(first->second);
      m_counters.AddTimeOut(found->second.access);
      m_deadlines.erase(first);
      m_requests.erase(found);
    }
  }

 private:
  struct Request {
    Access access;
    int64_t sent;
    std::multimap<int64_t, int64_t>::iterator position;
  };

  StdCounterMaps m_counters;
  std::unordered_map<int64_t, Request> m_requests;
  std::multimap<int64_t, int64_t> m_deadlines;
  int64_t m_next_id = 0;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_DEADLINE_H_
