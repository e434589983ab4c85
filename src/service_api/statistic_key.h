// The key under which everything kept per application and zone is found.
#ifndef KORVAIN_STATISTIC_KEY_H_
#define KORVAIN_STATISTIC_KEY_H_

#include <cstdint>

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// The zone id's 32 bits in the high half, the application id's 32 bits in the low half. Neither id
// sign-extends into the other: GetKey(-1, 0) is 4294967295, GetKey(0, -1) is -4294967296.
inline int64_t GetKey(int32_t app_id, int32_t zone_id) {
  return static_cast<int64_t>(static_cast<uint64_t>(static_cast<uint32_t>(zone_id)) << 32 |
                              static_cast<uint32_t>(app_id));
}

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_STATISTIC_KEY_H_
