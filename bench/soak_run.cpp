#include "soak_run.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "common/korvain_error_code.h"
#include "fake_clocks.h"

namespace bench::soak {

using namespace KorvainService;

namespace {

template <class Status>
bool HasCounts(const Status& status, const Counts& counts) {
  return status.ullAverageDelay == counts.delay &&
         status.dwCalculateAverageDelayResCount == counts.delays &&
         status.dwTimeoutCountPerMin == counts.time_outs;
}

}  // namespace

Soak::Soak(unsigned int seed) : m_random(seed), m_requests(SLOTS), m_ended(1000, -1) {
  bench::clock_ms = 1000000;
  bench::wall_seconds = bench::clock_ms / 1000;
  for (int zone = 0; zone < ZONES; ++zone) {
    m_mgr.CreateStatisticMap(1, APP, zone);
    m_mgr.SetLastReportTime(APP, zone, *bench::wall_seconds);
    AddSomeAccesses(zone);
  }
  Expect(m_latency.Init(APP, TIME_OUT, 100, nullptr) == 0, "Init");
  m_channel.Init(nullptr);
  m_channel.SetNoticeUnreachable(true);
  const char* urls[] = {"udp://127.0.0.1:9", "udp://127.0.0.2:9"};
  m_channel.AddCollectServerAddress(urls, 2);
}

void Soak::Run(int64_t begin, int64_t end) {
  for (int64_t number = begin; number < end; ++number) {
    const bool is_outage = number % OUTAGE_EVERY < OUTAGE_LENGTH;
    if (Draw(is_outage ? 64 : 4) == 0) ++bench::clock_ms;
    Push();
    if (!is_outage) Respond();
    if (bench::clock_ms / 1000 != *bench::wall_seconds) EverySecond();
  }
}

bool Soak::IsSound() {
  const auto in_flight = static_cast<int64_t>(m_in_flight.size());
  Expect(m_latency.Count() == in_flight, "requests in flight");
  Expect(pushed == answered + withdrawn + timed_out + in_flight, "sum of all ends");
  Expect(refused > 0 && late > 0 && timed_out > 0 && m_reports > 0, "all kinds of ends met");
  return m_differences == 0;
}

void Soak::Expect(bool is_so, const char* what) {
  if (is_so || ++m_differences > 10) return;
  printf("DIFFERS: %s, after %lld requests\n", what, static_cast<long long>(pushed));
}

void Soak::AddSomeAccesses(int zone) {
  m_mgr.ClearAccess(zone);
  for (int ip = 0; ip < ACCESSES; ++ip) {
    bool& is_registered = m_zones[static_cast<size_t>(zone)].is_registered[static_cast<size_t>(ip)];
    is_registered = Draw(4) != 0;
    if (!is_registered) continue;
    const std::string url = "udp://10.0." + std::to_string(zone) + "." + std::to_string(ip);
    Expect(m_mgr.AddAccess(APP, zone, url.c_str(), ip, 80, "server") == 0, "AddAccess");
  }
}

void Soak::Push() {
  const int zone = Draw(ZONES), ip = Draw(ACCESSES);
  const int id = m_latency.PushBack(zone, bench::clock_ms, ip, 80);
  if (m_in_flight.size() == static_cast<size_t>(MAX_NODE_COUNT)) {
    Expect(id == API_ERR_ALLOCATE_MEMORY, "a full pool refuses");
    ++refused;
    return;
  }
  ++pushed;
  Expect(id >= 0, "PushBack");
  RequestOf(id) = {id, zone, ip, bench::clock_ms, m_in_flight.size()};
  m_in_flight.push_back(id);
  if (ACCESSRUNSTATUS* access = m_mgr.GetAccessRunStatus(APP, zone, ip, 80)) {
    ++access->dwRequestCountPerMin;
  }
}

void Soak::Respond() {
  const int choice = Draw(100);
  if (choice == 0 || m_in_flight.empty()) {
    const int id = m_ended[m_random() % m_ended.size()];
    Expect(m_latency.CalculateDelay(id, bench::clock_ms, &m_mgr) == GEN_ERR_ERR, "late response");
    ++late;
    return;
  }
  if (choice == 1) return;  // that one times out
  // Often a young one, so that the old ones time out.
  const size_t young = std::min<size_t>(m_in_flight.size(), 2000);
  const Request request = RequestOf(m_in_flight[m_in_flight.size() - 1 - m_random() % young]);
  if (choice == 2) {
    Expect(m_latency.Withdraw(request.id) == 0, "Withdraw");
    ++withdrawn;
  } else {
    Expect(m_latency.CalculateDelay(request.id, bench::clock_ms, &m_mgr) == 0, "response");
    ++answered;
    ForEachCountsOf(request, [&](Counts& counts) {
      counts.delay += static_cast<uint64_t>(bench::clock_ms - request.sent);
      counts.delays += bench::clock_ms > request.sent ? 1 : 0;
    });
  }
  Forget(request);
}

void Soak::Forget(const Request& request) {
  m_ended[m_end_count++ % m_ended.size()] = request.id;
  RequestOf(m_in_flight.back()).position = request.position;
  m_in_flight[request.position] = m_in_flight.back();
  m_in_flight.pop_back();
}

void Soak::EverySecond() {
  bench::wall_seconds = bench::clock_ms / 1000;
  for (int before = -1; before != m_latency.Count();) {
    before = m_latency.Count();
    Sweep();
  }
  for (int zone = 0; zone < ZONES; ++zone) {
    m_judge.Update(APP, zone, m_mgr);
    if (m_mgr.IsShouldReportStatisticNow(APP, zone, *bench::wall_seconds)) Report(zone);
  }
}

void Soak::Sweep() {
  const auto on_time_out = [this](const LatencyData& expired) {
    const Request request = RequestOf(expired.id_for_latency_data);
    Expect(request.id == expired.id_for_latency_data && request.sent == expired.time_ms &&
               bench::clock_ms - request.sent >= TIME_OUT,
           "an expired request");
    ++timed_out;
    ForEachCountsOf(request, [](Counts& counts) { ++counts.time_outs; });
    Forget(request);
  };
  Expect(m_latency.TraverseForDeleteTimeOutNode(&m_mgr, on_time_out) == 0, "sweep");
}

void Soak::Report(int zone) {
  Zone& counted = m_zones[static_cast<size_t>(zone)];
  SERVICEAPISTATISTIC& record = *m_mgr.GetServiceApiStatistic(APP, zone);
  Expect(HasCounts(record.stOverallRunStatus, counted.overall), "counts of a zone");
  for (int ip = 0; ip < ACCESSES; ++ip) {
    const ACCESSRUNSTATUS* const access = m_mgr.GetAccessRunStatus(record, ip, 80);
    const auto slot = static_cast<size_t>(ip);
    Expect((access != nullptr) == counted.is_registered[slot], "whether an access is known");
    if (access != nullptr)
      Expect(HasCounts(*access, counted.accesses[slot]), "counts of an access");
  }
  m_mgr.CalculateAverage(APP, zone, *bench::wall_seconds);
  const Counts& sums = counted.overall;
  const uint64_t mean = sums.delays == 0 ? sums.delay : sums.delay / sums.delays;
  Expect(record.stOverallRunStatus.ullAverageDelay == mean, "mean delay");
  m_mgr.SetLastReportTime(APP, zone, *bench::wall_seconds);
  m_channel.Update();
  m_channel.Send(reinterpret_cast<const char*>(&record), 1400);
  m_mgr.Reset(APP, zone);
  counted = Zone();
  AddSomeAccesses(zone);
  ++m_reports;
}

}  // namespace bench::soak
