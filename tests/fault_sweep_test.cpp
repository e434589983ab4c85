// Lets each call of the platform and each allocation of a whole run fail, one per run: nothing is
// lost, and what failed succeeds when it is tried again, with the result of a run without fault.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "line_protocol/report_packer.h"
#include "service_api/korvain_service_statistic.h"
#include "support/fake_platform.h"

namespace KorvainService {
namespace {

using test::Allocations;
using test::clock_ms;

constexpr int ZONES = 2;
constexpr int ACCESSES = 12;  // per zone, so that the tables of accesses grow
constexpr int APP = 1;
constexpr char LONG_NAME[] = "a name that does not fit into a string object";
constexpr char LOCAL_IP[] = "10.0.0.5";
using Reports = std::array<std::string, ZONES>;

// All that a service API does with the library, in steps for one zone after the other, without an
// allocation of its own. A step says whether it has done all that it is for. One that fails or
// throws may be tried again, and so must come to the same result.
struct WholeService {
  WholeService() {
    clock_ms = 1000000;
    test::wall_seconds = 5000;
  }
  ~WholeService() { test::wall_seconds.reset(); }

  bool AddEntries(int zone) {
    if (mgr.CreateStatisticMap(7, APP, zone) != 0) return false;
    for (int ip = 0; ip < ACCESSES; ++ip) {
      const char url[] = {'u', 'd', 'p', ':', '/', '/', static_cast<char>('a' + ip), '\0'};
      if (mgr.AddAccess(APP, zone, url, ip, 80, "server") != 0) return false;
    }
    return mgr.AddTable(APP, zone, "table") == 0 && Record(zone).iAccessCount == ACCESSES &&
           std::string_view(Record(zone).stProcessInfo.szIP) == LOCAL_IP;
  }

  bool SetNamesAndOptions(int zone) {
    mgr.SetSetIdAndName(7, LONG_NAME);
    mgr.SetAppIdAndName(APP, LONG_NAME);
    mgr.SetZoneIdAndName(zone, LONG_NAME);
    mgr.SetUserDefineText(APP, zone, "text");
    mgr.SetBusinessId(2, zone, 9);  // of a pair without record
    return mgr.GetBusinessId(2, zone) == 9;
  }

  bool TrackRequests(int zone) {
    if (latency.Init(APP, 50, 10, nullptr) != 0) return false;
    const int answered = latency.PushBack(zone, clock_ms, 1, 80);
    const int withdrawn = latency.PushBack(zone, clock_ms, 2, 80);
    latency.PushBack(zone, clock_ms - 50, 3, 80);
    int expired = 0;
    const auto count = [&expired](const LatencyData&) { ++expired; };
    return latency.CalculateDelay(answered, clock_ms + 30, &mgr) == 0 &&
           latency.Withdraw(withdrawn) == 0 &&
           latency.TraverseForDeleteTimeOutNode(&mgr, count) == 0 && expired == 1 &&
           latency.Count() == 0;
  }

  bool SetUpJudge(int zone) {
    judge.SetCheckTimes(APP, zone, 1);
    judge.Update(APP, zone, mgr);  // starts the waiting
    judge.Update(2, zone, mgr);    // a pair without settings
    return judge.GetRecheckAvailableInterval(APP, zone) == 60;
  }

  // What a failing cycle has judged already stands, and so is not judged again.
  bool JudgeAccesses(int zone) {
    *test::wall_seconds += 11;
    for (int slot = 0; slot < ACCESSES; ++slot) {
      ACCESSRUNSTATUS& status = Record(zone).astAccessStatistic[slot].stAccessRunStatus;
      status.dwRequestCountPerMin = 10;
      status.dwProxyReturnSystemErrCountPerMin = slot == 5 ? 10 : 1;
    }
    judge.Update(APP, zone, mgr);
    return judge.GetUnavailableTimes(APP, zone, "udp://f") == 1 &&
           judge.GetUnavailableTimes(APP, zone, "udp://z") == -1 &&
           judge.IsProxyUnavailable(APP, zone, "udp://f") &&
           (zone == 0 || judge.ResetJudgeProxyStatus(APP, zone, "udp://f") == 0);
  }

  bool MakeReport(int zone) {
    ReportSettings settings;
    settings.set_name = mgr.GetSetName(7);
    settings.app_name = mgr.GetAppName(APP);
    settings.zone_name = mgr.GetZoneName(zone);
    settings.access_fields = [](int32_t slot, const AddField& add) { add(LONG_NAME, slot); };
    reports[static_cast<size_t>(zone)] = PackReport(Record(zone), settings);
    return true;
  }

  // The server of the first zone's report is found to be gone.
  bool SendReport(int zone) {
    const char* urls[] = {"udp://127.0.0.1:9", "udp://127.0.0.2:9"};
    channel.SetNoticeUnreachable(true);
    if (zone == 0) channel.AddCollectServerAddress(urls, 2);
    channel.Update();
    const std::string& report = reports[static_cast<size_t>(zone)];
    for (const std::string_view datagram : SplitIntoDatagrams(report, 1400).datagrams) {
      if (channel.Send(datagram.data(), static_cast<int>(datagram.size())) != 0) return false;
    }
    return channel.GetCurrentUrl() != nullptr;
  }

  SERVICEAPISTATISTIC& Record(int zone) { return *mgr.GetServiceApiStatistic(APP, zone); }

  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
  JudgeProxy judge{nullptr};
  UDPClientMgr channel;
  Reports reports;
};

// What fails: a test::Call or one of these.
constexpr size_t NOTHROW_NEW = test::PENDING, THROWING_NEW = NOTHROW_NEW + 1;

class FaultSweepTest : public ::testing::TestWithParam<size_t> {
 protected:
  using Step = bool (WholeService::*)(int zone);

  // Returns how many steps have failed.
  static int DoSteps(WholeService& service, bool is_trying_again) {
    constexpr Step STEPS[] = {&WholeService::AddEntries,    &WholeService::SetNamesAndOptions,
                              &WholeService::TrackRequests, &WholeService::SetUpJudge,
                              &WholeService::JudgeAccesses, &WholeService::MakeReport,
                              &WholeService::SendReport};
    const auto has_succeeded = [&service](Step step, int zone) {
      try {
        return (service.*step)(zone);
      } catch (const std::bad_alloc&) {
        return false;
      }
    };
    int failed = 0;
    for (const Step step : STEPS) {
      for (int zone = 0; zone < ZONES; ++zone) {
        if (has_succeeded(step, zone)) continue;
        ++failed;
        if (!is_trying_again) return failed;
        EXPECT_TRUE(has_succeeded(step, zone)) << "tried again";
      }
    }
    return failed;
  }

  // Lets a call fail, counted from 0, and says whether there was one.
  static bool Run(int nth, bool is_trying_again, Reports& reports) {
    test::FakePlatform platform;
    platform.is_sending_faked = true;
    platform.interfaces = {"127.0.0.1", LOCAL_IP};
    platform.errors[test::PENDING] = {ECONNREFUSED};
    platform.sent.reserve(200);  // the notes of the platform must not allocate during a run
    for (auto* notes : {&platform.flags_set, &platform.recverr_set}) notes->reserve(20);
    WholeService service;
    const bool is_call = GetParam() < NOTHROW_NEW;
    if (is_call) {
      platform.errors[GetParam()].assign(static_cast<size_t>(nth), 0);
      platform.errors[GetParam()].push_back(EINVAL);
    } else {
      const bool is_throwing = GetParam() == THROWING_NEW;
      Allocations::Restart(is_throwing ? -1 : nth, is_throwing ? nth : -1);
    }
    const int steps_failed = DoSteps(service, is_trying_again);
    const bool has_failed = is_call ? platform.errors[GetParam()].empty() : Allocations::has_failed;
    Allocations::Restart();
    EXPECT_LE(steps_failed, has_failed ? 1 : 0);
    EXPECT_EQ(platform.interface_lists_open, 0);
    reports = service.reports;
    return has_failed;
  }

  // Once for each call that the run makes.
  static void Sweep(bool is_trying_again) {
    Reports expected;
    Run(1000, is_trying_again, expected);
    ASSERT_NE(expected[1].find("delay_samples=1i,delay_ms=30i"), std::string::npos);
    int nth = 0;
    for (bool has_failed = true; has_failed; ++nth) {
      const int descriptor = test::NextDescriptor();
      const int64_t outstanding = Allocations::outstanding;
      {
        Reports reports;
        has_failed = Run(nth, is_trying_again, reports);
        EXPECT_TRUE(!is_trying_again || reports == expected) << nth;
      }
      EXPECT_EQ(Allocations::outstanding, outstanding) << nth;
      EXPECT_EQ(test::NextDescriptor(), descriptor) << nth;
    }
    EXPECT_GT(nth, 1) << "the run must have met the fault";
  }
};

TEST_P(FaultSweepTest, LosesNothingAndSucceedsNextTime) {
  for (const bool is_trying_again : {true, false}) Sweep(is_trying_again);
}

INSTANTIATE_TEST_SUITE_P(Platform, FaultSweepTest, ::testing::Range<size_t>(0, THROWING_NEW + 1));

}  // namespace
}  // namespace KorvainService
