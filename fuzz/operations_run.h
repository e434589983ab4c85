// The registry, the latency manager and the judge beside their models, step by step.
#ifndef KORVAIN_FUZZ_OPERATIONS_RUN_H_
#define KORVAIN_FUZZ_OPERATIONS_RUN_H_

#include <cstdint>
#include <string>
#include <vector>

#include "input.h"
#include "service_api/korvain_service_statistic.h"
#include "support/fake_platform.h"
#include "support/judge_model.h"
#include "support/latency_model.h"
#include "support/recording_logger.h"
#include "support/registry_model.h"

namespace fuzz {

using test::Pair;

// Does one thing to the library and to the models, and stops where results differ. Few pairs, few
// addresses and few URLs, so that they collide; counts, counters and times of any value.
class OperationsRun {
 public:
  explicit OperationsRun(Input& input);

  // Begins with records, accesses and a judge that waits, as most inputs do not come to by chance.
  void BeginInUse();

  void Step();
  void ExpectSameRecords();

 private:
  void ChangeEntries(Pair pair);
  void ReadEntries(Pair pair);
  void WriteCounters(Pair pair);
  void ChangeOptions(Pair pair);
  void Report(Pair pair);
  void Request();
  void Sweep();
  void SweepWithHandler();
  void SetUpLatency();
  void MoveClock();
  void MoveWallClock();
  void JudgePair(Pair pair);
  void ChangeJudge(Pair pair);
  void AskJudge(Pair pair);
  void ExpectSameLines();

  std::string Url();
  int Id();
  int64_t TimeAround(int64_t time, int64_t distance);

  Input& m_input;
  test::FakePlatform m_platform;
  test::RecordingLogger m_logger;
  KorvainService::KorvainServiceStatisticMgr m_mgr;
  KorvainService::LatencyDataMgr m_latency;
  KorvainService::JudgeProxy m_judge{&m_logger};
  test::RegistryModel m_registry;
  test::LatencyModel m_requests;
  test::JudgeModel m_verdicts;
  std::vector<int> m_past_ids;
};

}  // namespace fuzz

#endif  // KORVAIN_FUZZ_OPERATIONS_RUN_H_
