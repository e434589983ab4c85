#include "judged.h"

#include "accesses.h"
#include "fake_clocks.h"

namespace bench {

Judged::Judged(int pairs, int per_pair) : m_pairs(pairs) {
  for (int zone = 0; zone < pairs; ++zone) {
    m_statistic.CreateStatisticMap(1, APP, zone);
    for (int i = 0; i < per_pair; ++i) {
      m_statistic.AddAccess(APP, zone, Url(i).c_str(), i, zone, "s");
    }
  }
  wall_seconds = FIRST_SECOND - CYCLE_INTERVAL;
  UpdateAll();
  UpdateAll();
  *wall_seconds += CYCLE_INTERVAL;
  UpdateAll();
}

Judged::~Judged() {
  wall_seconds.reset();
}

void Judged::CountRequests() {
  for (int zone = 0; zone < m_pairs; ++zone) {
    auto& record = *m_statistic.GetServiceApiStatistic(APP, zone);
    for (int i = 0; i < record.iAccessCount; ++i) {
      ++record.astAccessStatistic[i].stAccessRunStatus.dwRequestCountPerMin;
    }
  }
}

void Judged::UpdateAll() {
  for (int zone = 0; zone < m_pairs; ++zone) judge.Update(APP, zone, m_statistic);
}

void Judged::RunFirstCycleOfAnotherPair(int zone) {
  judge.Update(APP, zone, m_statistic);
  judge.Update(APP, zone, m_statistic);
  *wall_seconds += CYCLE_INTERVAL;
  judge.Update(APP, zone, m_statistic);
}

}  // namespace bench
