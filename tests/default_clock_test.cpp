// The clock of a service API that does not bring its own. A program of its own, since the other
// tests replace it.
#include <gtest/gtest.h>

#include <chrono>

#include "service_api/korvain_service_statistic.h"

namespace KorvainService {
namespace {

int64_t SystemMilliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

TEST(DefaultClock, IsTheWallClockInMilliseconds) {
  bool is_fraction_seen = false;
  for (int i = 0; i < 2000000 && !(i >= 1000 && is_fraction_seen); ++i) {
    const int64_t before = SystemMilliseconds();
    const int64_t now = GetCurrentMilliseconds();
    ASSERT_GE(now, before);
    ASSERT_LE(now, SystemMilliseconds());
    is_fraction_seen = is_fraction_seen || now % 1000 != 0;
  }
  EXPECT_TRUE(is_fraction_seen);
}

TEST(DefaultClock, TheReportScheduleStartsNow) {
  KorvainServiceStatisticMgr mgr;
  const int64_t before = SystemMilliseconds() / 1000;
  mgr.SetReportPeriod(1, 2, 60);
  const int64_t after = SystemMilliseconds() / 1000;
  EXPECT_FALSE(mgr.IsShouldReportStatisticNow(1, 2, before + 59));
  EXPECT_TRUE(mgr.IsShouldReportStatisticNow(1, 2, after + 60));
}

}  // namespace
}  // namespace KorvainService
