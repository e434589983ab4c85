#include "demo/host/proxy_set.h"

#include <algorithm>

#include "demo/common/udp_socket.h"

namespace demo {

using namespace KorvainService;
using std::chrono::steady_clock;

std::vector<Proxy> MakeProxies(const std::vector<std::string>& urls) {
  std::vector<Proxy> proxies;
  for (const std::string& url : urls) {
    const std::string name = fmt::format("proxy-{}", proxies.size() + 1);
    proxies.push_back({url, name, ParseUdpUrl(url).value(), steady_clock::now(), {}});
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
  proxy.last_good_answer = steady_clock::now();
}

void ProxySet::Update(KorvainServiceStatisticMgr& statistic_mgr) {
  for (size_t i = 0; i < m_members.size(); ++i) {
    const Member& member = m_members[i];
    const bool is_rested = steady_clock::now() >= member.retry_time;
    if (member.state == State::OUT_OF_SERVICE && is_rested) TryAgain(i);
  }
  m_judge.Update(APP_ID, m_zone_id, statistic_mgr);
  if (!m_judge.IsShouldCheck(APP_ID, m_zone_id)) return;
  for (size_t i = 0; i < m_members.size(); ++i) Check(i);
}

void ProxySet::TryAgain(size_t proxy) {
  m_judge.ResetJudgeProxyStatus(APP_ID, m_zone_id, m_proxies[proxy].url.c_str());
  m_members[proxy] = {State::ON_TRIAL, {}, 0};
  m_console.Note("zone {}: {} is tried again", m_zone_id, m_proxies[proxy].name);
}

void ProxySet::Check(size_t proxy) {
  Member& member = m_members[proxy];
  if (member.state == State::OUT_OF_SERVICE) return;
  const char* const url = m_proxies[proxy].url.c_str();
  if (m_judge.IsProxyUnavailable(APP_ID, m_zone_id, url)) {
    TakeOut(proxy);
  } else if (member.state == State::ON_TRIAL && member.good_answers > 0 &&
             m_judge.GetUnavailableTimes(APP_ID, m_zone_id, url) == 0) {
    // The judge alone would also be content with a cycle too short for any time-out.
    TakeBack(proxy);
  }
  member.good_answers = 0;
}

// The first zone that takes a proxy out is news, and the last that takes it back.
void ProxySet::TakeOut(size_t proxy) {
  Member& member = m_members[proxy];
  Proxy& shared = m_proxies[proxy];
  const int recheck_s = m_judge.GetRecheckAvailableInterval(APP_ID, m_zone_id);
  const TimePoint now = steady_clock::now();
  ++shared.counts.judged_unavailable;
  m_console.Note("zone {}: {} is judged unavailable", m_zone_id, shared.name);
  if (member.state == State::IN_SERVICE && shared.counts.zones_out++ == 0) {
    const std::chrono::duration<double> seconds = now - shared.last_good_answer;
    m_console.Announce(
        "{} is judged unavailable {:.1f} s after its last good answer; next try in {} s",
        shared.name, seconds.count(), recheck_s);
  }
  member.state = State::OUT_OF_SERVICE;
  member.retry_time = now + std::chrono::seconds(recheck_s);
}

void ProxySet::TakeBack(size_t proxy) {
  OwnCounts& counts = m_proxies[proxy].counts;
  m_members[proxy].state = State::IN_SERVICE;
  ++counts.back_in_service;
  m_console.Note("zone {}: {} is fine", m_zone_id, m_proxies[proxy].name);
  if (--counts.zones_out == 0) m_console.Announce("{} is back in service", m_proxies[proxy].name);
}

int ProxySet::BadCycles(size_t proxy) const {
  const char* const url = m_proxies[proxy].url.c_str();
  return std::max(0, m_judge.GetUnavailableTimes(APP_ID, m_zone_id, url));
}

std::string ProxySet::Describe() const {
  std::string text;
  for (size_t i = 0; i < m_members.size(); ++i) {
    const State state = m_members[i].state;
    const int bad = BadCycles(i);
    if (state == State::OUT_OF_SERVICE) text += fmt::format(", {} out", m_proxies[i].name);
    if (state == State::ON_TRIAL) text += fmt::format(", {} on trial", m_proxies[i].name);
    if (state == State::IN_SERVICE && bad > 0) {
      text += fmt::format(", {} bad {}/{}", m_proxies[i].name, bad, m_check_times);
    }
  }
  return text;
}

}  // namespace demo
