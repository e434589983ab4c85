// The clock of a service API that does not bring its own. A program of its own, since the other
// tests replace it.
#include <gtest/gtest.h>

#include <chrono>

#include "service_api/korvain/korvain_service_clock.h"

namespace KorvainService {
namespace {

int64_t SystemMilliseconds() {
  return std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

TEST(DefaultClock, IsTheWallClockInMilliseconds) {
  int64_t before = SystemMilliseconds();
  while (before % 1000 == 0) before = SystemMilliseconds();  // a fraction is to be seen
  const int64_t now = GetCurrentMilliseconds();
  EXPECT_GE(now, before);
  EXPECT_LE(now, SystemMilliseconds());
}

}  // namespace
}  // namespace KorvainService
