#include "fake_clocks.h"

#include <sys/time.h>

#include <ctime>

#include "service_api/korvain_service_statistic.h"

namespace bench {

int64_t clock_ms = 0;
std::optional<int64_t> wall_seconds;

}  // namespace bench

namespace KorvainService {

int64_t GetCurrentMilliseconds() {
  return bench::clock_ms;
}

}  // namespace KorvainService

extern "C" int gettimeofday(timeval* __restrict now, void* __restrict /*zone*/) noexcept {
  timespec precise{};
  clock_gettime(CLOCK_REALTIME, &precise);
  *now = timeval{bench::wall_seconds.value_or(precise.tv_sec), precise.tv_nsec / 1000};
  return 0;
}
