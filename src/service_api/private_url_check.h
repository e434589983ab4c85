// Strict validation of collect-server URLs. Not installed.
#ifndef KORVAIN_PRIVATE_URL_CHECK_H_
#define KORVAIN_PRIVATE_URL_CHECK_H_

#include "service_api/korvain/korvain_service_log.h"

namespace KorvainService {

// Whether `url` is "udp://", a dotted IPv4 address, ':' and a port, where a run of separators
// counts as one. Says at DEBUG what is wrong,
// except for a null URL and one with 128 characters or more behind the prefix.
bool CheckURL(const char* url, Logger* logger);

}  // namespace KorvainService

#endif  // KORVAIN_PRIVATE_URL_CHECK_H_
