#include "demo/host/proxy_set.h"

#include <fmt/core.h>

#include <algorithm>

#include "demo/common/udp_socket.h"

namespace demo {

using namespace KorvainService;

namespace {

double SecondsSince(TimePoint then, TimePoint now) {
  return std::chrono::duration<double>(now - then).count();
}

}  // namespace

std::vector<Proxy> MakeProxies(const std::vector<std::string>& urls) {
  std::vector<Proxy> proxies;
  for (const std::string& url : urls) {
    Proxy proxy;
    proxy.url = url;
    proxy.name = fmt::format("proxy-{}", proxies.size() + 1);
    proxy.address = ParseUdpUrl(url).value();
    proxy.last_good_answer = std::chrono::steady_clock::now();
    proxies.push_back(proxy);
  }
  return proxies;
}

ProxySet::ProxySet(const HostOptions& options, int32_t zone_id, std::vector<Proxy>& proxies,
                   JudgeProxy& judge, Console& console)
    : m_proxies(proxies),
      m_judge(judge),
      m_console(console),
      m_zone_id(zone_id),
      m_check_times(options.judge_times),
      m_members(proxies.size()) {
  m_judge.SetCheckPeriod(APP_ID, zone_id, options.judge_period_s);
  m_judge.SetCheckTimes(APP_ID, zone_id, options.judge_times);
  m_judge.SetThreshold(APP_ID, zone_id, options.judge_threshold);
  m_judge.SetRecheckAvailableInterval(APP_ID, zone_id, options.recheck_s);
}

Proxy* ProxySet::Next() {
  for (size_t tried = 0; tried < m_members.size(); ++tried) {
    m_turn = (m_turn + 1) % m_members.size();
    if (m_members[m_turn].state != State::OUT_OF_SERVICE) return &m_proxies[m_turn];
  }
  return nullptr;
}

void ProxySet::CountGoodAnswer(Proxy& proxy) {
  ++m_members[static_cast<size_t>(&proxy - m_proxies.data())].good_answers;
  proxy.last_good_answer = std::chrono::steady_clock::now();
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
  m_judge.ResetJudgeProxyStatus(APP_ID, m_zone_id, m_proxies[proxy].url.c_str());
  m_members[proxy].state = State::ON_TRIAL;
  m_members[proxy].good_answers = 0;
  m_console.Note("zone {}: {} is tried again", m_zone_id, m_proxies[proxy].name);
}

void ProxySet::Check(size_t proxy, TimePoint now) {
  Member& member = m_members[proxy];
  if (member.state == State::OUT_OF_SERVICE) return;
  const char* const url = m_proxies[proxy].url.c_str();
  if (m_judge.IsProxyUnavailable(APP_ID, m_zone_id, url)) {
    TakeOut(proxy, now);
  } else if (member.state == State::ON_TRIAL && member.good_answers > 0 &&
             m_judge.GetUnavailableTimes(APP_ID, m_zone_id, url) == 0) {
    // The judge alone would also be content with a cycle too short for any time-out.
    TakeBack(proxy);
  }
  member.good_answers = 0;
}

// The first zone that takes a proxy out is news, and the last that takes it back.
void ProxySet::TakeOut(size_t proxy, TimePoint now) {
  Member& member = m_members[proxy];
  Proxy& shared = m_proxies[proxy];
  const int recheck_s = m_judge.GetRecheckAvailableInterval(APP_ID, m_zone_id);
  ++shared.counts.times_judged;
  m_console.Note("zone {}: {} is judged unavailable", m_zone_id, shared.name);
  if (member.state == State::IN_SERVICE && shared.zones_out++ == 0) {
    m_console.Announce(
        "{} is judged unavailable {:.1f} s after its last good answer; next try in {} s",
        shared.name, SecondsSince(shared.last_good_answer, now), recheck_s);
  }
  member.state = State::OUT_OF_SERVICE;
  member.retry_time = now + std::chrono::seconds(recheck_s);
}

void ProxySet::TakeBack(size_t proxy) {
  Proxy& shared = m_proxies[proxy];
  m_members[proxy].state = State::IN_SERVICE;
  ++shared.counts.times_back;
  m_console.Note("zone {}: {} is fine", m_zone_id, shared.name);
  if (--shared.zones_out == 0) m_console.Announce("{} is back in service", shared.name);
}

int ProxySet::BadCycles(size_t proxy) const {
  const char* const url = m_proxies[proxy].url.c_str();
  return std::max(0, m_judge.GetUnavailableTimes(APP_ID, m_zone_id, url));
}

std::string ProxySet::Describe(size_t proxy) const {
  const std::string& name = m_proxies[proxy].name;
  if (m_members[proxy].state == State::OUT_OF_SERVICE) return name + " out";
  if (m_members[proxy].state == State::ON_TRIAL) return name + " on trial";
  const int bad = BadCycles(proxy);
  return bad > 0 ? fmt::format("{} bad {}/{}", name, bad, m_check_times) : "";
}

}  // namespace demo
