#include <service_api/korvain_service_statistic.h>

int main() {
  return KorvainService::KorvainServiceStatisticMgr().CreateStatisticMap(1, 2, 3);
}
