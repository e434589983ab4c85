#include "spaced_ids.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include "accesses.h"

namespace bench {

namespace {

constexpr int32_t CONSTANT_ID = 0;  // which adds nothing to the hash

}  // namespace

std::vector<Pair> SpacedPairs(VariedIds varied, int shift, int count) {
  const int per_half = varied == BOTH ? static_cast<int>(std::lround(std::sqrt(count))) : count;
  if (static_cast<int64_t>(per_half) << shift > int64_t{1} << 32) return {};
  std::vector<Pair> pairs;
  for (int i = 0; i < count; ++i) {
    const auto id = static_cast<int32_t>(static_cast<uint32_t>(i % per_half) << shift);
    const auto other = static_cast<int32_t>(static_cast<uint32_t>(i / per_half) << shift);
    if (varied == ZONES) pairs.push_back({CONSTANT_ID, id});
    if (varied == APPS) pairs.push_back({id, CONSTANT_ID});
    if (varied == BOTH) pairs.push_back({id, other});
  }
  return pairs;
}

SpacedRecords::SpacedRecords(std::vector<Pair> pairs) : m_pairs(std::move(pairs)) {
  for (const Pair& pair : m_pairs) m_statistic.CreateStatisticMap(1, pair.app, pair.zone);
  std::shuffle(m_pairs.begin(), m_pairs.end(), std::mt19937(1));
}

SpacedRequests::SpacedRequests(const std::vector<Pair>& pairs) {
  for (const Pair& pair : pairs) {
    // A port of its own, since the applications of a zone share its accesses.
    const Target target{LatencyOf(pair.app), pair.zone, NetworkAddress(1),
                        static_cast<int32_t>(m_targets.size())};
    m_targets.push_back(target);
    m_statistic.CreateStatisticMap(1, pair.app, pair.zone);
    m_statistic.AddAccess(pair.app, pair.zone, "udp://x", target.ip, target.port, "s");
  }
  std::shuffle(m_targets.begin(), m_targets.end(), std::mt19937(1));
}

KorvainService::LatencyDataMgr* SpacedRequests::LatencyOf(int32_t app) {
  for (const Application& known : m_applications) {
    if (known.id == app) return known.latency.get();
  }
  m_applications.push_back({app, std::make_unique<KorvainService::LatencyDataMgr>()});
  KorvainService::LatencyDataMgr* const latency = m_applications.back().latency.get();
  latency->Init(app, TIME_OUT, SWEEP_LIMIT, nullptr);
  return latency;
}

}  // namespace bench
