// Sequences of operations on the registry, the latency manager and the judge together. Here are the
// steps that concern requests and clocks.
#include <algorithm>
#include <iostream>

#include "operations_run.h"

namespace fuzz {

using KorvainService::LatencyData;

namespace {

using Numbers = std::vector<int64_t>;

Numbers FieldsOf(const LatencyData* r) {
  if (r == nullptr) return {};
  return {r->id_for_latency_data, r->id_for_list_node, r->time_ms, r->zone_id, r->ip, r->port};
}

// What a time-out handler does, as the request tells it that has expired. What it sends at
// `long_ago` expires at once.
template <class Manager, class Registry>
int Handle(const LatencyData& request, Manager& manager, Registry& registry, int64_t long_ago) {
  const int id = request.id_for_latency_data;
  if (id % 4 == 1) return manager.CalculateDelay(id + 1, test::clock_ms, &registry);
  if (id % 4 == 2) return manager.Withdraw(id + 1);
  if (id % 12 == 3) throw id;
  const int64_t sent = id % 4 == 0 ? long_ago : test::clock_ms;
  return manager.PushBack(request.zone_id, sent, request.ip, request.port);
}

// All that can be seen of a sweep with a handler, by the manager or by its model.
template <class Manager, class Registry>
std::vector<Numbers> SweepWith(Manager& manager, Registry& registry, int64_t long_ago) {
  std::vector<Numbers> seen;
  const auto on_time_out = [&](const LatencyData& request) {
    seen.push_back(FieldsOf(&request));
    seen.push_back({manager.Find(request.id_for_latency_data) != nullptr, manager.Count(),
                    Handle(request, manager, registry, long_ago)});
  };
  try {
    seen.push_back({manager.TraverseForDeleteTimeOutNode(&registry, on_time_out)});
  } catch (int thrown) {
    seen.push_back({thrown});
  }
  return seen;
}

}  // namespace

OperationsRun::OperationsRun(Input& input) : m_input(input) {
  m_platform.is_getifaddrs_failing = true;
  test::clock_ms = 1000000;
  test::wall_seconds = 5000;
  m_mgr.Init(&m_logger);
}

// Mostly at the edges of an interval that begins at `time`. What would overflow wraps around.
int64_t OperationsRun::TimeAround(int64_t time, int64_t distance) {
  const int choice = m_input.Below(12);
  if (choice == 11) return m_input.Any<int64_t>();
  const int64_t distances[] = {0, 1, -1, distance, distance - 1, distance + 1, -distance};
  const int64_t chosen = choice < 7 ? distances[choice] : m_input.Byte();
  return static_cast<int64_t>(static_cast<uint64_t>(time) + static_cast<uint64_t>(chosen));
}

int OperationsRun::Id() {
  const int choice = m_input.Below(8);
  const auto pick = static_cast<size_t>(m_input.Byte());
  if (choice == 0) return m_input.Any<int32_t>();
  if (choice < 3 && !m_past_ids.empty()) return m_past_ids[pick % m_past_ids.size()];
  const auto& in_flight = m_requests.in_flight;
  return in_flight.empty() ? 0 : in_flight[pick % in_flight.size()].id_for_latency_data;
}

void OperationsRun::Request() {
  const int choice = m_input.Below(8);
  if (choice < 4) {
    const int zone = m_input.Below(3);
    const int access = m_input.Byte();
    const int port = access < 224 ? 80 : access < 240 ? 81 : 80 + 65536;  // registered is only 80
    const int64_t sent =
        choice == 0 ? TimeAround(test::clock_ms, -m_requests.timeout) : test::clock_ms;
    const int id = m_latency.PushBack(zone, sent, access % 4, port);
    FUZZ_CHECK(id == m_requests.PushBack(zone, sent, access % 4, port));
    if (id >= 0) m_past_ids.push_back(id);
    return;
  }
  const int id = Id();
  const LatencyData* const found = m_latency.Find(id);
  FUZZ_CHECK(FieldsOf(found) == FieldsOf(m_requests.Find(id)));
  if (choice == 4) {
    FUZZ_CHECK(m_latency.Withdraw(id) == m_requests.Withdraw(id));
  } else {
    const int64_t received = TimeAround(found == nullptr ? 0 : found->time_ms, 30);
    FUZZ_CHECK(m_latency.CalculateDelay(id, received, &m_mgr) ==
               m_requests.CalculateDelay(id, received, &m_registry));
  }
}

void OperationsRun::SweepWithHandler() {
  const int64_t long_ago = test::clock_ms - m_requests.timeout;
  FUZZ_CHECK(SweepWith(m_latency, m_mgr, long_ago) == SweepWith(m_requests, m_registry, long_ago));
}

// With an empty handler, which stands for none.
void OperationsRun::Sweep() {
  FUZZ_CHECK(m_latency.TraverseForDeleteTimeOutNode(&m_mgr, {}) ==
             m_requests.TraverseForDeleteTimeOutNode(&m_registry, [](const LatencyData&) {}));
}

void OperationsRun::SetUpLatency() {
  const int value = m_input.Below(2) == 0 ? m_input.Byte() : m_input.Any<int32_t>();
  // Also out of range; not so high that retries that are due at once would go on for long.
  const auto any_limit = [this] { return m_input.Below(100) - 30; };
  const int choice = m_input.Below(4);
  if (choice == 0) {
    m_latency.SetTimeOut(value);
    m_requests.timeout = value > 0 ? value : 3000;
  } else if (choice == 1) {
    const int limit = any_limit();
    m_latency.SetLimit(limit);
    m_requests.limit = limit > 0 ? limit : 100;
  } else if (choice == 2) {
    m_logger.enabled_level = m_requests.enabled_level = value % 2 == 0 ? test::DEBUG : test::INFO;
  } else {
    const int timeout = m_input.Below(2) == 0 ? 50 : m_input.Any<int32_t>();
    const int limit = any_limit();
    const int app = value % 4 == 3 ? 2 : 1;  // mostly application 1, and with a logger
    const bool has_logger = value % 8 != 6;
    const int result = m_latency.Init(app, timeout, limit, has_logger ? &m_logger : nullptr);
    if (result == 0) FUZZ_CHECK(m_logger.Take().size() == (has_logger ? 3 : 0));  // any sizes
    FUZZ_CHECK(result == m_requests.Init(timeout, limit, app, has_logger));
  }
}

void OperationsRun::MoveClock() {
  const auto& in_flight = m_requests.in_flight;
  const int64_t from = in_flight.empty() ? test::clock_ms : in_flight.front().time_ms;
  // Not to where a request sent at the other end of the range is a few milliseconds old.
  test::clock_ms = std::max(TimeAround(from, m_requests.timeout), INT64_MIN / 2);
}

void OperationsRun::MoveWallClock() {
  constexpr int64_t DISTANCES[] = {1, 5, 6, 6, 6, 10, 11, 299, 300, 301, -1, -12, -301, 0};
  *test::wall_seconds += DISTANCES[m_input.Below(14)];
}

void OperationsRun::Step() {
  using Run = OperationsRun;
  constexpr void (Run::*PAIR_STEPS[])(Pair) = {
      &Run::ChangeEntries, &Run::ReadEntries, &Run::WriteCounters, &Run::WriteCounters,
      &Run::ChangeOptions, &Run::Report,      &Run::JudgePair,     &Run::JudgePair,
      &Run::ChangeJudge,   &Run::AskJudge};
  constexpr void (Run::*STEPS[])() = {
      &Run::Request,          &Run::Request, &Run::Request,   &Run::Request,   &Run::Request,
      &Run::SweepWithHandler, &Run::Sweep,   &Run::MoveClock, &Run::MoveClock, &Run::SetUpLatency};
  const int choice = m_input.Below(20);
  if (choice < 10) {
    const int pair = m_input.Below(6);
    (this->*PAIR_STEPS[choice])({1 + pair % 2, pair / 2});
  } else {
    (this->*STEPS[choice - 10])();
  }
  FUZZ_CHECK(m_latency.Count() == m_requests.Count());
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
