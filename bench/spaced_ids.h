// Records whose ids lie a power of two apart, looked up and sent to.
#ifndef KORVAIN_BENCH_SPACED_IDS_H_
#define KORVAIN_BENCH_SPACED_IDS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace bench {

enum VariedIds { ZONES, APPS, BOTH };

struct Pair {
  int32_t app;
  int32_t zone;
};

// `count` pairs whose varied ids are multiples of 2^`shift`; with both varied, every combination of
// as many of each, so that `count` is a square. None when there are too few 32-bit ids.
std::vector<Pair> SpacedPairs(VariedIds varied, int shift, int count);

// Look-ups of their records, in an order that no one predicts.
class SpacedRecords {
 public:
  explicit SpacedRecords(std::vector<Pair> pairs);

  const KorvainService::SERVICEAPISTATISTIC* LookUpNext() {
    const Pair& pair = m_pairs[m_next];
    if (++m_next == m_pairs.size()) m_next = 0;
    return m_statistic.GetServiceApiStatistic(pair.app, pair.zone);
  }

 private:
  std::vector<Pair> m_pairs;
  size_t m_next = 0;
  KorvainService::KorvainServiceStatisticMgr m_statistic;
};

// Requests to one access of each pair, sent and answered.
class SpacedRequests {
 public:
  explicit SpacedRequests(const std::vector<Pair>& pairs);

  void SendNextAndAnswer() {
    const Target& target = m_targets[m_next];
    if (++m_next == m_targets.size()) m_next = 0;
    const int id = target.latency->PushBack(target.zone, ++m_now, target.ip, target.port);
    target.latency->CalculateDelay(id, m_now + 5, &m_statistic);
  }

 private:
  struct Target {
    KorvainService::LatencyDataMgr* latency;  // of its application
    int32_t zone, ip, port;
  };

  KorvainService::LatencyDataMgr* LatencyOf(int32_t app);

  std::vector<Target> m_targets;
  size_t m_next = 0;
  int64_t m_now = 0;
  struct Application {
    int32_t id;
    std::unique_ptr<KorvainService::LatencyDataMgr> latency;
  };
  std::vector<Application> m_applications;
  KorvainService::KorvainServiceStatisticMgr m_statistic;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_SPACED_IDS_H_
