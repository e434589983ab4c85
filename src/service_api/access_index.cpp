#include "service_api/access_index.h"

#include "common/korvain_error_code.h"

namespace KorvainService {

int32_t MapAccessIndex::Insert(int32_t zone_id, int ip, int port, int32_t array_index) {
  return m_map.Insert(StatisticAccessInfo{zone_id, ip, port}, array_index) ? 0 : GEN_ERR_ERR;
}

void MapAccessIndex::Clear(int32_t zone_id) {
  m_map.EraseIf([zone_id](const StatisticAccessInfo& access) { return access.zone_id == zone_id; });
}

}  // namespace KorvainService
