// The index of accesses: which slot of a record's access array an access (zone, address, port) has.
#ifndef KORVAIN_ACCESS_INDEX_H_
#define KORVAIN_ACCESS_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "service_api/detail/probe_table.h"
#include "service_api/korvain/korvain_service_constant.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// Identifies an access. `ip` is the 32-bit value of an in_addr (network byte order), `port` is in
// the caller's own form; the same forms must be used wherever the access is named.
struct StatisticAccessInfo {
  int32_t zone_id;
  int32_t ip;
  int32_t port;
};

inline bool operator==(const StatisticAccessInfo& left, const StatisticAccessInfo& right) {
  return left.zone_id == right.zone_id && left.ip == right.ip && left.port == right.port;
}

// The mixing step of Bob Jenkins' lookup2 hash: every bit of the three words affects the result.
inline uint32_t mix(uint32_t a, uint32_t b, uint32_t c) {
  a = (a - b - c) ^ (c >> 13);
  b = (b - c - a) ^ (a << 8);
  c = (c - a - b) ^ (b >> 13);
  a = (a - b - c) ^ (c >> 12);
  b = (b - c - a) ^ (a << 16);
  c = (c - a - b) ^ (b >> 5);
  a = (a - b - c) ^ (c >> 3);
  b = (b - c - a) ^ (a << 10);
  c = (c - a - b) ^ (b >> 15);
  return c;
}

struct StatisticAccessInfoHash {
  size_t operator()(const StatisticAccessInfo& access) const {
    return mix(static_cast<uint32_t>(access.zone_id), static_cast<uint32_t>(access.ip),
               static_cast<uint32_t>(access.port));
  }
};

using AccessInfoHashMap =
    detail::ProbeTable<StatisticAccessInfo, int32_t, StatisticAccessInfoHash, INT32_MIN>;

// Maps accesses to array indexes. The application is not part of the key: one index serves all
// applications of a statistics manager. Accesses come from whoever runs the service and are
// trusted: thousands that were made to collide in their hashes would make each other slow to find.
// Not thread-safe; neither copied nor assigned.
class MapAccessIndex {
 public:
  MapAccessIndex() = default;
  ~MapAccessIndex() = default;

  // Adds an entry. Returns 0, or GEN_ERR_ERR when the access is present, whose index is then kept,
  // or when `array_index` is INT32_MIN.
  // Throws std::bad_alloc, changing nothing, when there is no memory for the entry.
  int32_t Insert(int32_t zone_id, int ip, int port, int32_t array_index);

  // The index stored for the access, or INVALID_ARRAY_INDEX.
  int32_t Find(int32_t zone_id, int ip, int port) const {
    const StatisticAccessInfo access{zone_id, ip, port};
    return FindHashed(access, StatisticAccessInfoHash()(access));
  }

  // Removes every entry of the zone. Costs what its own entries cost, whatever else is stored, and
  // keeps their memory for the next ones.
  void Clear(int32_t zone_id);

 private:
  friend class KorvainServiceStatisticMgr;

  // For a caller that knows the hash of the access already.
  int32_t FindHashed(const StatisticAccessInfo& access, size_t hash) const {
    const int32_t array_index = m_map.FindHashed(access, hash);
    return array_index == INT32_MIN ? INVALID_ARRAY_INDEX : array_index;
  }

  AccessInfoHashMap m_map;
  std::unordered_map<int32_t, std::vector<StatisticAccessInfo>> m_accesses_by_zone;
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_ACCESS_INDEX_H_
