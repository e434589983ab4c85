// Pairs of application and zone under a judge, on a faked wall clock.
#ifndef KORVAIN_BENCH_JUDGED_H_
#define KORVAIN_BENCH_JUDGED_H_

#include <cstdint>
#include <string>

#include "service_api/korvain_service_statistic.h"

namespace bench {

// `pairs` zones of one application with the same number of accesses each, and their judge, which
// has a status of each access and has not cleaned up yet. At most one at a time: the clock is one.
class Judged {
 public:
  // The wall clock of a new one. A clean-up is due once the clock has reached CLEAN_UP_INTERVAL,
  // and then again after as many seconds.
  static constexpr int64_t FIRST_SECOND = 12;
  static constexpr int64_t CYCLE_INTERVAL = KorvainService::DEFAULT_JUDGE_PROXY_CHECK_PERIOD + 1;
  static constexpr int64_t CLEAN_UP_INTERVAL = KorvainService::JUDGE_PROXY_TRAVERSE_TIME_INTERVAL;

  Judged(int pairs, int per_pair);
  ~Judged();
  Judged(const Judged&) = delete;
  Judged& operator=(const Judged&) = delete;

  // The URL of an endpoint; each zone has the same.
  static std::string Url(int i) { return "udp://10.1.2." + std::to_string(i) + ":9000"; }

  // One request more for each access, so that each is evaluated: one without is passed over.
  void CountRequests();

  // Update of all pairs in one second.
  void UpdateAll();

  // One cycle of a pair without accesses, which cleans up where that is due.
  void RunFirstCycleOfAnotherPair(int zone);

  KorvainService::JudgeProxy judge{nullptr};

 private:
  int m_pairs;
  KorvainService::KorvainServiceStatisticMgr m_statistic;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_JUDGED_H_
