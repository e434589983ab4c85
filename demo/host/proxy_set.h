// The proxies as one zone sees them: which ones get requests.
#ifndef KORVAIN_DEMO_PROXY_SET_H_
#define KORVAIN_DEMO_PROXY_SET_H_

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "demo/common/console.h"
#include "demo/host/host_options.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

using TimePoint = std::chrono::steady_clock::time_point;

// Counted by the host itself, for the check at the end of a run alone.
struct OwnCounts {
  int64_t sent = 0;
  int64_t answered = 0;       // in time, errors included
  int64_t errors = 0;         // in time
  int64_t delay_samples = 0;  // in time, after more than 0 ms
  int64_t timed_out = 0;
  int64_t unexpected = 0;  // answers to no request in flight: late, or strays
  int64_t judged_unavailable = 0;
  int64_t back_in_service = 0;
  int64_t zones_out = 0;  // in which it is not in service now
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(OwnCounts, sent, answered, errors, delay_samples, timed_out,
                                   unexpected, judged_unavailable, back_in_service, zones_out)

struct Proxy {
  std::string url;
  std::string name;
  sockaddr_in address;
  TimePoint last_good_answer;
  OwnCounts counts;  // over all zones

  // The forms in which the module is told of the proxy.
  int32_t ip() const { return static_cast<int32_t>(address.sin_addr.s_addr); }
  int32_t port() const { return ntohs(address.sin_port); }
};

std::vector<Proxy> MakeProxies(const std::vector<std::string>& urls);

// Proxies that the module judges unavailable get no requests until the recheck interval is over.
// Then they are on trial: they get requests, and are judged anew from no bad check on.
class ProxySet {
 public:
  ProxySet(const HostOptions& options, int32_t zone_id, std::vector<Proxy>& proxies,
           KorvainService::JudgeProxy& judge, Console& console);

  // The proxy for the next request, each that gets requests in turn; null when none does.
  Proxy* Next();

  void CountGoodAnswer(Proxy& proxy);

  void Update(KorvainService::KorvainServiceStatisticMgr& statistic_mgr);

  int32_t zone_id() const { return m_zone_id; }

  // Not while it is judged unavailable, nor on trial after that.
  bool IsInService(size_t proxy) const { return m_members[proxy].state == State::IN_SERVICE; }
  int BadCycles(size_t proxy) const;  // checks in a row

  // What is wrong with the proxies, for a person.
  std::string Describe() const;

 private:
  enum class State { IN_SERVICE, OUT_OF_SERVICE, ON_TRIAL };

  struct Member {
    State state = State::IN_SERVICE;
    TimePoint retry_time{};
    int64_t good_answers = 0;  // since the last check
  };

  void TryAgain(size_t proxy);
  void Check(size_t proxy);
  void TakeOut(size_t proxy);
  void TakeBack(size_t proxy);

  std::vector<Proxy>& m_proxies;
  KorvainService::JudgeProxy& m_judge;
  Console& m_console;
  const int32_t m_zone_id;
  const int32_t m_check_times;
  std::vector<Member> m_members;
  size_t m_turn = 0;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_PROXY_SET_H_
