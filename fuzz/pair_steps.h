// The steps of a run that concern one pair of application and zone: its records, its options and
// the judge.
#ifndef KORVAIN_FUZZ_PAIR_STEPS_H_
#define KORVAIN_FUZZ_PAIR_STEPS_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "library_and_models.h"

namespace fuzz {

class PairSteps : protected LibraryAndModels {
 public:
  using LibraryAndModels::LibraryAndModels;

 protected:
  std::string Url() {
    const int choice = m_input.Below(8);
    if (choice == 7) return m_input.Text(140).c_str();
    return (choice % 2 == 0 ? "udp://host-" : "tcp://host-") + std::to_string(choice / 2);
  }

  void ChangeEntries(int app, int zone) {
    const int ip = m_input.Below(4);
    const int choice = m_input.Below(8);
    const bool is_access = choice > 3;
    const std::string name = choice == 3 ? m_input.Text(130) : is_access ? Url() : "";
    const std::string server = is_access ? m_input.Text(40) : "";
    if (choice == 2) ExpectSameRecords();
    OnBoth([&](auto& side) {
      if (choice == 0) side.Note({side.mgr.CreateStatisticMap(ip, app, zone)});
      if (choice == 1) side.mgr.ClearAccess(zone);
      if (choice == 2) side.mgr.Reset(app, zone);
      if (choice == 3) side.Note({side.mgr.AddTable(app, zone, name.c_str())});
      if (!is_access) return;
      side.Note({side.mgr.AddAccess(app, zone, name.c_str(), ip, 80, server.c_str())});
    });
  }

  void ReadEntries(int app, int zone) {
    const int ip = m_input.Below(5);
    OnBoth([=](auto& side) {
      auto* const access = reinterpret_cast<char*>(side.mgr.GetAccessRunStatus(app, zone, ip, 80));
      auto* const record = reinterpret_cast<char*>(side.mgr.GetServiceApiStatistic(app, zone));
      side.Note({side.mgr.FindAccessIndex(zone, ip, 80), access == nullptr ? -1 : access - record});
    });
  }

  // As a service API does, which may also write what it should not.
  void WriteCounters(int app, int zone) {
    if (m_models.mgr.GetServiceApiStatistic(app, zone) == nullptr) return;
    const int choice = m_input.Below(8);
    const int slot = m_input.Below(5) == 4 ? 255 : m_input.Below(4);
    constexpr int READ_BY_JUDGE[] = {0, 5, 10};  // words of an access: requests and failures
    const int pick = m_input.Below(26);
    const int word = pick < 13 ? pick : READ_BY_JUDGE[pick % 3];
    const auto value = choice < 4 ? static_cast<uint32_t>(m_input.Byte()) : m_input.Any<uint32_t>();
    OnBoth([=](auto& side) {
      auto& record = *side.mgr.GetServiceApiStatistic(app, zone);
      auto& access = record.astAccessStatistic[slot].stAccessRunStatus;
      auto& table = record.astTableStatistic[slot].stTableRunStatus;
      auto& overall = record.stOverallRunStatus;  // begins with half a word that is no counter
      if (choice == 7) record.iAccessCount = static_cast<int32_t>(value);
      if (choice == 6) record.nTableCount = static_cast<int16_t>(value);
      if (choice == 5) memcpy(reinterpret_cast<char*>(&overall) + 2 + 4 * (pick % 16), &value, 4);
      if (choice == 4) memcpy(reinterpret_cast<char*>(&table) + 4 * (word % 12), &value, 4);
      if (choice < 4) memcpy(reinterpret_cast<char*>(&access) + 4 * word, &value, 4);
    });
  }

  void ChangeOptions(int app, int zone) {
    const int value = m_input.Any<int32_t>();
    const int choice = m_input.Below(6);
    const int64_t time = choice == 1 ? m_input.Any<int64_t>() : 0;
    const std::string text = choice == 2 ? m_input.Text(60).c_str() : "";
    auto& mgr = m_library.mgr;
    if (choice == 0) mgr.SetReportPeriod(app, zone, value);
    if (choice == 1) mgr.SetLastReportTime(app, zone, time);
    if (choice == 2) mgr.SetUserDefineText(app, zone, text.c_str());
    if (choice == 3) mgr.SetBusinessId(app, zone, value);
    if (choice == 4) mgr.SetMetalibId(app, zone, value);
    if (choice == 5) mgr.SetDynamicErrorCode(app, zone, value);
    auto& option = m_models.mgr.OptionOf(app, zone);
    if (choice == 0) option.report_period = std::max(value, 60);
    if (choice == 1) option.last_report_time = time;
    if (choice == 2) test::SetText(option.user_define_text, text);
    if (choice == 3) option.business_id = value;
    if (choice == 4) option.metalib_id = value;
    if (choice == 5) option.dynamic_error_code = value;
    FUZZ_CHECK(mgr.GetBusinessId(app, zone) == option.business_id);
    FUZZ_CHECK(mgr.GetMetalibId(app, zone) == option.metalib_id);
    FUZZ_CHECK(mgr.GetDynamicErrorCode(app, zone) == option.dynamic_error_code);
  }

  void Report(int app, int zone) {
    const auto found = m_models.mgr.options.find({app, zone});
    const bool has_option = found != m_models.mgr.options.end();
    const int64_t now = TimeAround(has_option ? found->second.last_report_time : 0,
                                   has_option ? found->second.report_period : 60);
    ExpectSameRecords();
    const bool is_reported = m_input.Below(2) != 0;
    OnBoth([=](auto& side) {
      side.Note({side.mgr.IsShouldReportStatisticNow(app, zone, now)});
      if (is_reported) side.mgr.CalculateAverage(app, zone, now);
    });
  }

  // Every other time after requests to one access, most or all of which have failed.
  void JudgePair(int app, int zone) {
    constexpr int64_t DISTANCES[] = {1, 5, 6, 6, 6, 10, 11, 299, 300, 301, -1, -12, -301, 0};
    const int choice = m_input.Byte();
    const bool is_counting =
        choice % 2 != 0 && m_models.mgr.GetServiceApiStatistic(app, zone) != nullptr;
    if (choice % 2 == 0) *test::wall_seconds += DISTANCES[m_input.Below(14)];
    if (is_counting) *test::wall_seconds += 6;
    OnBoth([=](auto& side) {
      if (is_counting) {
        auto& record = *side.mgr.GetServiceApiStatistic(app, zone);
        auto& access = record.astAccessStatistic[choice / 128].stAccessRunStatus;
        access.dwRequestCountPerMin += 10;
        access.dwTimeoutCountPerMin += choice % 16 < 8 ? 10 : 8;
      }
      side.judge.Update(app, zone, side.mgr);
    });
  }

  void ChangeJudge(int app, int zone) {
    const int value = m_input.Below(2) == 0 ? m_input.Byte() % 128 : m_input.Any<int32_t>();
    const int choice = m_input.Below(4);
    auto& judge = m_library.judge;
    if (choice == 0) judge.SetThreshold(app, zone, value);
    if (choice == 1) judge.SetCheckPeriod(app, zone, value);
    if (choice == 2) judge.SetCheckTimes(app, zone, value % 4);
    if (choice == 3) judge.SetRecheckAvailableInterval(app, zone, value);
    auto& option = m_models.judge.options[{app, zone}];
    if (choice == 0) option.threshold = value < 60 || value > 100 ? 90 : value;
    if (choice == 1) option.check_period = value > 0 ? value : 10;
    if (choice == 2) option.check_times = value % 4 > 0 ? value % 4 : 3;
    if (choice == 3) option.recheck = value > 0 ? value : 60;
  }

  void AskJudge(int app, int zone) {
    const std::string url = Url();
    const int choice = m_input.Below(3);
    OnBoth([&](auto& side) {
      side.Note({side.judge.GetRecheckAvailableInterval(app, zone),
                 side.judge.GetUnavailableTimes(app, zone, url.c_str())});
      if (choice == 0) side.Note({side.judge.IsShouldCheck(app, zone)});
      if (choice == 1) side.Note({side.judge.IsProxyUnavailable(app, zone, url.c_str())});
      if (choice == 2) side.Note({side.judge.ResetJudgeProxyStatus(app, zone, url.c_str())});
    });
  }
};

}  // namespace fuzz

#endif  // KORVAIN_FUZZ_PAIR_STEPS_H_
