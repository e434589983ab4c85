// Request trackers to be measured beside each other: the module's own, what its user might write
// instead, and the floor. Each does the same job: remember a request, add the delay of its response
// to the counters of its zone and of its access, count it as timed out when none comes.
#ifndef KORVAIN_BENCH_TRACKERS_H_
#define KORVAIN_BENCH_TRACKERS_H_

#include <absl/container/flat_hash_map.h>

#include <boost/intrusive/list.hpp>
#include <boost/pool/pool.hpp>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace bench {

constexpr int APP = 1;
constexpr int64_t TIME_OUT = 3000;
constexpr int SWEEP_LIMIT = 100;

// The clock behind GetCurrentMilliseconds.
extern int64_t clock_ms;

struct Access {
  int32_t zone, ip, port;

  friend bool operator==(const Access& a, const Access& b) {
    return a.zone == b.zone && a.ip == b.ip && a.port == b.port;
  }
  template <class H>
  friend H AbslHashValue(H hash, const Access& access) {
    return H::combine(std::move(hash), access.zone, access.ip, access.port);
  }
};

struct AccessHash {
  size_t operator()(const Access& access) const {
    return KorvainService::StatisticAccessInfoHash()({access.zone, access.ip, access.port});
  }
};

using Accesses = std::vector<Access>;

// `zones` zones of `per_zone` accesses each.
Accesses MakeAccesses(int zones, int per_zone);

// Creates the records of their zones and adds them.
void Register(const Accesses& accesses, KorvainService::KorvainServiceStatisticMgr& statistic);

// The module's own.
class OwnTracker {
 public:
  explicit OwnTracker(const Accesses& accesses, KorvainService::Logger* logger = nullptr) {
    Register(accesses, m_statistic);
    m_latency.Init(APP, TIME_OUT, SWEEP_LIMIT, logger);
  }

  int64_t Push(const Access& access, int64_t now) {
    return m_latency.PushBack(access.zone, now, access.ip, access.port);
  }
  void Complete(int64_t id, int64_t now) {
    m_latency.CalculateDelay(static_cast<int32_t>(id), now, &m_statistic);
  }
  void Sweep() { m_latency.TraverseForDeleteTimeOutNode(&m_statistic); }

 private:
  KorvainService::KorvainServiceStatisticMgr m_statistic;
  KorvainService::LatencyDataMgr m_latency;
};

struct Counters {
  uint64_t delay_sum = 0;
  uint32_t delays = 0;
  uint32_t time_outs = 0;

  void AddDelay(int64_t delay) {
    delay_sum += static_cast<uint64_t>(delay);
    ++delays;
  }
};

// What all the others have in common: counters of zones and accesses in maps of the kind that the
// tracker uses anyway.
template <class ZoneMap, class AccessMap>
class CounterMaps {
 public:
  explicit CounterMaps(const Accesses& accesses) {
    for (const Access& access : accesses) {
      m_zones[access.zone];
      m_accesses[access];
    }
  }

  void AddDelay(const Access& access, int64_t delay) {
    m_zones.find(access.zone)->second.AddDelay(delay);
    const auto found = m_accesses.find(access);
    if (found != m_accesses.end()) found->second.AddDelay(delay);
  }

  void AddTimeOut(const Access& access) {
    ++m_zones.find(access.zone)->second.time_outs;
    const auto found = m_accesses.find(access);
    if (found != m_accesses.end()) ++found->second.time_outs;
  }

 private:
  ZoneMap m_zones;
  AccessMap m_accesses;
};

using StdCounterMaps = CounterMaps<std::unordered_map<int32_t, Counters>,
                                   std::unordered_map<Access, Counters, AccessHash>>;
using AbslCounterMaps =
    CounterMaps<absl::flat_hash_map<int32_t, Counters>, absl::flat_hash_map<Access, Counters>>;

// std::unordered_map of requests, std::list in send order.
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

// std::unordered_map of requests, std::multimap by deadline.
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

// absl::flat_hash_map to requests from a boost::pool, boost::intrusive::list in send order.
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

// The floor: one fused 64-byte slot per request that knows its counters; no look-up, no checks,
// everything inlined.
class FloorTracker {
 public:
  explicit FloorTracker(const Accesses& accesses) : m_zones(accesses.size()), m_slots(COUNT) {
    for (const Access& access : accesses) m_by_access.push_back({access, Counters()});
    for (uint32_t i = 0; i < COUNT; ++i) m_slots[i].next = i + 1;
    m_slots[0].previous = m_slots[0].next = 0;
  }

  int64_t Push(const Access& access, int64_t now) {
    const uint32_t index = m_free;
    Slot& slot = m_slots[index];
    m_free = slot.next;
    slot.sent = now;
    slot.zone = &m_zones[static_cast<size_t>(access.zone)];
    slot.access = &m_by_access[static_cast<size_t>(access.port)].second;
    slot.previous = m_slots[0].previous;
    slot.next = 0;
    m_slots[slot.previous].next = index;
    m_slots[0].previous = index;
    return index;
  }

  void Complete(int64_t id, int64_t now) {
    Slot& slot = m_slots[static_cast<size_t>(id)];
    slot.zone->AddDelay(now - slot.sent);
    slot.access->AddDelay(now - slot.sent);
    Forget(slot, static_cast<uint32_t>(id));
  }

  void Sweep() {
    for (int i = 0; i < SWEEP_LIMIT && m_slots[0].next != 0; ++i) {
      const uint32_t index = m_slots[0].next;
      Slot& slot = m_slots[index];
      if (KorvainService::GetCurrentMilliseconds() - slot.sent < TIME_OUT) return;
      ++slot.zone->time_outs;
      ++slot.access->time_outs;
      Forget(slot, index);
    }
  }

 private:
  static constexpr uint32_t COUNT = 100002;

  struct alignas(64) Slot {
    int64_t sent;
    Counters* zone;
    Counters* access;
    uint32_t previous, next;
  };

  void Forget(Slot& slot, uint32_t index) {
    m_slots[slot.previous].next = slot.next;
    m_slots[slot.next].previous = slot.previous;
    slot.next = m_free;
    m_free = index;
  }

  std::vector<Counters> m_zones;
  std::vector<std::pair<Access, Counters>> m_by_access;
  std::vector<Slot> m_slots;  // slot 0 is the ends of the list
  uint32_t m_free = 1;
};

// No tracker at all: what the workloads themselves cost.
class NoTracker {
 public:
  explicit NoTracker(const Accesses& /*accesses*/) {}
  static int64_t Push(const Access& access, int64_t now) {
    asm volatile("" : : "r"(access.zone), "r"(access.ip), "r"(access.port), "r"(now));
    return now;
  }
  static void Complete(int64_t id, int64_t now) { asm volatile("" : : "r"(id), "r"(now)); }
  static void Sweep() { asm volatile("" : : : "memory"); }
};

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_H_
