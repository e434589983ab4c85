// Random runs of LatencyDataMgr against a model made of a map and a deque.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

constexpr int APP = 1;
constexpr int ZONES = 4;     // the last one has no record at first
constexpr int ACCESSES = 5;  // per zone, the last one not registered

struct Request {
  int id;
  int64_t sent;
  int zone, ip;
};

struct Sums {
  uint64_t delay = 0;
  uint32_t delays = 0, time_outs = 0;

  void AddDelay(int64_t value) {
    delay += static_cast<uint64_t>(value);
    ++delays;
  }
};

class Model {
 public:
  // The slot given back last comes first, with its next generation; then slots never used.
  int Push(int64_t sent, int zone, int ip) {
    int id = 0;
    if (released_ids.empty()) {
      id = touched++;
    } else {
      id = released_ids.back();
      released_ids.pop_back();
    }
    in_flight.push_back({id, sent, zone, ip});
    return id;
  }

  void GiveBack(int id) { released_ids.push_back(id + 131072); }

  int RefuseMissingRecord(const char* func, int zone) {
    lines.push_back({test::ERROR, func,
                     "statistic_mgr->GetServiceApiStatistic failed. app_id:1, zone_id:" +
                         std::to_string(zone)});
    return GEN_ERR_ERR;
  }

  std::deque<Request>::iterator Find(int id) {
    return std::find_if(in_flight.begin(), in_flight.end(),
                        [id](const Request& request) { return request.id == id; });
  }

  int Complete(int id, int64_t received) {
    const auto found = Find(id);
    if (found == in_flight.end()) return GEN_ERR_ERR;
    if (found->zone >= zones) return RefuseMissingRecord("CalculateDelay", found->zone);
    if (received > found->sent) {
      overall[found->zone].AddDelay(received - found->sent);
      if (found->ip < ACCESSES - 1)
        access[{found->zone, found->ip}].AddDelay(received - found->sent);
    }
    in_flight.erase(found);
    GiveBack(id);
    return 0;
  }

  int Withdraw(int id) {
    const auto found = Find(id);
    if (found == in_flight.end()) return GEN_ERR_ERR;
    in_flight.erase(found);
    GiveBack(id);
    return 0;
  }

  template <class OnTimeOut>
  int Sweep(int64_t now, int64_t timeout, int limit, OnTimeOut on_time_out) {
    for (; limit > 0 && !in_flight.empty(); --limit) {
      const Request oldest = in_flight.front();
      if (oldest.zone >= zones) {
        return RefuseMissingRecord("TraverseForDeleteTimeOutNode", oldest.zone);
      }
      if (now >= oldest.sent && now - oldest.sent < timeout) return 0;
      ++overall[oldest.zone].time_outs;
      if (oldest.ip < ACCESSES - 1) {
        ++access[{oldest.zone, oldest.ip}].time_outs;
        const std::string id = std::to_string(oldest.id);
        lines.push_back({test::ERROR, "TraverseForDeleteTimeOutNode",
                         "it is timeout. app_id:1, zone_id:" + std::to_string(oldest.zone) +
                             ", ip:" + std::to_string(oldest.ip) + ".0.0.0, port:80" +
                             ", id_for_latency_data:" + id + ", id_for_list_node:" + id});
      }
      GiveBack(oldest.id);
      in_flight.pop_front();
      on_time_out(oldest);
    }
    return 0;
  }

  int CountNow() const { return static_cast<int>(in_flight.size()); }

  int zones = ZONES - 1;
  int touched = 0;
  std::vector<int> released_ids;  // each as it will be handed out
  std::deque<Request> in_flight;
  test::LogLines lines;
  std::map<int, Sums> overall;
  std::map<std::pair<int, int>, Sums> access;
};

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
    for (int ip = 0; ip < ACCESSES - 1; ++ip) mgr.AddAccess(APP, zone, "udp://x", ip, 80, "s");
  }

  int PickId(std::mt19937& random) const {
    if (!model.in_flight.empty() && random() % 8 != 0) {
      return model.in_flight[random() % model.in_flight.size()].id;
    }
    if (!past_ids.empty() && random() % 4 != 0) return past_ids[random() % past_ids.size()];
    return static_cast<int>(random());
  }

  template <class Status>
  static void ExpectSums(const Status& status, const Sums& sums) {
    ASSERT_EQ(uint64_t{status.ullAverageDelay}, sums.delay);
    ASSERT_EQ(uint32_t{status.dwCalculateAverageDelayResCount}, sums.delays);
    ASSERT_EQ(uint32_t{status.dwTimeoutCountPerMin}, sums.time_outs);
  }

  void ExpectAgreement() {
    for (int zone = 0; zone < model.zones; ++zone) {
      ExpectSums(mgr.GetServiceApiStatistic(APP, zone)->stOverallRunStatus, model.overall[zone]);
      for (int ip = 0; ip < ACCESSES - 1; ++ip) {
        ExpectSums(*mgr.GetAccessRunStatus(APP, zone, ip, 80), model.access[{zone, ip}]);
      }
    }
  }

  void SweepBothWithAHandler(int64_t now, int64_t timeout, int limit) {
    std::vector<int> results;
    std::vector<int> expected;
    try {
      results.push_back(latency.TraverseForDeleteTimeOutNode(&mgr, [&](const LatencyData& request) {
        EXPECT_EQ(latency.Find(request.id_for_latency_data), nullptr) << "it is over";
        EXPECT_EQ(request.port, 80);
        Handle({request.id_for_latency_data, request.time_ms, request.zone_id, request.ip}, now,
               timeout, past_ids, *this, results);
      }));
    } catch (int thrown) {
      results.push_back(thrown);
      ++handlers_thrown;
    }
    try {
      expected.push_back(model.Sweep(now, timeout, limit, [&](const Request& request) {
        Handle(request, now, timeout, past_ids, model, expected);
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
  Model model;
  std::deque<int> past_ids;
  size_t handled = 0;
  int handlers_thrown = 0;
};

TEST_P(LatencyModelTest, AgreesAfterEveryStep) {
  constexpr int STEPS = 100000;
  std::mt19937 random(GetParam());
  test::RecordingLogger logger;
  for (int zone = 0; zone < ZONES - 1; ++zone) CreateZone(zone);
  int64_t timeout = 50;
  int limit = 7;
  ASSERT_EQ(latency.Init(APP, 50, 7, &logger), 0);
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
                model.Sweep(now, timeout, limit, [](const Request&) {}));
    } else if (choice < 995) {
      SweepBothWithAHandler(now, timeout, limit);
      if (HasFatalFailure()) return;
    } else {
      timeout = 20 + static_cast<int64_t>(random() % 60);
      limit = 1 + static_cast<int>(random() % 20);
      latency.SetTimeOut(static_cast<int>(timeout));
      latency.SetLimit(limit);
    }
    if (step == STEPS / 2) {
      CreateZone(ZONES - 1);
      model.zones = ZONES;
    }
    ASSERT_EQ(logger.Take(), std::exchange(model.lines, {}));
    if (step % 97 == 0) {
      ExpectAgreement();
      if (HasFatalFailure()) return;
    }
  }
  ExpectAgreement();
  EXPECT_GT(model.overall[0].time_outs, 100u) << "the run must have met time-outs";
  EXPECT_GT(model.overall[0].delays, 1000u);
  EXPECT_GT(handled, 1000u) << "and handlers";
  EXPECT_GT(handlers_thrown, 10);
  EXPECT_TRUE(logger.is_place_sound);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LatencyModelTest, ::testing::Values(1u, 2u, 3u, 20261122u));

}  // namespace
}  // namespace KorvainService
