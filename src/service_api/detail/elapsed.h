// The difference of two times. Not installed.
#ifndef KORVAIN_DETAIL_ELAPSED_H_
#define KORVAIN_DETAIL_ELAPSED_H_

#include <cstdint>

namespace KorvainService::detail {

// The time from `from` to `to`: exact, however far apart they are, when `to` is not the earlier
// one. When it is, the result has wrapped: huge, and as a signed number negative, for times less
// than 2^63 apart.
inline uint64_t Elapsed(int64_t from, int64_t to) {
  return static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
}

}  // namespace KorvainService::detail

#endif  // KORVAIN_DETAIL_ELAPSED_H_
