// The floor: one fused 64-byte slot per request that knows its counters; no look-up, no checks,
// everything inlined.
#ifndef KORVAIN_BENCH_TRACKERS_FLOOR_H_
#define KORVAIN_BENCH_TRACKERS_FLOOR_H_

#include <cstdint>
#include <utility>
#include <vector>

#include "accesses.h"
#include "trackers/counter_maps.h"

namespace bench {

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

}  // namespace bench

#endif  // KORVAIN_BENCH_TRACKERS_FLOOR_H_
