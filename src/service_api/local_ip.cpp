#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "service_api/detail/text.h"
#include "service_api/statistic_mgr.h"

namespace KorvainService {

namespace {

constexpr char LOOPBACK_ADDRESS[] = "127.0.0.1";

// Size of a socket address of the interface's family, or 0 when it is no IP address.
socklen_t AddressLength(const ifaddrs& interface) {
  if (interface.ifa_addr == nullptr) return 0;
  switch (interface.ifa_addr->sa_family) {
    case AF_INET:
      return sizeof(sockaddr_in);
    case AF_INET6:
      return sizeof(sockaddr_in6);
    default:
      return 0;
  }
}

bool ToNumericText(const ifaddrs& interface, char (&text)[NI_MAXHOST]) {
  const socklen_t length = AddressLength(interface);
  return length != 0 && getnameinfo(interface.ifa_addr, length, text, sizeof(text), nullptr, 0,
                                    NI_NUMERICHOST) == 0;
}

// Writes the first address that is not the IPv4 loopback address; where there is none, nothing.
void CopyForeignAddress(const ifaddrs* interfaces, char* ip, size_t size) {
  for (const ifaddrs* interface = interfaces; interface != nullptr;
       interface = interface->ifa_next) {
    char text[NI_MAXHOST];
    if (!ToNumericText(*interface, text) || strcmp(text, LOOPBACK_ADDRESS) == 0) continue;
    detail::CopyText(ip, size, text);
    return;
  }
}

}  // namespace

void KorvainServiceStatisticMgr::GetLocalIP(char* ip, int len) {
  const auto size = static_cast<size_t>(len);
  detail::CopyText(ip, size, LOOPBACK_ADDRESS);

  ifaddrs* interfaces = nullptr;
  if (getifaddrs(&interfaces) != 0) return;
  CopyForeignAddress(interfaces, ip, size);
  freeifaddrs(interfaces);
}

}  // namespace KorvainService
