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
  for (const int64_t end = before + 3; before < end; before = SystemMilliseconds()) {
    const int64_t now = GetCurrentMilliseconds();
    ASSERT_GE(now, before);
    ASSERT_LE(now, SystemMilliseconds());
  }
}

}  // namespace
}  // namespace KorvainService
