// No tracker at all: what the workloads themselves cost.
#ifndef KORVAIN_BENCH_TRACKERS_NONE_H_
#define KORVAIN_BENCH_TRACKERS_NONE_H_

#include <cstdint>

#include "accesses.h"

namespace bench {

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

#endif  // KORVAIN_BENCH_TRACKERS_NONE_H_
