// Addresses in log lines. Not installed.
#ifndef KORVAIN_DETAIL_DOTTED_H_
#define KORVAIN_DETAIL_DOTTED_H_

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>

namespace KorvainService::detail {

// The address in dotted form, in a buffer that the next call overwrites.
inline const char* Dotted(int32_t ip) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(ip);
  return inet_ntoa(address);
}

}  // namespace KorvainService::detail

#endif  // KORVAIN_DETAIL_DOTTED_H_
