#include "service_api/korvain/korvain_service_clock.h"

int64_t KorvainService::GetCurrentMilliseconds() {
  return 1000;
}
