#include "examples/proxy_set.h"

#include <fmt/core.h>

#include <algorithm>

#include "examples/udp_socket.h"

namespace example {

using namespace KorvainService;

std::vector<Proxy> MakeProxies(const std::vector<std::string>& urls) {
  std::vector<Proxy> proxies;
  for (const std::string& url : urls) {
    proxies.push_back({url, fmt::format("proxy-{}", proxies.size() + 1), ParseUdpUrl(url).value()});
  }
  return proxies;
}

ProxySet::ProxySet(const ServiceOptions& options, int32_t zone_id,
                   const std::vector<Proxy>& proxies, JudgeProxy& judge, const Console& console)
    : m_proxies(proxies),
      m_judge(judge),
      m_console(console),
      m_zone_id(zone_id),
      m_threshold(options.judge_threshold),
      m_members(proxies.size()) {
  m_judge.SetCheckPeriod(APP_ID, zone_id, options.judge_period_s);
  m_judge.SetCheckTimes(APP_ID, zone_id, options.judge_times);
  m_judge.SetThreshold(APP_ID, zone_id, options.judge_threshold);
  m_judge.SetRecheckAvailableInterval(APP_ID, zone_id, options.recheck_s);
}

std::optional<size_t> ProxySet::Next() {
  for (size_t tried = 0; tried < m_members.size(); ++tried) {
    m_turn = (m_turn + 1) % m_members.size();
    if (m_members[m_turn].state != State::OUT_OF_SERVICE) return m_turn;
  }
  return std::nullopt;
}

void ProxySet::CountOutcome(size_t proxy, bool is_good) {
  Member& member = m_members[proxy];
  ++(is_good ? member.good : member.bad);
}

void ProxySet::Update(KorvainServiceStatisticMgr& statistic_mgr, TimePoint now) {
  for (size_t i = 0; i < m_members.size(); ++i) {
    if (m_members[i].state == State::OUT_OF_SERVICE && now >= m_members[i].retry_time) TryAgain(i);
  }
  m_judge.Update(APP_ID, m_zone_id, statistic_mgr);
  if (!m_judge.IsShouldCheck(APP_ID, m_zone_id)) return;
  for (size_t i = 0; i < m_members.size(); ++i) Check(i, now);
}

void ProxySet::TryAgain(size_t proxy) {
  Member& member = m_members[proxy];
  m_judge.ResetJudgeProxyStatus(APP_ID, m_zone_id, m_proxies[proxy].url.c_str());
  member.state = State::ON_TRIAL;
  member.good = 0;
  member.bad = 0;
  m_console.Print("JUDGE zone {}: {} is tried again", m_zone_id, m_proxies[proxy].server_id);
}

void ProxySet::Check(size_t proxy, TimePoint now) {
  Member& member = m_members[proxy];
  if (member.state == State::OUT_OF_SERVICE) return;
  if (m_judge.IsProxyUnavailable(APP_ID, m_zone_id, m_proxies[proxy].url.c_str())) {
    TakeOut(proxy, now);
  } else if (member.state == State::ON_TRIAL && member.good > 0 &&
             100 * member.bad < m_threshold * (member.good + member.bad)) {
    // The judge alone would also be content with a cycle too short for any time-out.
    member.state = State::IN_SERVICE;
    ++member.times_back;
    m_console.Print("JUDGE zone {}: {} is fine, in service again", m_zone_id,
                    m_proxies[proxy].server_id);
  }
  member.good = 0;
  member.bad = 0;
}

void ProxySet::TakeOut(size_t proxy, TimePoint now) {
  Member& member = m_members[proxy];
  const int recheck_s = m_judge.GetRecheckAvailableInterval(APP_ID, m_zone_id);
  member.state = State::OUT_OF_SERVICE;
  member.retry_time = now + std::chrono::seconds(recheck_s);
  ++member.times_judged;
  m_console.Print(
      "JUDGE zone {}: {} ({}) is UNAVAILABLE ({} failures, {} good answers since the "
      "last check), no more requests for {} s",
      m_zone_id, m_proxies[proxy].server_id, m_proxies[proxy].url, member.bad, member.good,
      recheck_s);
}

size_t ProxySet::InUse() const {
  return static_cast<size_t>(
      std::count_if(m_members.begin(), m_members.end(),
                    [](const Member& member) { return member.state != State::OUT_OF_SERVICE; }));
}

}  // namespace example
