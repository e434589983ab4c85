#include "demo/host/scaled_clock.h"

#include <chrono>
#include <cstdint>

#include "service_api/korvain/korvain_service_clock.h"

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

struct ScaledClock {
  double speed = 1;
  std::chrono::system_clock::time_point wall_start = std::chrono::system_clock::now();
  std::chrono::steady_clock::time_point steady_start = std::chrono::steady_clock::now();
};

ScaledClock& TheClock() {
  static ScaledClock clock;
  return clock;
}

}  // namespace

namespace demo {

void StartClock(double speed, double ago_s) {
  TheClock() = ScaledClock{};
  TheClock().speed = speed;
  TheClock().wall_start -= std::chrono::milliseconds(static_cast<int64_t>(ago_s * 1000));
}

}  // namespace demo

// Replaces the library's own clock, which is a weak symbol.
int64_t KorvainService::GetCurrentMilliseconds() {
  const ScaledClock& clock = TheClock();
  const Milliseconds elapsed = std::chrono::steady_clock::now() - clock.steady_start;
  const auto start =
      std::chrono::duration_cast<std::chrono::milliseconds>(clock.wall_start.time_since_epoch());
  return start.count() + static_cast<int64_t>(elapsed.count() * clock.speed);
}
