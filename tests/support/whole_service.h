// All that a service API does with the library, in steps, without an allocation of its own.
#ifndef KORVAIN_TESTS_WHOLE_SERVICE_H_
#define KORVAIN_TESTS_WHOLE_SERVICE_H_

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "common/korvain_error_code.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain_service_statistic.h"
#include "support/fake_platform.h"

namespace KorvainService::test {

using ::test::FakePlatform;

// Formats each line and keeps none: an allocation of its own could be the one that fails.
class FormattingLogger : public Logger {
 public:
  void Log(LogLevel, int, int, const char*, int, const char*, const char* fmt, ...) override
      __attribute__((format(printf, 8, 9))) {
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
  }
  bool IsPriorityEnabled(LogLevel) override { return true; }
  void* GetLoggerHandle() override { return nullptr; }
};

// A step that fails or throws may be tried again, and so must come to the same result.
class WholeService {
 public:
  static constexpr int ZONES = 2;
  static constexpr char LOCAL_IP[] = "10.0.0.5";

  WholeService(FakePlatform& platform, Logger* logger)
      : m_platform(platform), m_logger(logger), m_judge(logger) {
    ::test::clock_ms = 1000000;
    ::test::wall_seconds = 5000;
    m_mgr.Init(logger);
    m_channel.Init(logger);
  }
  ~WholeService() { ::test::wall_seconds.reset(); }

  using Step = bool (WholeService::*)();  // whether it has done all that it is for
  static constexpr size_t STEP_COUNT = 11;
  static const std::array<Step, STEP_COUNT> STEPS;

  std::array<std::string, ZONES> reports;

 private:
  static constexpr int APP = 1;
  static constexpr int ACCESSES = 12;  // per zone, so that the tables of accesses grow
  static constexpr char LONG_NAME[] = "a name that does not fit into a string object";

  bool CreateRecords() {
    for (int zone = 0; zone < ZONES; ++zone) {
      if (m_mgr.CreateStatisticMap(7, APP, zone) != 0) return false;
      if (std::string_view(Record(zone).stProcessInfo.szIP) != LOCAL_IP) return false;
    }
    return true;
  }

  bool AddEntries() {
    for (int zone = 0; zone < ZONES; ++zone) {
      for (int ip = 0; ip < ACCESSES; ++ip) {
        char url[32];
        snprintf(url, sizeof(url), "udp://10.1.%d.%d:80", zone, ip);
        if (m_mgr.AddAccess(APP, zone, url, ip, 80, "server") != 0) return false;
      }
      if (Record(zone).iAccessCount != ACCESSES) return false;
      if (m_mgr.AddTable(APP, zone, "table") != 0) return false;
    }
    return true;
  }

  bool SetNamesAndOptions() {
    m_mgr.SetSetIdAndName(7, LONG_NAME);
    m_mgr.SetAppIdAndName(APP, LONG_NAME);
    for (int zone = 0; zone < ZONES; ++zone) {
      m_mgr.SetZoneIdAndName(zone, LONG_NAME);
      m_mgr.SetUserDefineText(APP, zone, "text");
      m_mgr.SetBusinessId(2, zone, 9);  // of a pair without record
      if (m_mgr.GetBusinessId(2, zone) != 9) return false;
    }
    return true;
  }

  bool StartTracking() {
    if (m_latency.Init(APP, 50, 10, m_logger) == 0) return m_latency.Count() == 0;
    EXPECT_EQ(m_latency.PushBack(0, ::test::clock_ms, 0, 80), API_ERR_ALLOCATE_MEMORY);
    EXPECT_EQ(m_latency.TraverseForDeleteTimeOutNode(&m_mgr), 0);
    return false;
  }

  bool TrackRequests() {
    for (int zone = 0; zone < ZONES; ++zone) {
      const int answered = m_latency.PushBack(zone, ::test::clock_ms, 1, 80);
      const int withdrawn = m_latency.PushBack(zone, ::test::clock_ms, 2, 80);
      m_latency.PushBack(zone, ::test::clock_ms - 50, 3, 80);
      if (m_latency.CalculateDelay(answered, ::test::clock_ms + 30, &m_mgr) != 0) return false;
      if (m_latency.Withdraw(withdrawn) != 0) return false;
    }
    const auto count = [this](const LatencyData&) { ++m_expired; };
    return m_latency.TraverseForDeleteTimeOutNode(&m_mgr, count) == 0 && m_expired == ZONES &&
           m_latency.Count() == 0;
  }

  bool SetUpJudge() {
    for (int zone = 0; zone < ZONES; ++zone) {
      m_judge.SetCheckTimes(APP, zone, 1);
      m_judge.Update(APP, zone, m_mgr);  // starts the waiting
      m_judge.Update(2, zone, m_mgr);    // a pair without settings
    }
    return m_judge.GetRecheckAvailableInterval(APP, 0) == 60;
  }

  // What a failing cycle has judged already stands, and so is not judged again.
  bool JudgeAccesses() {
    *::test::wall_seconds += 11;
    for (int zone = 0; zone < ZONES; ++zone) {
      for (int slot = 0; slot < ACCESSES; ++slot) {
        ACCESSRUNSTATUS& status = Record(zone).astAccessStatistic[slot].stAccessRunStatus;
        status.dwRequestCountPerMin = 10;
        status.dwProxyReturnSystemErrCountPerMin = slot == 5 ? 10 : 1;
      }
      m_judge.Update(APP, zone, m_mgr);
      char url[32];
      snprintf(url, sizeof(url), "udp://10.1.%d.5:80", zone);
      if (m_judge.GetUnavailableTimes(APP, zone, url) != 1) return false;
      if (m_judge.GetUnavailableTimes(APP, zone, "udp://10.1.9.9:80") != -1) return false;
    }
    return m_judge.IsProxyUnavailable(APP, 0, "udp://10.1.0.5:80") &&
           m_judge.ResetJudgeProxyStatus(APP, 1, "udp://10.1.1.5:80") == 0;
  }

  bool OpenChannel() {
    const char* urls[] = {"udp://127.0.0.1:9", "udp://127.0.0.2:9"};
    m_channel.SetNoticeUnreachable(true);
    m_channel.AddCollectServerAddress(urls, 2);
    return m_channel.GetCurrentUrl() != nullptr;
  }

  bool PackReports() {
    for (int zone = 0; zone < ZONES; ++zone) {
      if (m_mgr.IsShouldReportStatisticNow(APP, zone, 1060)) {
        m_mgr.CalculateAverage(APP, zone, 1060);
        m_mgr.SetLastReportTime(APP, zone, 1060);
      }
      ReportSettings settings;
      settings.set_name = m_mgr.GetSetName(7);
      settings.app_name = m_mgr.GetAppName(APP);
      settings.zone_name = m_mgr.GetZoneName(zone);
      settings.access_fields = [](int32_t slot, const AddField& add) {
        add("a name of a field that does not fit", slot);
      };
      reports[static_cast<size_t>(zone)] = PackReport(Record(zone), settings);
    }
    return true;
  }

  bool SendReports() {
    m_channel.Update();
    for (const std::string& report : reports) {
      for (const std::string_view datagram : SplitIntoDatagrams(report, 1400).datagrams) {
        const int length = static_cast<int>(datagram.size());
        if (m_channel.Send(datagram.data(), length) != 0) return false;
      }
    }
    return true;
  }

  bool LeaveUnreachableServer() {
    m_channel.Update();
    if (!m_platform.pending_errors.empty() || m_channel.GetCurrentUrl() == nullptr) return false;
    return m_channel.Send("more", 4) == 0 && m_platform.sent.back().fd >= 0;
  }

  SERVICEAPISTATISTIC& Record(int zone) { return *m_mgr.GetServiceApiStatistic(APP, zone); }

  FakePlatform& m_platform;
  Logger* m_logger;
  KorvainServiceStatisticMgr m_mgr;
  LatencyDataMgr m_latency;
  JudgeProxy m_judge;
  UDPClientMgr m_channel;
  int m_expired = 0;
};

inline const std::array<WholeService::Step, WholeService::STEP_COUNT> WholeService::STEPS = {
    &WholeService::CreateRecords,
    &WholeService::AddEntries,
    &WholeService::SetNamesAndOptions,
    &WholeService::StartTracking,
    &WholeService::TrackRequests,
    &WholeService::SetUpJudge,
    &WholeService::JudgeAccesses,
    &WholeService::OpenChannel,
    &WholeService::PackReports,
    &WholeService::SendReports,
    &WholeService::LeaveUnreachableServer,
};

}  // namespace KorvainService::test

#endif  // KORVAIN_TESTS_WHOLE_SERVICE_H_
