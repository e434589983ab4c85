// Limits and defaults that more than one part of the module shares.
#ifndef KORVAIN_SERVICE_CONSTANT_H_
#define KORVAIN_SERVICE_CONSTANT_H_

#include <cstdint>

namespace KorvainService {

// Size of every URL buffer, terminating NUL included.
inline constexpr int32_t MAX_URL_LENGTH_FOR_STATISTIC = 128;

// Most collect servers that are kept.
inline constexpr int STATISTIC_MAX_COLLECT_COUNT = 32;

// Most tables and most accesses that one report record holds.
inline constexpr int32_t STATISTIC_MAX_TABLE_COUNT = 256;
inline constexpr int32_t STATISTIC_MAX_ACCESS_COUNT = 256;

// Answer for an access that is not in the index.
inline constexpr int32_t INVALID_ARRAY_INDEX = -1;

// Shortest and default time between two reports, in seconds.
inline constexpr int32_t STATISTIC_DEFAULT_REPORT_PERIOD = 60;

}  // namespace KorvainService

#endif  // KORVAIN_SERVICE_CONSTANT_H_
