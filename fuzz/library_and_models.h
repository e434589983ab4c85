// The registry, the latency manager and the judge beside their models.
#ifndef KORVAIN_FUZZ_LIBRARY_AND_MODELS_H_
#define KORVAIN_FUZZ_LIBRARY_AND_MODELS_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iostream>
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

// Either the library's objects or the models of them.
template <class Registry, class Latency, class Judge>
struct Side {
  void Note(std::initializer_list<int64_t> numbers) { results.insert(results.end(), numbers); }

  void Note(const KorvainService::LatencyData* r) {
    Note({r != nullptr});
    if (r == nullptr) return;
    Note({r->id_for_latency_data, r->id_for_list_node, r->time_ms, r->zone_id, r->ip, r->port});
  }

  test::RecordingLogger logger;
  Registry mgr;
  Latency latency;
  Judge judge{&logger};
  std::vector<int64_t> results;  // of the operations of a step
};

// Does one thing after the other on both sides, which must lead to the same. Few pairs, few
// addresses and few URLs, so that they collide; counts, counters and times of any value.
class LibraryAndModels {
 public:
  explicit LibraryAndModels(Input& input) : m_input(input) {
    m_platform.interfaces.emplace();
    test::clock_ms = 1000000;
    test::wall_seconds = 5000;
    OnBoth([](auto& side) { side.mgr.Init(&side.logger); });
  }

 protected:
  template <class Operation>
  void OnBoth(const Operation& operation) {
    operation(m_library);
    operation(m_models);
  }

  void InitLatency(int app, int timeout, int limit, bool has_logger) {
    OnBoth([=](auto& side) {
      side.Note({side.latency.Init(app, timeout, limit, has_logger ? &side.logger : nullptr)});
    });
    if (m_library.results.back() != 0) return;
    const std::string sizes = m_library.logger.TakeText();
    FUZZ_CHECK(std::count(sizes.begin(), sizes.end(), '\n') == (has_logger ? 3 : 0));
  }

  void ExpectSameResults() {
    const std::string lines = m_library.logger.TakeText(), expected = m_models.logger.TakeText();
    if (lines != expected) std::cerr << "logged:\n" << lines << "expected:\n" << expected;
    FUZZ_CHECK(lines == expected && m_library.logger.is_place_sound);
    FUZZ_CHECK(m_library.results == m_models.results);
    OnBoth([](auto& side) { side.results.clear(); });
  }

  void ExpectSameRecords() {
    for (const auto& [pair, record] : m_models.mgr.records) {
      const void* const own = m_library.mgr.GetServiceApiStatistic(pair.first, pair.second);
      FUZZ_CHECK(own != nullptr && memcmp(own, &record, sizeof(record)) == 0);
    }
  }

  // Mostly at the edges of an interval that begins at `time`. What would overflow wraps around.
  int64_t TimeAround(int64_t time, int64_t distance) {
    const int choice = m_input.Below(12);
    if (choice == 11) return m_input.Any<int64_t>();
    const int64_t distances[] = {0, 1, -1, distance, distance - 1, distance + 1, -distance};
    const int64_t chosen = choice < 7 ? distances[choice] : m_input.Byte();
    return static_cast<int64_t>(static_cast<uint64_t>(time) + static_cast<uint64_t>(chosen));
  }

  Input& m_input;
  test::FakePlatform m_platform;
  Side<KorvainService::KorvainServiceStatisticMgr, KorvainService::LatencyDataMgr,
       KorvainService::JudgeProxy>
      m_library;
  Side<test::RegistryModel, test::LatencyModel, test::JudgeModel> m_models;
};

}  // namespace fuzz

#endif  // KORVAIN_FUZZ_LIBRARY_AND_MODELS_H_
