// The steps of a run that concern records, options and the judge.
#include <cstring>

#include "operations_run.h"

namespace fuzz {

std::string OperationsRun::Url() {
  const int choice = m_input.Below(8);
  if (choice == 7) return m_input.Text(140).c_str();
  return (choice % 2 == 0 ? "udp://host-" : "tcp://host-") + std::to_string(choice / 2);
}

void OperationsRun::BeginInUse() {
  for (const auto& [app, zone] : {Pair{1, 0}, Pair{1, 1}}) {
    FUZZ_CHECK(m_mgr.CreateStatisticMap(7, app, zone) == 0);
    m_registry.Create(7, {app, zone}, test::clock_ms);
    for (int ip = 0; ip < 2; ++ip) {
      const std::string url = "udp://host-" + std::to_string(ip);
      FUZZ_CHECK(m_mgr.AddAccess(app, zone, url.c_str(), ip, 80, "s") == 0);
      m_registry.AddAccess({app, zone}, url, ip, 80, "s");
    }
    FUZZ_CHECK(m_mgr.AddTable(app, zone, "table") == m_registry.AddTable({app, zone}, "table"));
    for (auto* record : {m_registry.Find({app, zone}), m_mgr.GetServiceApiStatistic(app, zone)}) {
      memset(&record->stOverallRunStatus, 1, 66);
      for (const int slot : {0, 255}) {
        memset(&record->astTableStatistic[slot].stTableRunStatus, 1, 48);
      }
    }
    m_mgr.SetUserDefineText(app, zone, "text");
    test::SetText(m_registry.options[{app, zone}].user_define_text, "text");
    m_judge.SetCheckPeriod(app, zone, 5);
    m_verdicts.options[{app, zone}].check_period = 5;
    m_judge.Update(app, zone, m_mgr);
    m_verdicts.Update({app, zone}, nullptr, *test::wall_seconds);
  }
  ExpectSameLines();
  FUZZ_CHECK(m_latency.Init(1, 50, 3, &m_logger) == 0);
  m_requests.Init(50, 3);
  m_logger.Take();
}

void OperationsRun::ChangeEntries(Pair pair) {
  const auto [app, zone] = pair;
  const int ip = m_input.Below(4);
  const int choice = m_input.Below(8);
  if (choice == 0) {
    FUZZ_CHECK(m_mgr.CreateStatisticMap(ip, app, zone) == 0);
    m_registry.Create(ip, pair, test::clock_ms);
  } else if (choice == 1) {
    m_mgr.ClearAccess(zone);
    m_registry.ClearAccess(zone);
  } else if (choice == 2) {
    ExpectSameRecords();
    m_mgr.Reset(app, zone);
    m_registry.Reset(pair);
  } else if (choice == 3) {
    const std::string name = m_input.Text(130).c_str();
    FUZZ_CHECK(m_mgr.AddTable(app, zone, name.c_str()) == m_registry.AddTable(pair, name));
  } else {
    const std::string url = Url();
    const std::string server = m_input.Text(40).c_str();
    FUZZ_CHECK(m_mgr.AddAccess(app, zone, url.c_str(), ip, 80, server.c_str()) ==
               m_registry.AddAccess(pair, url, ip, 80, server));
  }
}

void OperationsRun::ReadEntries(Pair pair) {
  const auto [app, zone] = pair;
  const int ip = m_input.Below(5);
  const int slot = m_registry.FindIndex(zone, ip, 80);
  FUZZ_CHECK(m_mgr.FindAccessIndex(zone, ip, 80) == slot);
  auto* const record = m_mgr.GetServiceApiStatistic(app, zone);
  if (record == nullptr) {
    m_registry.Refuse("GetAccessRunStatus", "GetServiceApiStatistic() failed. ", pair);
  }
  const bool is_in_use = record != nullptr && slot >= 0 && slot < record->iAccessCount;
  FUZZ_CHECK(m_mgr.GetAccessRunStatus(app, zone, ip, 80) ==
             (is_in_use ? &record->astAccessStatistic[slot].stAccessRunStatus : nullptr));
}

// As a service API does, which may also write what it should not.
void OperationsRun::WriteCounters(Pair pair) {
  if (m_registry.Find(pair) == nullptr) return;
  const int choice = m_input.Below(8);
  const int slot = m_input.Below(5) == 4 ? 255 : m_input.Below(4);
  constexpr int READ_BY_JUDGE[] = {0, 5, 10};  // words of an access: requests and failures
  const int pick = m_input.Below(26);
  const int word = pick < 13 ? pick : READ_BY_JUDGE[pick % 3];
  const auto value = choice < 4 ? static_cast<uint32_t>(m_input.Byte()) : m_input.Any<uint32_t>();
  for (auto* record :
       {m_registry.Find(pair), m_mgr.GetServiceApiStatistic(pair.first, pair.second)}) {
    auto& access = record->astAccessStatistic[slot].stAccessRunStatus;
    auto& table = record->astTableStatistic[slot].stTableRunStatus;
    auto& overall = record->stOverallRunStatus;  // begins with half a word that is no counter
    if (choice == 7) record->iAccessCount = static_cast<int32_t>(value);
    if (choice == 6) record->nTableCount = static_cast<int16_t>(value);
    if (choice == 5) memcpy(reinterpret_cast<char*>(&overall) + 2 + 4 * (pick % 16), &value, 4);
    if (choice == 4) memcpy(reinterpret_cast<char*>(&table) + 4 * (word % 12), &value, 4);
    if (choice < 4) memcpy(reinterpret_cast<char*>(&access) + 4 * word, &value, 4);
  }
}

void OperationsRun::ChangeOptions(Pair pair) {
  const auto [app, zone] = pair;
  const int value = m_input.Any<int32_t>();
  const int choice = m_input.Below(6);
  auto& option = m_registry.OptionOf(pair, test::clock_ms);
  if (choice == 0) {
    option.report_period = value < 60 ? 60 : value;
    m_mgr.SetReportPeriod(app, zone, value);
  } else if (choice == 1) {
    option.last_report_time = m_input.Any<int64_t>();
    m_mgr.SetLastReportTime(app, zone, option.last_report_time);
  } else if (choice == 2) {
    test::SetText(option.user_define_text, m_input.Text(60).c_str());
    m_mgr.SetUserDefineText(app, zone, option.user_define_text);
  } else if (choice == 3) {
    m_mgr.SetBusinessId(app, zone, option.business_id = value);
  } else if (choice == 4) {
    m_mgr.SetMetalibId(app, zone, option.metalib_id = value);
  } else {
    m_mgr.SetDynamicErrorCode(app, zone, option.dynamic_error_code = value);
  }
  FUZZ_CHECK(m_mgr.GetBusinessId(app, zone) == option.business_id);
  FUZZ_CHECK(m_mgr.GetMetalibId(app, zone) == option.metalib_id);
  FUZZ_CHECK(m_mgr.GetDynamicErrorCode(app, zone) == option.dynamic_error_code);
}

void OperationsRun::Report(Pair pair) {
  const auto found = m_registry.options.find(pair);
  const bool has_option = found != m_registry.options.end();
  const int64_t now = TimeAround(has_option ? found->second.last_report_time : 0,
                                 has_option ? found->second.report_period : 60);
  ExpectSameRecords();
  FUZZ_CHECK(m_mgr.IsShouldReportStatisticNow(pair.first, pair.second, now) ==
             m_registry.IsReportDue(pair, now));
  if (m_input.Below(2) == 0) return;
  m_mgr.CalculateAverage(pair.first, pair.second, now);
  m_registry.CalculateAverage(pair, now);
}

// Every other time after requests to one access, most or all of which have failed.
void OperationsRun::JudgePair(Pair pair) {
  const auto [app, zone] = pair;
  const int choice = m_input.Byte();
  if (choice % 2 == 0) {
    MoveWallClock();
  } else if (m_registry.Find(pair) != nullptr) {
    *test::wall_seconds += 6;
    for (auto* record : {m_registry.Find(pair), m_mgr.GetServiceApiStatistic(app, zone)}) {
      auto& access = record->astAccessStatistic[choice / 128].stAccessRunStatus;
      access.dwRequestCountPerMin += 10;
      access.dwTimeoutCountPerMin += choice % 16 < 8 ? 10 : 8;
    }
  }
  m_judge.Update(app, zone, m_mgr);
  m_verdicts.Update(pair, m_registry.Find(pair), *test::wall_seconds);
}

void OperationsRun::ChangeJudge(Pair pair) {
  const auto [app, zone] = pair;
  const int value = m_input.Below(2) == 0 ? m_input.Byte() % 128 : m_input.Any<int32_t>();
  const int choice = m_input.Below(4);
  auto& option = m_verdicts.options[pair];
  if (choice == 0) {
    m_judge.SetThreshold(app, zone, value);
    option.threshold = value < 60 || value > 100 ? 90 : value;
  } else if (choice == 1) {
    m_judge.SetCheckPeriod(app, zone, value);
    option.check_period = value > 0 ? value : 10;
  } else if (choice == 2) {
    m_judge.SetCheckTimes(app, zone, value % 4);
    option.check_times = value % 4 > 0 ? value % 4 : 3;
  } else {
    m_judge.SetRecheckAvailableInterval(app, zone, value);
    option.recheck = value > 0 ? value : 60;
  }
}

void OperationsRun::AskJudge(Pair pair) {
  const auto [app, zone] = pair;
  const std::string url = Url();
  FUZZ_CHECK(m_judge.GetRecheckAvailableInterval(app, zone) == m_verdicts.OptionOf(pair).recheck);
  FUZZ_CHECK(m_judge.GetUnavailableTimes(app, zone, url.c_str()) == m_verdicts.TimesOf(pair, url));
  const int choice = m_input.Below(3);
  if (choice == 0) {
    FUZZ_CHECK(m_judge.IsShouldCheck(app, zone) == m_verdicts.IsShouldCheck(pair));
  } else if (choice == 1) {
    FUZZ_CHECK(m_judge.IsProxyUnavailable(app, zone, url.c_str()) ==
               m_verdicts.IsUnavailable(pair, url));
  } else {
    FUZZ_CHECK(m_judge.ResetJudgeProxyStatus(app, zone, url.c_str()) ==
               m_verdicts.ResetStatus(pair, url, *test::wall_seconds));
  }
}

void OperationsRun::ExpectSameRecords() {
  for (const auto& [pair, record] : m_registry.records) {
    const void* const own = m_mgr.GetServiceApiStatistic(pair.first, pair.second);
    FUZZ_CHECK(own != nullptr && memcmp(own, record.get(), sizeof(*record)) == 0);
  }
}

}  // namespace fuzz
