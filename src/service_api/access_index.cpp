#include "service_api/access_index.h"

#include "common/korvain_error_code.h"

namespace KorvainService {

int32_t MapAccessIndex::Insert(int32_t zone_id, int ip, int port, int32_t array_index) {
  const StatisticAccessInfo access{zone_id, ip, port};
  if (array_index == INT32_MIN || m_map.Find(access) != INT32_MIN) return GEN_ERR_ERR;
  m_map.MakeRoom();  // first, so that an entry stands in both places or in none
  m_accesses_by_zone[zone_id].push_back(access);
  m_map.Insert(access, array_index);
  return 0;
}

void MapAccessIndex::Clear(int32_t zone_id) {
  const auto zone = m_accesses_by_zone.find(zone_id);
  if (zone == m_accesses_by_zone.end()) return;
  for (const StatisticAccessInfo& access : zone->second) m_map.Erase(access);
  zone->second.clear();
}

}  // namespace KorvainService
