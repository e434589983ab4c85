// Sequences of operations on the registry, the latency manager and the judge together. Here are the
// steps that concern requests and clocks.
#include <algorithm>
#include <iostream>

#include "common/korvain_error_code.h"
#include "operations_run.h"

namespace fuzz {

namespace {

// Any distance: what would overflow wraps around.
int64_t Sum(int64_t time, int64_t distance) {
  return static_cast<int64_t>(static_cast<uint64_t>(time) + static_cast<uint64_t>(distance));
}

// What a time-out handler does, told by the request that has expired.
template <class Push, class Complete, class Withdraw>
int Handle(int id, Push push, Complete complete, Withdraw withdraw) {
  switch (id % 4) {
    case 0:
      return push();
    case 1:
      return complete(id + 1);
    case 2:
      return withdraw(id + 1);
    default:
      return 0;
  }
}

}  // namespace

OperationsRun::OperationsRun(Input& input) : m_input(input) {
  m_platform.is_getifaddrs_failing = true;
  test::clock_ms = 1000000;
  test::wall_seconds = 5000;
  m_mgr.Init(&m_logger);
}

OperationsRun::~OperationsRun() {
  test::wall_seconds.reset();
}

// Mostly at the edges of an interval that begins at `time`.
int64_t OperationsRun::TimeAround(int64_t time, int64_t distance) {
  const int choice = m_input.Below(12);
  if (choice == 11) return m_input.Any<int64_t>();
  const int64_t distances[] = {0, 1, -1, distance, distance - 1, distance + 1, -distance};
  return choice < 7 ? Sum(time, distances[choice]) : Sum(time, m_input.Byte());
}

int OperationsRun::Id() {
  const int choice = m_input.Below(8);
  const auto pick = static_cast<size_t>(m_input.Byte());
  if (choice == 0) return m_input.Any<int32_t>();
  if (choice < 3 && !m_past_ids.empty()) return m_past_ids[pick % m_past_ids.size()];
  return m_requests.in_flight.empty() ? 0
                                      : m_requests.in_flight[pick % m_requests.in_flight.size()].id;
}

// Also out of range; not so high that retries that are due at once would go on for long.
int OperationsRun::Limit() {
  return m_input.Below(100) - 30;
}

void OperationsRun::InitLatency() {
  const int timeout = m_input.Below(2) == 0 ? 50 : m_input.Any<int32_t>();
  const int limit = Limit();
  const bool is_good = timeout > 0 && limit > 0;
  FUZZ_CHECK(m_latency.Init(1, timeout, limit, &m_logger) ==
             (is_good ? 0 : KorvainService::API_ERR_PARAMETER_INVALID));
  if (is_good) {
    m_requests.Init(timeout, limit);
    FUZZ_CHECK(m_logger.Take().size() == 3);  // sizes, which are the implementation's own
  } else {
    m_requests.lines.push_back(
        test::Expect(test::ERROR, "Init", "timeout(%d)<=0 || limit(%d) <=0", timeout, limit));
  }
}

void OperationsRun::Request() {
  const int choice = m_input.Below(8);
  if (choice < 4) {
    const int zone = m_input.Below(3);
    const int ip = m_input.Below(4);
    const int64_t sent =
        choice == 0 ? TimeAround(test::clock_ms, -m_requests.timeout) : test::clock_ms;
    const int id = m_latency.PushBack(zone, sent, ip, test::LatencyModel::PORT);
    FUZZ_CHECK(id == m_requests.Push(sent, zone, ip));
    if (id >= 0) m_past_ids.push_back(id);
    return;
  }
  const int id = Id();
  const auto expected = m_requests.Find(id);
  const KorvainService::LatencyData* const found = m_latency.Find(id);
  FUZZ_CHECK((found != nullptr) == (expected != m_requests.in_flight.end()));
  if (found != nullptr) {
    FUZZ_CHECK(found->id_for_latency_data == id && found->time_ms == expected->sent);
    FUZZ_CHECK(found->zone_id == expected->zone && found->ip == expected->ip);
  }
  if (choice == 4) {
    FUZZ_CHECK(m_latency.Withdraw(id) == m_requests.Withdraw(id));
  } else {
    const int64_t received = TimeAround(found == nullptr ? 0 : found->time_ms, 30);
    FUZZ_CHECK(m_latency.CalculateDelay(id, received, &m_mgr) == m_requests.Complete(id, received));
  }
}

void OperationsRun::Sweep() {
  const int64_t now = test::clock_ms;
  const int64_t long_ago = Sum(now, -m_requests.timeout);
  std::vector<int> handled, expected;
  handled.push_back(m_latency.TraverseForDeleteTimeOutNode(
      &m_mgr, [&](const KorvainService::LatencyData& request) {
        const int id = request.id_for_latency_data;
        handled.push_back(id);
        handled.push_back(Handle(
            id, [&] { return m_latency.PushBack(request.zone_id, long_ago, request.ip, 80); },
            [&](int other) { return m_latency.CalculateDelay(other, now, &m_mgr); },
            [&](int other) { return m_latency.Withdraw(other); }));
      }));
  expected.push_back(m_requests.Sweep(now, [&](const test::Request& request) {
    expected.push_back(request.id);
    expected.push_back(Handle(
        request.id, [&] { return m_requests.Push(long_ago, request.zone, request.ip); },
        [&](int other) { return m_requests.Complete(other, now); },
        [&](int other) { return m_requests.Withdraw(other); }));
  }));
  FUZZ_CHECK(handled == expected);
}

void OperationsRun::SetUpLatency() {
  const int value = m_input.Below(2) == 0 ? m_input.Byte() : m_input.Any<int32_t>();
  switch (m_input.Below(4)) {
    case 0:
      m_latency.SetTimeOut(value);
      m_requests.timeout = value > 0 ? value : 3000;
      break;
    case 1: {
      const int limit = Limit();
      m_latency.SetLimit(limit);
      m_requests.limit = limit > 0 ? limit : 100;
      break;
    }
    case 2:
      m_requests.is_debug_wanted = value % 2 == 0;
      m_logger.enabled_level = m_requests.is_debug_wanted ? test::DEBUG : test::INFO;
      break;
    default:
      InitLatency();
  }
}

void OperationsRun::MoveClock() {
  const bool has_oldest = !m_requests.in_flight.empty();
  test::clock_ms = TimeAround(has_oldest ? m_requests.in_flight.front().sent : test::clock_ms,
                              m_requests.timeout);
  // Not to where a request sent at the other end of the range is a few milliseconds old.
  test::clock_ms = std::max(test::clock_ms, INT64_MIN / 2);
}

void OperationsRun::MoveWallClock() {
  constexpr int64_t DISTANCES[] = {1, 5, 6, 6, 6, 10, 11, 299, 300, 301, -1, -12, -301, 0};
  *test::wall_seconds += DISTANCES[m_input.Below(14)];
}

void OperationsRun::Step() {
  using PairStep = void (OperationsRun::*)(Pair);
  constexpr PairStep PAIR_STEPS[] = {&OperationsRun::ChangeEntries, &OperationsRun::ReadEntries,
                                     &OperationsRun::WriteCounters, &OperationsRun::WriteCounters,
                                     &OperationsRun::ChangeOptions, &OperationsRun::Report,
                                     &OperationsRun::JudgePair,     &OperationsRun::JudgePair,
                                     &OperationsRun::ChangeJudge,   &OperationsRun::AskJudge};
  const int choice = m_input.Below(20);
  if (choice < 10) {
    const int pair = m_input.Below(6);
    (this->*PAIR_STEPS[choice])({1 + pair % 2, pair / 2});
  } else if (choice < 15) {
    Request();
  } else if (choice < 17) {
    Sweep();
  } else if (choice < 19) {
    MoveClock();
  } else {
    SetUpLatency();
  }
  FUZZ_CHECK(m_latency.Count() == m_requests.CountNow());
  ExpectSameLines();
}

void OperationsRun::ExpectSameLines() {
  test::LogLines expected;
  for (test::LogLines* lines : {&m_registry.lines, &m_requests.lines, &m_verdicts.lines}) {
    expected.insert(expected.end(), lines->begin(), lines->end());
    lines->clear();
  }
  const test::LogLines lines = m_logger.Take();
  if (lines != expected) {
    for (const test::LogLine& line : lines) std::cerr << "logged " << line << '\n';
    for (const test::LogLine& line : expected) std::cerr << "expected " << line << '\n';
  }
  FUZZ_CHECK(lines == expected && m_logger.is_place_sound);
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  fuzz::OperationsRun run(input);
  if (input.Byte() % 4 != 0) run.BeginInUse();
  while (!input.IsOver()) run.Step();
  run.ExpectSameRecords();
  return 0;
}
