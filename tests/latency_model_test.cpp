// Random runs of LatencyDataMgr beside a model.
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <utility>
#include <vector>

#include "service_api/latency_data_mgr.h"
#include "support/fake_platform.h"
#include "support/latency_model.h"
#include "support/recording_logger.h"
#include "support/registry_model.h"

namespace KorvainService {
namespace {

using test::Request;

constexpr int APP = 1;
constexpr int ZONES = 4;     // the last one has no record at first
constexpr int ACCESSES = 5;  // per zone, the last one not registered

// What a time-out handler does to the manager or to the model, depending on the request, and what
// it was given for that. It retries, also with a request that has timed out already, ends other
// requests, or throws.
template <class Target>
void Handle(const Request& expired, int64_t now, int64_t timeout, const std::deque<int>& past_ids,
            Target& target, std::vector<int>& results) {
  const int past_id =
      past_ids.empty() ? 0 : past_ids[static_cast<size_t>(expired.id) % past_ids.size()];
  results.insert(results.end(),
                 {expired.id, static_cast<int>(expired.sent), expired.zone, expired.ip});
  results.push_back(target.CountNow());
  switch (expired.id % 7) {
    case 0:
      results.push_back(target.Push(now, expired.zone, expired.ip));
      break;
    case 1:
      results.push_back(target.Push(now - timeout, expired.zone, expired.ip));
      break;
    case 2:
      results.push_back(target.Complete(past_id, now + 5));
      break;
    case 3:
      results.push_back(target.Withdraw(past_id));
      break;
    case 4:
      if (expired.id % 3 == 0) throw expired.id;
      break;
    default:
      break;
  }
}

class LatencyModelTest : public ::testing::TestWithParam<unsigned int> {
 public:
  // The manager, with the model's interface.
  int CountNow() const { return latency.Count(); }
  int Push(int64_t sent, int zone, int ip) { return latency.PushBack(zone, sent, ip, 80); }
  int Complete(int id, int64_t received) { return latency.CalculateDelay(id, received, &mgr); }
  int Withdraw(int id) { return latency.Withdraw(id); }

 protected:
  void CreateZone(int zone) {
    mgr.CreateStatisticMap(1, APP, zone);
    registry.Create(1, {APP, zone}, 0);
    for (int ip = 0; ip < ACCESSES - 1; ++ip) {
      mgr.AddAccess(APP, zone, "udp://x", ip, 80, "s");
      registry.AddAccess({APP, zone}, "udp://x", ip, 80, "s");
    }
  }

  int PickId(std::mt19937& random) const {
    if (!model.in_flight.empty() && random() % 8 != 0) {
      return model.in_flight[random() % model.in_flight.size()].id;
    }
    if (!past_ids.empty() && random() % 4 != 0) return past_ids[random() % past_ids.size()];
    return static_cast<int>(random());
  }

  template <class Status>
  static void ExpectSums(const Status& status, const Status& expected) {
    ASSERT_EQ(uint64_t{status.ullAverageDelay}, uint64_t{expected.ullAverageDelay});
    ASSERT_EQ(uint32_t{status.dwCalculateAverageDelayResCount},
              uint32_t{expected.dwCalculateAverageDelayResCount});
    ASSERT_EQ(uint32_t{status.dwTimeoutCountPerMin}, uint32_t{expected.dwTimeoutCountPerMin});
  }

  void ExpectAgreement() {
    for (const auto& [pair, expected] : registry.records) {
      const SERVICEAPISTATISTIC& record = *mgr.GetServiceApiStatistic(APP, pair.second);
      ExpectSums(record.stOverallRunStatus, expected->stOverallRunStatus);
      for (int slot = 0; slot < ACCESSES - 1; ++slot) {
        ExpectSums(record.astAccessStatistic[slot].stAccessRunStatus,
                   expected->astAccessStatistic[slot].stAccessRunStatus);
      }
    }
  }

  void SweepBothWithAHandler(int64_t now) {
    std::vector<int> results;
    std::vector<int> expected;
    try {
      results.push_back(latency.TraverseForDeleteTimeOutNode(&mgr, [&](const LatencyData& request) {
        EXPECT_EQ(latency.Find(request.id_for_latency_data), nullptr) << "it is over";
        EXPECT_EQ(request.port, 80);
        Handle({request.id_for_latency_data, request.time_ms, request.zone_id, request.ip}, now,
               model.timeout, past_ids, *this, results);
      }));
    } catch (int thrown) {
      results.push_back(thrown);
      ++handlers_thrown;
    }
    try {
      expected.push_back(model.Sweep(now, [&](const Request& request) {
        Handle(request, now, model.timeout, past_ids, model, expected);
      }));
    } catch (int thrown) {
      expected.push_back(thrown);
    }
    ASSERT_EQ(results, expected);
    handled += results.size();
  }

  void ExpectTheSameFound(int id) {
    const LatencyData* const request = latency.Find(id);
    const auto expected = model.Find(id);
    ASSERT_EQ(request != nullptr, expected != model.in_flight.end()) << id;
    if (request == nullptr) return;
    EXPECT_EQ(request->id_for_latency_data, id);
    EXPECT_EQ(request->time_ms, expected->sent);
    EXPECT_EQ(request->zone_id, expected->zone);
    EXPECT_EQ(request->ip, expected->ip);
  }

  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
  test::RegistryModel registry;
  test::LatencyModel model{registry, APP};
  std::deque<int> past_ids;
  size_t handled = 0;
  int handlers_thrown = 0;
};

TEST_P(LatencyModelTest, AgreesAfterEveryStep) {
  constexpr int STEPS = 100000;
  std::mt19937 random(GetParam());
  test::RecordingLogger logger;
  for (int zone = 0; zone < ZONES - 1; ++zone) CreateZone(zone);
  ASSERT_EQ(latency.Init(APP, 50, 7, &logger), 0);
  model.Init(50, 7);
  logger.Take();
  test::clock_ms = 0;

  for (int step = 0; step < STEPS; ++step) {
    SCOPED_TRACE(step);
    const int64_t now = test::clock_ms +=
        random() % 500 == 0 ? -40 : static_cast<int64_t>(random() % 2);
    const auto choice = random() % 1000;
    if (choice < 500) {
      const int zone = static_cast<int>(random() % (step % 10000 < 100 ? ZONES : ZONES - 1));
      const int ip = static_cast<int>(random() % ACCESSES);
      const int id = latency.PushBack(zone, now, ip, 80);
      ASSERT_EQ(id, model.Push(now, zone, ip));
      past_ids.push_back(id);
      if (past_ids.size() > 1000) past_ids.pop_front();
    } else if (choice < 520) {
      const int id = PickId(random);
      ExpectTheSameFound(id);
      ASSERT_EQ(latency.Withdraw(id), model.Withdraw(id)) << id;
      ASSERT_EQ(latency.Count(), model.CountNow());
    } else if (choice < 950) {
      const int id = PickId(random);
      const int64_t received = now + static_cast<int64_t>(random() % 20) - 2;
      ASSERT_EQ(latency.CalculateDelay(id, received, &mgr), model.Complete(id, received)) << id;
    } else if (choice < 970) {
      ASSERT_EQ(latency.TraverseForDeleteTimeOutNode(&mgr),
                model.Sweep(now, [](const Request&) {}));
    } else if (choice < 995) {
      SweepBothWithAHandler(now);
      if (HasFatalFailure()) return;
    } else {
      model.timeout = 20 + static_cast<int>(random() % 60);
      model.limit = 1 + static_cast<int>(random() % 20);
      latency.SetTimeOut(model.timeout);
      latency.SetLimit(model.limit);
    }
    if (step == STEPS / 2) CreateZone(ZONES - 1);
    ASSERT_EQ(logger.Take(), std::exchange(model.lines, {}));
    if (step % 97 == 0) {
      ExpectAgreement();
      if (HasFatalFailure()) return;
    }
  }
  ExpectAgreement();
  const OVERALLRUNSTATUS& overall = registry.Find({APP, 0})->stOverallRunStatus;
  EXPECT_GT(uint32_t{overall.dwTimeoutCountPerMin}, 100u) << "the run must have met time-outs";
  EXPECT_GT(uint32_t{overall.dwCalculateAverageDelayResCount}, 1000u);
  EXPECT_GT(handled, 1000u) << "and handlers";
  EXPECT_GT(handlers_thrown, 10);
  EXPECT_TRUE(logger.is_place_sound);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LatencyModelTest, ::testing::Values(1u, 2u, 3u, 20261122u));

}  // namespace
}  // namespace KorvainService
