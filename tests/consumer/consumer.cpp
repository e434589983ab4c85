#include <line_protocol/report_packer.h>
#include <service_api/korvain_service_statistic.h>

#include <string>

int main() {
  using namespace KorvainService;
  KorvainServiceStatisticMgr statistic;
  if (statistic.CreateStatisticMap(1, 2, 3) != 0) return 1;
  const std::string text = PackReport(*statistic.GetServiceApiStatistic(2, 3), {});
  return SplitIntoDatagrams(text, 1400).datagrams.size() == 1 ? 0 : 2;
}
