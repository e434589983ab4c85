#include "service_api/korvain/korvain_service_clock.h"

#include <sys/time.h>

namespace KorvainService {

__attribute__((weak)) int64_t GetCurrentMilliseconds() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

}  // namespace KorvainService
