// Everything of the library at once, request by request, beside counts of its own.
#ifndef KORVAIN_BENCH_SOAK_RUN_H_
#define KORVAIN_BENCH_SOAK_RUN_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "service_api/korvain_service_statistic.h"

namespace bench::soak {

constexpr int APP = 1;
constexpr int ZONES = 4;
constexpr int ACCESSES = 40;
constexpr int TIME_OUT = 3000;

// In requests. One is longer than a pool, and, since they come faster then, over before a time-out.
constexpr int64_t OUTAGE_EVERY = 2000000, OUTAGE_LENGTH = 150000;

constexpr size_t SLOTS = 131072;

struct Counts {
  uint64_t delay = 0, delays = 0, time_outs = 0;
};

struct Zone {
  Counts overall;
  std::array<Counts, ACCESSES> accesses;
  std::array<bool, ACCESSES> is_registered{};
};

struct Request {
  int id, zone, ip;
  int64_t sent;
  size_t position;  // in the list of those in flight
};

class Soak {
 public:
  explicit Soak(unsigned int seed);

  void Run(int64_t begin, int64_t end);

  // Everything that was begun has ended or is in flight.
  bool IsSound();

  int64_t pushed = 0, refused = 0, answered = 0, withdrawn = 0, timed_out = 0, late = 0;

 private:
  int Draw(int below) { return static_cast<int>(m_random() % static_cast<unsigned int>(below)); }

  Request& RequestOf(int id) { return m_requests[static_cast<size_t>(id) % SLOTS]; }

  void Expect(bool is_so, const char* what);
  void AddSomeAccesses(int zone);
  void Push();
  // The answer to a request, to none any more, or a request that could not be sent.
  void Respond();
  void Forget(const Request& request);
  void EverySecond();
  void Sweep();
  void Report(int zone);

  template <class Change>
  void ForEachCountsOf(const Request& request, Change change) {
    Zone& zone = m_zones[static_cast<size_t>(request.zone)];
    const auto ip = static_cast<size_t>(request.ip);
    change(zone.overall);
    if (zone.is_registered[ip]) change(zone.accesses[ip]);
  }

  std::mt19937 m_random;
  KorvainService::KorvainServiceStatisticMgr m_mgr;
  KorvainService::LatencyDataMgr m_latency;
  KorvainService::JudgeProxy m_judge{nullptr};
  KorvainService::UDPClientMgr m_channel;
  std::array<Zone, ZONES> m_zones;
  std::vector<Request> m_requests;  // by slot
  std::vector<int> m_in_flight;     // ids
  std::vector<int> m_ended;         // the last ids that ended
  size_t m_end_count = 0;
  int64_t m_reports = 0, m_differences = 0;
};

}  // namespace bench::soak

#endif  // KORVAIN_BENCH_SOAK_RUN_H_
