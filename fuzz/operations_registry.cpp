// The steps of a run that concern records, options and the judge.
#include <cstring>

#include "common/korvain_error_code.h"
#include "operations_run.h"

namespace fuzz {

using KorvainService::ACCESSRUNSTATUS;
using KorvainService::SERVICEAPISTATISTIC;

std::string OperationsRun::Url() {
  const int choice = m_input.Below(8);
  if (choice == 7) return m_input.Text(140).c_str();
  return (choice % 2 == 0 ? "udp://host-" : "tcp://host-") + std::to_string(choice / 2);
}

void OperationsRun::BeginInUse() {
  for (const Pair& pair : {Pair{1, 0}, Pair{1, 1}}) {
    const auto [app, zone] = pair;
    FUZZ_CHECK(m_mgr.CreateStatisticMap(7, app, zone) == 0);
    m_registry.Create(7, pair, test::clock_ms);
    for (int ip = 0; ip < 2; ++ip) {
      const std::string url = "udp://host-" + std::to_string(ip);
      FUZZ_CHECK(m_mgr.AddAccess(app, zone, url.c_str(), ip, 80, "s") == 0);
      m_registry.AddAccess(pair, url, ip, 80, "s");
    }
    m_judge.SetCheckPeriod(app, zone, 5);
    m_verdicts.SetCheckPeriod(pair, 5);
    m_judge.Update(app, zone, m_mgr);
    m_verdicts.Update(pair, nullptr, *test::wall_seconds);
  }
  ExpectSameLines();
  FUZZ_CHECK(m_latency.Init(1, 50, 3, &m_logger) == 0);
  m_requests.Init(50, 3);
  m_logger.Take();
}

void OperationsRun::ChangeEntries(Pair pair) {
  const auto [app, zone] = pair;
  const int ip = m_input.Below(4);
  switch (m_input.Below(8)) {
    case 0:
      FUZZ_CHECK(m_mgr.CreateStatisticMap(ip, app, zone) == 0);
      m_registry.Create(ip, pair, test::clock_ms);
      break;
    case 1:
      m_mgr.ClearAccess(zone);
      m_registry.ClearAccess(zone);
      break;
    case 2:
      ExpectSameRecords();
      m_mgr.Reset(app, zone);
      m_registry.Reset(pair);
      break;
    case 3: {
      const std::string name = m_input.Text(130).c_str();
      FUZZ_CHECK(m_mgr.AddTable(app, zone, name.c_str()) == m_registry.AddTable(pair, name));
      break;
    }
    default: {
      const std::string url = Url();
      const std::string server = m_input.Text(40).c_str();
      FUZZ_CHECK(m_mgr.AddAccess(app, zone, url.c_str(), ip, 80, server.c_str()) ==
                 m_registry.AddAccess(pair, url, ip, 80, server));
    }
  }
}

void OperationsRun::ReadEntries(Pair pair) {
  const auto [app, zone] = pair;
  const int ip = m_input.Below(5);
  const auto indexed = m_registry.index.find({zone, ip, 80});
  FUZZ_CHECK(m_mgr.FindAccessIndex(zone, ip, 80) ==
             (indexed == m_registry.index.end() ? -1 : indexed->second));
  ACCESSRUNSTATUS* const status = m_mgr.GetAccessRunStatus(app, zone, ip, 80);
  const SERVICEAPISTATISTIC* const expected_record = m_registry.Find(pair);
  if (expected_record == nullptr) {
    FUZZ_CHECK(status == nullptr);
    m_registry.lines.push_back(
        test::Expect(test::ERROR, "GetAccessRunStatus",
                     "GetServiceApiStatistic() failed. app_id:%d, zone_id:%d", app, zone));
    return;
  }
  const ACCESSRUNSTATUS* const expected = m_registry.FindAccess(pair, ip, 80);
  FUZZ_CHECK((status == nullptr) == (expected == nullptr));
  if (status == nullptr) return;
  const char* const record = reinterpret_cast<char*>(m_mgr.GetServiceApiStatistic(app, zone));
  FUZZ_CHECK(reinterpret_cast<char*>(status) - record ==
             reinterpret_cast<const char*>(expected) -
                 reinterpret_cast<const char*>(expected_record));
}

// As a service API does, which may also write what it should not.
void OperationsRun::WriteCounters(Pair pair) {
  if (m_registry.Find(pair) == nullptr) return;
  const int choice = m_input.Below(8);
  const int slot = m_input.Below(5) == 4 ? 255 : m_input.Below(4);
  constexpr size_t READ_BY_JUDGE[] = {0, 5, 10};  // words of an access: requests and failures
  const int pick = m_input.Below(26);
  const size_t word = 4 * (pick < 13 ? static_cast<size_t>(pick) : READ_BY_JUDGE[pick % 3]);
  const auto value = choice < 4 ? static_cast<uint32_t>(m_input.Byte()) : m_input.Any<uint32_t>();
  for (SERVICEAPISTATISTIC* record :
       {m_registry.Find(pair), m_mgr.GetServiceApiStatistic(pair.first, pair.second)}) {
    if (choice == 7) record->iAccessCount = static_cast<int32_t>(value);
    if (choice == 6) record->nTableCount = static_cast<int16_t>(value);
    ACCESSRUNSTATUS& access = record->astAccessStatistic[slot].stAccessRunStatus;
    char* const status =
        choice == 5   ? reinterpret_cast<char*>(&record->stOverallRunStatus)
        : choice == 4 ? reinterpret_cast<char*>(&record->astTableStatistic[slot].stTableRunStatus)
                      : reinterpret_cast<char*>(&access);
    if (choice < 6) memcpy(status + (choice == 4 ? word % 48 : word), &value, 4);
  }
}

void OperationsRun::ChangeOptions(Pair pair) {
  const auto [app, zone] = pair;
  const int value = m_input.Any<int32_t>();
  test::RegistryModel::Option& option = m_registry.OptionOf(pair, test::clock_ms);
  switch (m_input.Below(6)) {
    case 0:
      m_mgr.SetReportPeriod(app, zone, value);
      option.period = value < 60 ? 60 : value;
      break;
    case 1:
      option.last_report = m_input.Any<int64_t>();
      m_mgr.SetLastReportTime(app, zone, option.last_report);
      break;
    case 2:
      option.text = m_input.Text(60).c_str();
      m_mgr.SetUserDefineText(app, zone, option.text.c_str());
      break;
    case 3:
      m_mgr.SetBusinessId(app, zone, option.business = value);
      break;
    case 4:
      m_mgr.SetMetalibId(app, zone, option.metalib = value);
      break;
    default:
      m_mgr.SetDynamicErrorCode(app, zone, option.dynamic_error = value);
  }
  FUZZ_CHECK(m_mgr.GetBusinessId(app, zone) == option.business);
  FUZZ_CHECK(m_mgr.GetMetalibId(app, zone) == option.metalib);
  FUZZ_CHECK(m_mgr.GetDynamicErrorCode(app, zone) == option.dynamic_error);
}

void OperationsRun::Report(Pair pair) {
  const auto option = m_registry.options.find(pair);
  const bool has_option = option != m_registry.options.end();
  const int64_t now = TimeAround(has_option ? option->second.last_report : 0,
                                 has_option ? option->second.period : 60);
  ExpectSameRecords();
  FUZZ_CHECK(m_mgr.IsShouldReportStatisticNow(pair.first, pair.second, now) ==
             m_registry.IsReportDue(pair, now));
  if (m_input.Below(2) == 0) return;
  m_mgr.CalculateAverage(pair.first, pair.second, now);
  m_registry.CalculateAverage(pair, now);
}

void OperationsRun::JudgePair(Pair pair) {
  if (m_input.Below(2) == 0) MoveWallClock();
  m_judge.Update(pair.first, pair.second, m_mgr);
  m_verdicts.Update(pair, m_registry.Find(pair), *test::wall_seconds);
}

void OperationsRun::ChangeJudge(Pair pair) {
  const auto [app, zone] = pair;
  const int value = m_input.Below(2) == 0 ? m_input.Byte() % 128 : m_input.Any<int32_t>();
  switch (m_input.Below(4)) {
    case 0:
      m_judge.SetThreshold(app, zone, value);
      return m_verdicts.SetThreshold(pair, value);
    case 1:
      m_judge.SetCheckPeriod(app, zone, value);
      return m_verdicts.SetCheckPeriod(pair, value);
    case 2:
      m_judge.SetCheckTimes(app, zone, value % 4);
      return m_verdicts.SetCheckTimes(pair, value % 4);
    default:
      m_judge.SetRecheckAvailableInterval(app, zone, value);
      return m_verdicts.SetRecheck(pair, value);
  }
}

void OperationsRun::AskJudge(Pair pair) {
  const auto [app, zone] = pair;
  const std::string url = Url();
  FUZZ_CHECK(m_judge.GetRecheckAvailableInterval(app, zone) == m_verdicts.OptionOf(pair).recheck);
  FUZZ_CHECK(m_judge.GetUnavailableTimes(app, zone, url.c_str()) == m_verdicts.TimesOf(pair, url));
  switch (m_input.Below(3)) {
    case 0:
      FUZZ_CHECK(m_judge.IsShouldCheck(app, zone) == m_verdicts.IsShouldCheck(pair));
      break;
    case 1:
      FUZZ_CHECK(m_judge.IsProxyUnavailable(app, zone, url.c_str()) ==
                 m_verdicts.IsUnavailable(pair, url));
      break;
    default:
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
