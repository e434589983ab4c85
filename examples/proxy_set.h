// The proxies as one zone sees them: which ones get requests.
#ifndef KORVAIN_EXAMPLES_PROXY_SET_H_
#define KORVAIN_EXAMPLES_PROXY_SET_H_

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "examples/program.h"
#include "examples/service_options.h"
#include "service_api/korvain_service_statistic.h"

namespace example {

struct Proxy {
  std::string url;
  std::string server_id;
  sockaddr_in address;

  // The forms in which the module is told of the proxy.
  int32_t ip() const { return static_cast<int32_t>(address.sin_addr.s_addr); }
  int32_t port() const { return ntohs(address.sin_port); }
};

std::vector<Proxy> MakeProxies(const std::vector<std::string>& urls);

// Proxies that the module judges unavailable get no requests until the recheck interval is over.
// Then they are on trial: they get requests, and are judged anew from no bad check on.
class ProxySet {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  ProxySet(const ServiceOptions& options, int32_t zone_id, const std::vector<Proxy>& proxies,
           KorvainService::JudgeProxy& judge, const Console& console);

  // The index of the proxy for the next request: each that gets requests in turn.
  std::optional<size_t> Next();

  // What became of a request: good is a successful answer in time.
  void CountOutcome(size_t proxy, bool is_good);

  void Update(KorvainService::KorvainServiceStatisticMgr& statistic_mgr, TimePoint now);

  int32_t zone_id() const { return m_zone_id; }
  size_t InUse() const;
  int64_t TimesJudged(size_t proxy) const { return m_members[proxy].times_judged; }
  int64_t TimesBack(size_t proxy) const { return m_members[proxy].times_back; }
  bool IsInService(size_t proxy) const { return m_members[proxy].state == State::IN_SERVICE; }

 private:
  enum class State { IN_SERVICE, OUT_OF_SERVICE, ON_TRIAL };

  struct Member {
    State state = State::IN_SERVICE;
    TimePoint retry_time{};
    int64_t good = 0;  // outcomes since the last check
    int64_t bad = 0;
    int64_t times_judged = 0;
    int64_t times_back = 0;
  };

  void TryAgain(size_t proxy);
  void Check(size_t proxy, TimePoint now);
  void TakeOut(size_t proxy, TimePoint now);

  const std::vector<Proxy>& m_proxies;
  KorvainService::JudgeProxy& m_judge;
  const Console& m_console;
  const int32_t m_zone_id;
  const int32_t m_threshold;
  std::vector<Member> m_members;
  size_t m_turn = 0;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_PROXY_SET_H_
