// What the trackers are put through. A tracker remembers a request, adds the delay of its response
// to the counters of its zone and of its access, and counts it as timed out when none comes.
#ifndef KORVAIN_BENCH_WORKLOADS_H_
#define KORVAIN_BENCH_WORKLOADS_H_

#include <cstdint>
#include <random>
#include <vector>

#include "accesses.h"
#include "fake_clocks.h"

namespace bench {

// Keeps `in_flight` requests in flight: each Step completes one of them, drawn at random, and sends
// another. What is drawn is computed beforehand.
template <class Tracker>
class RandomOrder {
 public:
  RandomOrder(Tracker& tracker, const Accesses& accesses, uint32_t in_flight)
      : m_tracker(tracker), m_ids(in_flight) {
    std::mt19937 random(1);
    for (Draw& draw : m_draws) {
      draw.position = static_cast<uint32_t>(random() % in_flight);
      draw.access = accesses[random() % accesses.size()];
    }
    for (int64_t& id : m_ids) id = m_tracker.Push(m_draws[m_step++ % DRAWS].access, m_now);
  }

  ~RandomOrder() {
    for (const int64_t id : m_ids) m_tracker.Complete(id, m_now);
  }

  void Step() {
    const Draw& draw = m_draws[m_step++ % DRAWS];
    ++m_now;
    m_tracker.Complete(m_ids[draw.position], m_now + 5);
    m_ids[draw.position] = m_tracker.Push(draw.access, m_now);
  }

 private:
  struct Draw {
    uint32_t position;
    Access access;
  };
  static constexpr size_t DRAWS = 1 << 17;

  Tracker& m_tracker;
  std::vector<int64_t> m_ids;
  std::vector<Draw> m_draws = std::vector<Draw>(DRAWS);
  size_t m_step = 0;
  int64_t m_now = 0;
};

// Sends as many requests as one sweep expires, and lets them all time out.
template <class Tracker>
class AllTimeOut {
 public:
  AllTimeOut(Tracker& tracker, const Accesses& accesses) : m_tracker(tracker) {
    std::mt19937 random(1);
    for (Access& access : m_draws) access = accesses[random() % accesses.size()];
  }

  // SWEEP_LIMIT requests.
  void Step() {
    for (int i = 0; i < SWEEP_LIMIT; ++i) {
      m_tracker.Push(m_draws[m_step++ % DRAWS], clock_ms);
    }
    clock_ms += TIME_OUT;
    m_tracker.Sweep();
  }

 private:
  static constexpr size_t DRAWS = 1 << 16;

  Tracker& m_tracker;
  std::vector<Access> m_draws = std::vector<Access>(DRAWS);
  size_t m_step = 0;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_WORKLOADS_H_
