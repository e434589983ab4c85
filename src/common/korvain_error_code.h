// Result codes shared by every operation of the service API. Zero is success, failures are
// negative.
#ifndef KORVAIN_COMMON_ERROR_CODE_H_
#define KORVAIN_COMMON_ERROR_CODE_H_

#include <cstdint>

namespace KorvainService {

inline constexpr int32_t GEN_ERR_ERR = -256;                 // a general failure
inline constexpr int32_t API_ERR_PARAMETER_INVALID = -1811;  // an argument is unacceptable
inline constexpr int32_t API_ERR_ALLOCATE_MEMORY = -9747;    // no memory, or no free pool slot

}  // namespace KorvainService

#endif  // KORVAIN_COMMON_ERROR_CODE_H_
