#include "demo/host/scaled_clock.h"

#include <chrono>
#include <cstdint>

#include "service_api/korvain/korvain_service_clock.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

int clock_speed = 1;
steady_clock::time_point real_start;
milliseconds scaled_start;

}  // namespace

void demo::StartClock(int speed, int ago_s) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  clock_speed = speed;
  real_start = steady_clock::now();
  scaled_start = std::chrono::duration_cast<milliseconds>(now) - std::chrono::seconds(ago_s);
}

// Replaces the library's own clock, which is a weak symbol.
int64_t KorvainService::GetCurrentMilliseconds() {
  const auto elapsed = (steady_clock::now() - real_start) * clock_speed;
  return (scaled_start + std::chrono::duration_cast<milliseconds>(elapsed)).count();
}
