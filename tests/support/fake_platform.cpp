#include "support/fake_platform.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "service_api/korvain/korvain_service_clock.h"

namespace test {

namespace {

FakePlatform* active = nullptr;

// The C library's own function.
template <class Function>
Function* Real(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int Take(std::deque<int>& script) {
  if (script.empty()) return 0;
  const int next = script.front();
  script.pop_front();
  return next;
}

}  // namespace

int64_t clock_ms = 0;
int64_t clock_reads = 0;
std::optional<int64_t> wall_seconds;
int wall_reads = 0;

FakePlatform::FakePlatform() {
  active = this;
}
FakePlatform::~FakePlatform() {
  active = nullptr;
}

int CountOpenDescriptors() {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}

// An interface list as getifaddrs would give it; the addresses live behind their entries.
ifaddrs* MakeInterfaceList(const std::vector<std::string>& texts) {
  struct Entry {
    ifaddrs head;
    sockaddr_storage address;
  };
  ifaddrs* first = nullptr;
  ifaddrs** link = &first;
  for (const std::string& text : texts) {
    auto* entry = static_cast<Entry*>(calloc(1, sizeof(Entry)));
    auto* v4 = reinterpret_cast<sockaddr_in*>(&entry->address);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&entry->address);
    entry->head.ifa_addr = text.empty() ? nullptr : reinterpret_cast<sockaddr*>(v4);
    if (text == "packet") {
      v4->sin_family = AF_PACKET;
    } else if (inet_pton(AF_INET, text.c_str(), &v4->sin_addr) == 1 || text == "unnameable") {
      v4->sin_family = AF_INET;
    } else {
      v6->sin6_family = AF_INET6;
      inet_pton(AF_INET6, text.c_str(), &v6->sin6_addr);
    }
    *link = &entry->head;
    link = &entry->head.ifa_next;
  }
  return first;
}

}  // namespace test

namespace KorvainService {

int64_t GetCurrentMilliseconds() {
  ++test::clock_reads;
  return test::clock_ms;
}

}  // namespace KorvainService

using test::active;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (active != nullptr) {
    if (const int error = test::Take(active->socket_errors)) {
      errno = error;
      return -1;
    }
    ++active->sockets_opened;
  }
  return test::Real<int(int, int, int)>(nullptr, "socket")(domain, type, protocol);
}

int fcntl(int fd, int command, ...) {
  if (active == nullptr || (command != F_GETFL && command != F_SETFL)) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return test::Real<int(int, int, ...)>(nullptr, "fcntl")(fd, command, argument);
  }
  int flags = 0;
  if (command == F_GETFL) {
    if (active->getfl_result) return *active->getfl_result;
  } else {
    va_list arguments;
    va_start(arguments, command);
    flags = va_arg(arguments, int);
    va_end(arguments);
    active->flags_set.push_back(flags);
    if (const int error = test::Take(active->setfl_errors)) {
      errno = error;
      return -1;
    }
    if (active->getfl_result) return 0;
  }
  return test::Real<int(int, int, ...)>(nullptr, "fcntl")(fd, command, flags);
}

ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
               socklen_t to_length) {
  if (active != nullptr) {
    sockaddr_in address{};
    memcpy(&address, to, sizeof(address));
    active->sent.push_back({fd, flags, length, address});
    if (const int error = test::Take(active->sendto_errors)) {
      errno = error;
      return -1;
    }
    if (active->is_sending_faked) {
      return active->sendto_result.value_or(static_cast<ssize_t>(length));
    }
  }
  return test::Real<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)>(
      nullptr, "sendto")(fd, data, length, flags, to, to_length);
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t length) noexcept {
  if (active != nullptr && level == IPPROTO_IP && option == IP_RECVERR) {
    active->recverr_set.push_back(*static_cast<const int*>(value));
    if (const int error = test::Take(active->setsockopt_errors)) {
      errno = error;
      return -1;
    }
  }
  return test::Real<int(int, int, int, const void*, socklen_t)>(nullptr, "setsockopt")(
      fd, level, option, value, length);
}

int getsockopt(int fd, int level, int option, void* __restrict value,
               socklen_t* __restrict length) noexcept {
  if (active != nullptr && level == SOL_SOCKET && option == SO_ERROR) {
    ++active->pending_error_queries;
    if (const int error = test::Take(active->getsockopt_errors)) {
      errno = error;
      return -1;
    }
    if (!active->pending_errors.empty()) {
      *static_cast<int*>(value) = test::Take(active->pending_errors);
      return 0;
    }
  }
  return test::Real<int(int, int, int, void*, socklen_t*)>(nullptr, "getsockopt")(fd, level, option,
                                                                                  value, length);
}

int getifaddrs(ifaddrs** list) noexcept {
  if (active == nullptr || (!active->interfaces && !active->is_getifaddrs_failing)) {
    return test::Real<int(ifaddrs**)>(nullptr, "getifaddrs")(list);
  }
  if (active->is_getifaddrs_failing || test::Take(active->getifaddrs_errors) != 0) return -1;
  *list = test::MakeInterfaceList(*active->interfaces);
  ++active->interface_lists_open;
  return 0;
}

void freeifaddrs(ifaddrs* list) noexcept {
  if (active == nullptr || !active->interfaces) {
    test::Real<void(ifaddrs*)>(nullptr, "freeifaddrs")(list);
    return;
  }
  --active->interface_lists_open;
  while (list != nullptr) {
    ifaddrs* const next = list->ifa_next;
    free(list);
    list = next;
  }
}

int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t host_length,
                char* service, socklen_t service_length, int flags) {
  if (active != nullptr) {
    if (const int error = test::Take(active->getnameinfo_errors)) return error;
  }
  if (active != nullptr && active->interfaces && address->sa_family == AF_INET &&
      reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr == 0) {
    return EAI_FAIL;
  }
  return test::Real<int(const sockaddr*, socklen_t, char*, socklen_t, char*, socklen_t, int)>(
      nullptr, "getnameinfo")(address, length, host, host_length, service, service_length, flags);
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) noexcept {
  if (!test::wall_seconds) {
    return test::Real<int(timeval*, void*)>(nullptr, "gettimeofday")(now, zone);
  }
  ++test::wall_reads;
  *now = timeval{*test::wall_seconds, 999999};
  return 0;
}

void srand(unsigned int seed) noexcept {
  if (active != nullptr) active->seeds.push_back(seed);
  test::Real<void(unsigned int)>(nullptr, "srand")(seed);
}

int rand() noexcept {
  if (active != nullptr && active->rand_value) return *active->rand_value;
  return test::Real<int()>(nullptr, "rand")();
}

}  // extern "C"
