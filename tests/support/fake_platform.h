// Takes the place of the platform calls that the library makes. Calls are passed on to the C
// library unless a FakePlatform is alive and has something scripted for them.
#ifndef KORVAIN_TESTS_FAKE_PLATFORM_H_
#define KORVAIN_TESTS_FAKE_PLATFORM_H_

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace test {

// Calls that can be made to fail. PENDING is what a query for SO_ERROR finds.
enum Call { SOCKET, SETFL, SENDTO, SETSOCKOPT, GETSOCKOPT, GETIFADDRS, GETNAMEINFO, PENDING };

struct SentDatagram {
  int fd;
  int flags;
  size_t length;
  sockaddr_in to;
};

// One at a time; create it on the stack of a test.
class FakePlatform {
 public:
  FakePlatform() { active = this; }
  ~FakePlatform() { active = nullptr; }
  static inline FakePlatform* active = nullptr;

  // For each next call the error that it fails with; 0, or nothing more, lets it through.
  std::array<std::deque<int>, PENDING + 1> errors;

  bool is_sending_faked = false;  // sendto takes nothing and gives 0, which is no failure
  std::optional<int> rand_value;

  // Interface addresses as text; "" is an entry without address, "packet" one of another family,
  // "unnameable" one that getnameinfo refuses.
  std::optional<std::vector<std::string>> interfaces;
  int interface_lists_open = 0;

  std::vector<SentDatagram> sent;
  std::vector<int> flags_set;
  std::vector<int> recverr_set;  // values that IP_RECVERR was given
  std::vector<unsigned int> seeds;
};

// The clock behind GetCurrentMilliseconds, and how often it was read.
inline int64_t clock_ms = 0;
inline int64_t clock_reads = 0;

// The seconds that gettimeofday gives while set.
inline std::optional<int64_t> wall_seconds;
inline int wall_reads = 0;

// Counts calls of operator new and makes chosen ones fail, counted from 0. A non-throwing
// allocation counts as such only.
struct Allocations {
  Allocations() { Restart(); }
  ~Allocations() { Restart(); }

  static void Restart(int64_t failing_nothrow = -1, int64_t failing_throwing = -1) {
    count = 0;
    has_failed = false;
    before_null = failing_nothrow;
    before_throwing = failing_throwing;
  }

  static inline int64_t count = 0;        // since the last Restart
  static inline bool has_failed = false;  // whether a chosen one has been called since
  static inline int64_t outstanding = 0;  // blocks not yet freed, in all
  static inline size_t last_size = 0;     // of the last block allocated
  static inline int64_t before_null = -1, before_throwing = -1;  // calls before the chosen ones
};

// The lowest number of a descriptor that is free: the next socket has it, one that is lost raises
// it.
int NextDescriptor();

}  // namespace test

#endif  // KORVAIN_TESTS_FAKE_PLATFORM_H_
