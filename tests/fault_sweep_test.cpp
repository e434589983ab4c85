// Lets each call of the platform and each allocation of a whole run fail, one per run: nothing is
// lost, and what failed succeeds when it is tried again, with the result of a run without fault.
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <deque>
#include <new>
#include <ostream>
#include <string>

#include "support/fake_platform.h"
#include "support/whole_service.h"

namespace KorvainService::test {
namespace {

using ::test::Allocations;
using Reports = std::array<std::string, WholeService::ZONES>;

struct Fault {
  const char* name;
  std::deque<int> FakePlatform::*script;  // null for an allocation
  int error;                              // of an allocation: 0 nothrow, 1 throwing
};

std::ostream& operator<<(std::ostream& out, const Fault& fault) {
  return out << fault.name;
}

constexpr Fault FAULTS[] = {
    {"socket", &FakePlatform::socket_errors, EMFILE},
    {"fcntl", &FakePlatform::setfl_errors, EINVAL},
    {"sendto", &FakePlatform::sendto_errors, EAGAIN},
    {"setsockopt", &FakePlatform::setsockopt_errors, EINVAL},
    {"getsockopt", &FakePlatform::getsockopt_errors, EINVAL},
    {"getifaddrs", &FakePlatform::getifaddrs_errors, ENOMEM},
    {"getnameinfo", &FakePlatform::getnameinfo_errors, EAI_MEMORY},
    {"nothrow_new", nullptr, 0},
    {"throwing_new", nullptr, 1},
};

class FaultSweepTest : public ::testing::TestWithParam<Fault> {
 protected:
  enum class AfterFault { TRYING_AGAIN, GIVING_UP };

  static bool Try(WholeService& service, WholeService::Step step) {
    try {
      return (service.*step)();
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  static void Arm(const Fault& fault, int nth, FakePlatform& platform) {
    platform.is_sending_faked = true;
    platform.interfaces = {"127.0.0.1", WholeService::LOCAL_IP};
    platform.pending_errors = {0, ECONNREFUSED};  // to the Update of two steps
    platform.sent.reserve(200);  // the notes of the platform must not allocate during a run
    for (auto* notes : {&platform.flags_set, &platform.recverr_set}) notes->reserve(20);
    platform.seeds.reserve(5);
    if (fault.script != nullptr) {
      (platform.*fault.script).assign(static_cast<size_t>(nth - 1), 0);
      (platform.*fault.script).push_back(fault.error);
    } else {
      Allocations::Restart(fault.error == 0 ? nth - 1 : -1, fault.error == 1 ? nth - 1 : -1);
    }
  }

  // Lets the nth call fail, and says whether there was one.
  static bool Run(const Fault& fault, int nth, AfterFault after, Logger* logger, Reports& reports) {
    FakePlatform platform;
    int steps_failed = 0;
    bool has_failed = false;
    {
      WholeService service(platform, logger);
      Arm(fault, nth, platform);
      for (const WholeService::Step step : WholeService::STEPS) {
        if (Try(service, step)) continue;
        ++steps_failed;
        if (after == AfterFault::GIVING_UP) break;
        EXPECT_TRUE(Try(service, step)) << "tried again";
      }
      has_failed =
          fault.script != nullptr ? (platform.*fault.script).empty() : Allocations::HasFailed();
      Allocations::Restart();
      reports = service.reports;
    }
    EXPECT_LE(steps_failed, has_failed ? 1 : 0);
    EXPECT_EQ(platform.interface_lists_open, 0);
    return has_failed;
  }
};

TEST_P(FaultSweepTest, LosesNothingAndSucceedsNextTime) {
  const Fault& fault = GetParam();
  FormattingLogger formatting;
  for (Logger* const logger : {static_cast<Logger*>(&formatting), static_cast<Logger*>(nullptr)}) {
    for (const AfterFault after : {AfterFault::TRYING_AGAIN, AfterFault::GIVING_UP}) {
      Reports expected;
      Run(fault, 1000, after, logger, expected);
      ASSERT_NE(expected[1].find("delay_samples=1i,delay_ms=30i"), std::string::npos);
      int nth = 1;
      for (bool has_failed = true; has_failed; ++nth) {
        SCOPED_TRACE(nth);
        const int descriptors = ::test::CountOpenDescriptors();
        const int64_t outstanding = Allocations::Outstanding();
        {
          Reports reports;
          has_failed = Run(fault, nth, after, logger, reports);
          if (after == AfterFault::TRYING_AGAIN) {
            EXPECT_EQ(reports, expected);
          }
        }
        EXPECT_EQ(Allocations::Outstanding(), outstanding);
        EXPECT_EQ(::test::CountOpenDescriptors(), descriptors);
      }
      EXPECT_GT(nth, 2) << "the run must have met the fault";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Platform, FaultSweepTest, ::testing::ValuesIn(FAULTS),
                         [](const auto& fault) { return std::string(fault.param.name); });

}  // namespace
}  // namespace KorvainService::test
