// Sequences of operations on the registry, the latency manager and the judge together. Here are the
// steps that concern requests and clocks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "pair_steps.h"

namespace fuzz {
namespace {

// What a time-out handler does, as the request tells it that has expired. What it sends at
// `long_ago` expires at once.
template <class Side>
int Handle(Side& side, const KorvainService::LatencyData& request, int64_t long_ago) {
  const int id = request.id_for_latency_data;
  if (id % 4 == 1) return side.latency.CalculateDelay(id + 1, test::clock_ms, &side.mgr);
  if (id % 4 == 2) return side.latency.Withdraw(id + 1);
  if (id % 12 == 3) throw id;
  const int64_t sent = id % 4 == 0 ? long_ago : test::clock_ms;
  return side.latency.PushBack(request.zone_id, sent, request.ip, request.port);
}

class OperationsRun : private PairSteps {
 public:
  using PairSteps::PairSteps;

  void Run() {
    if (m_input.Byte() % 4 != 0) BeginInUse();
    while (!m_input.IsOver()) Step();
    ExpectSameRecords();
  }

 private:
  // Begins with records, accesses and a judge that waits, as most inputs do not come to by chance.
  void BeginInUse() {
    InitLatency(1, 50, 3, true);
    for (const int zone : {0, 1}) {
      OnBoth([zone](auto& side) {
        side.Note({side.mgr.CreateStatisticMap(7, 1, zone),
                   side.mgr.AddAccess(1, zone, "udp://host-0", 0, 80, "s"),
                   side.mgr.AddAccess(1, zone, "udp://host-1", 1, 80, "s"),
                   side.mgr.AddTable(1, zone, "table")});
        auto& record = *side.mgr.GetServiceApiStatistic(1, zone);
        memset(&record.stOverallRunStatus, 1, 66);
        for (const int i : {0, 255}) memset(&record.astTableStatistic[i].stTableRunStatus, 1, 48);
      });
      m_library.mgr.SetUserDefineText(1, zone, "text");
      test::SetText(m_models.mgr.OptionOf(1, zone).user_define_text, "text");
      m_library.judge.SetCheckPeriod(1, zone, 5);
      m_models.judge.options[{1, zone}].check_period = 5;
      OnBoth([zone](auto& side) { side.judge.Update(1, zone, side.mgr); });
    }
    ExpectSameResults();
  }

  void Step() {
    using Self = OperationsRun;
    constexpr void (Self::*PAIR_STEPS[])(int app, int zone) = {
        &Self::ChangeEntries, &Self::ReadEntries, &Self::WriteCounters, &Self::WriteCounters,
        &Self::ChangeOptions, &Self::Report,      &Self::JudgePair,     &Self::JudgePair,
        &Self::ChangeJudge,   &Self::AskJudge};
    constexpr void (Self::*STEPS[])() = {
        &Self::Request,   &Self::Request,          &Self::Request, &Self::Request,
        &Self::Request,   &Self::SweepWithHandler, &Self::Sweep,   &Self::MoveClock,
        &Self::MoveClock, &Self::SetUpLatency};
    const int choice = m_input.Below(20);
    if (choice < 10) {
      const int pair = m_input.Below(6);
      (this->*PAIR_STEPS[choice])(1 + pair % 2, pair / 2);
    } else {
      (this->*STEPS[choice - 10])();
    }
    OnBoth([](auto& side) { side.Note({side.latency.Count()}); });
    ExpectSameResults();
  }

  int Id() {
    const int choice = m_input.Below(8);
    const auto pick = static_cast<size_t>(m_input.Byte());
    if (choice == 0) return m_input.Any<int32_t>();
    if (choice < 3 && !m_past_ids.empty()) return m_past_ids[pick % m_past_ids.size()];
    const auto& in_flight = m_models.latency.in_flight;
    return in_flight.empty() ? 0 : in_flight[pick % in_flight.size()].id_for_latency_data;
  }

  void Send(bool is_old) {
    const int zone = m_input.Below(3);
    const int access = m_input.Byte();
    const int port = access < 224 ? 80 : access < 240 ? 81 : 80 + 65536;  // registered is only 80
    const int64_t sent =
        is_old ? TimeAround(test::clock_ms, -m_models.latency.timeout) : test::clock_ms;
    OnBoth([=](auto& side) { side.Note({side.latency.PushBack(zone, sent, access % 4, port)}); });
    const auto id = static_cast<int>(m_models.results.back());
    if (id >= 0) m_past_ids.push_back(id);
  }

  void Request() {
    const int choice = m_input.Below(8);
    if (choice < 4) return Send(choice == 0);
    const int id = Id();
    const auto* const found = m_models.latency.Find(id);
    const bool is_withdrawn = choice == 4;
    const int64_t received =
        is_withdrawn ? 0 : TimeAround(found == nullptr ? 0 : found->time_ms, 30);
    OnBoth([=](auto& side) {
      side.Note(side.latency.Find(id));
      side.Note({is_withdrawn ? side.latency.Withdraw(id)
                              : side.latency.CalculateDelay(id, received, &side.mgr)});
    });
  }

  void SweepWithHandler() {
    const int64_t long_ago = test::clock_ms - m_models.latency.timeout;
    OnBoth([long_ago](auto& side) {
      const auto on_time_out = [&side, long_ago](const KorvainService::LatencyData& request) {
        side.Note(&request);
        side.Note({side.latency.Find(request.id_for_latency_data) != nullptr, side.latency.Count(),
                   Handle(side, request, long_ago)});
      };
      try {
        side.Note({side.latency.TraverseForDeleteTimeOutNode(&side.mgr, on_time_out)});
      } catch (int thrown) {
        side.Note({thrown});
      }
    });
  }

  // With an empty handler, which stands for none.
  void Sweep() {
    OnBoth(
        [](auto& side) { side.Note({side.latency.TraverseForDeleteTimeOutNode(&side.mgr, {})}); });
  }

  void SetUpLatency() {
    const int value = m_input.Below(2) == 0 ? m_input.Byte() : m_input.Any<int32_t>();
    const int choice = m_input.Below(4);
    const bool is_init = choice == 3;
    const int timeout = !is_init ? value : m_input.Below(2) == 0 ? 50 : m_input.Any<int32_t>();
    // Also out of range; not so high that retries that are due at once would go on for long.
    const int limit = choice % 2 == 0 ? 0 : m_input.Below(100) - 30;
    OnBoth([=](auto& side) {
      if (choice == 0) side.latency.SetTimeOut(timeout);
      if (choice == 1) side.latency.SetLimit(limit);
      if (choice == 2) side.logger.enabled_level = value % 2 == 0 ? test::DEBUG : test::INFO;
    });
    // Mostly of application 1, and with a logger.
    if (is_init) InitLatency(value % 4 == 3 ? 2 : 1, timeout, limit, value % 8 != 6);
  }

  void MoveClock() {
    const auto& in_flight = m_models.latency.in_flight;
    const int64_t from = in_flight.empty() ? test::clock_ms : in_flight.front().time_ms;
    // Not to where a request sent at the other end of the range is a few milliseconds old.
    test::clock_ms = std::max(TimeAround(from, m_models.latency.timeout), INT64_MIN / 2);
  }

  std::vector<int> m_past_ids;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  fuzz::OperationsRun(input).Run();
  return 0;
}
