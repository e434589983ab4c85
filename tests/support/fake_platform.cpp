#include "support/fake_platform.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include "service_api/korvain/korvain_service_clock.h"

namespace test {

namespace {

FakePlatform* const& active = FakePlatform::active;

// The C library's own function behind the one of the same name here.
template <class Function>
Function* Real(Function* /*here*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The error that this call is to fail with, also in errno; 0 when it is to be passed on.
int NextError(Call call) {
  if (active == nullptr || active->errors[call].empty()) return 0;
  errno = active->errors[call].front();
  active->errors[call].pop_front();
  return errno;
}

// An interface list as getifaddrs would give it, in one block.
ifaddrs* MakeInterfaceList(const std::vector<std::string>& texts) {
  struct Entry {
    ifaddrs head;
    union {
      sockaddr any;
      sockaddr_in v4;
      sockaddr_in6 v6;
    } address;
  };
  if (texts.empty()) return nullptr;
  auto* const entries = static_cast<Entry*>(calloc(texts.size(), sizeof(Entry)));
  for (size_t i = 0; i < texts.size(); ++i) {
    auto& [head, address] = entries[i];
    if (i > 0) entries[i - 1].head.ifa_next = &head;
    if (texts[i].empty()) continue;
    head.ifa_addr = &address.any;
    const bool is_v6 = inet_pton(AF_INET6, texts[i].c_str(), &address.v6.sin6_addr) == 1;
    if (!is_v6) inet_pton(AF_INET, texts[i].c_str(), &address.v4.sin_addr);
    address.any.sa_family = is_v6 ? AF_INET6 : texts[i] == "packet" ? AF_PACKET : AF_INET;
  }
  return &entries->head;
}

}  // namespace

int NextDescriptor() {
  const int descriptor = dup(STDERR_FILENO);
  close(descriptor);
  return descriptor;
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  return NextError(SOCKET) != 0 ? -1 : Real(socket, "socket")(domain, type, protocol);
}

int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  if (active != nullptr && command == F_SETFL) {
    active->flags_set.push_back(static_cast<int>(argument));
    if (NextError(SETFL) != 0) return -1;
  }
  return Real(fcntl, "fcntl")(fd, command, argument);
}

ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
               socklen_t to_length) {
  const auto* const address = reinterpret_cast<const sockaddr_in*>(to);
  if (active != nullptr) active->sent.push_back({fd, flags, length, *address});
  if (NextError(SENDTO) != 0) return -1;
  if (active != nullptr && active->is_sending_faked) return 0;
  return Real(sendto, "sendto")(fd, data, length, flags, to, to_length);
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t length) noexcept {
  if (active != nullptr) active->recverr_set.push_back(*static_cast<const int*>(value));
  if (NextError(SETSOCKOPT) != 0) return -1;
  return Real(setsockopt, "setsockopt")(fd, level, option, value, length);
}

int getsockopt(int fd, int level, int option, void* __restrict value,
               socklen_t* __restrict length) noexcept {
  if (NextError(GETSOCKOPT) != 0) return -1;
  const int result = Real(getsockopt, "getsockopt")(fd, level, option, value, length);
  if (const int error = NextError(PENDING)) *static_cast<int*>(value) = error;
  return result;
}

int getifaddrs(ifaddrs** list) noexcept {
  if (NextError(GETIFADDRS) != 0) return -1;
  if (active == nullptr || !active->interfaces) return Real(getifaddrs, "getifaddrs")(list);
  *list = MakeInterfaceList(*active->interfaces);
  ++active->interface_lists_open;
  return 0;
}

void freeifaddrs(ifaddrs* list) noexcept {
  if (active == nullptr || !active->interfaces) return Real(freeifaddrs, "freeifaddrs")(list);
  --active->interface_lists_open;
  free(list);
}

int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t host_length,
                char* service, socklen_t service_length, int flags) {
  if (const int error = NextError(GETNAMEINFO)) return error;
  if (active != nullptr && active->interfaces && address->sa_family == AF_INET &&
      (reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr == INADDR_ANY ||
       length != sizeof(sockaddr_in))) {
    return EAI_FAIL;
  }
  return Real(getnameinfo, "getnameinfo")(address, length, host, host_length, service,
                                          service_length, flags);
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) noexcept {
  if (!wall_seconds) return Real(gettimeofday, "gettimeofday")(now, zone);
  ++wall_reads;
  *now = timeval{*wall_seconds, *wall_seconds % 2 == 0 ? 999999 : 0};
  return 0;
}

void srand(unsigned int seed) noexcept {
  if (active != nullptr) active->seeds.push_back(seed);
  Real(srand, "srand")(seed);
}

int rand() noexcept {
  return active != nullptr && active->rand_value ? *active->rand_value : Real(rand, "rand")();
}

}  // extern "C"

}  // namespace test

int64_t KorvainService::GetCurrentMilliseconds() {
  ++test::clock_reads;
  return test::clock_ms;
}
