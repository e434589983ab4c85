// A long run of everything together, beside counts of its own: requests that are answered,
// withdrawn or time out, pools that fill up, late responses, reports, a judge, accesses that come
// and go, and collect servers that are not there. Says resident memory and descriptors as it goes.
// Exit status 1: a count differed, or memory or descriptors grew.
//
//   cmake --preset release && cmake --build build/release --target korvain_statistic_soak
//   build/release/bench/korvain_statistic_soak [requests, 100000000] [seed, 1]
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>

#include "resident_memory.h"
#include "soak_run.h"

namespace {

using bench::soak::OUTAGE_EVERY;
using bench::soak::Soak;

struct Footprint {
  long kilobytes = 0;
  long descriptors = 0;
};

Footprint Measure() {
  const std::filesystem::directory_iterator open_now("/proc/self/fd"), end;
  return {bench::ResidentKilobytes(), static_cast<long>(std::distance(open_now, end))};
}

// What is reached after a tenth of the run, full pools included, must be enough for the rest.
bool HasGrown(const Footprint& early, const Footprint& now) {
  constexpr long TOLERANCE = 64;  // kilobytes
  return now.kilobytes > early.kilobytes + TOLERANCE || now.descriptors > early.descriptors;
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t requests = argc > 1 ? atoll(argv[1]) : 100000000;
  const auto soak =
      std::make_unique<Soak>(argc > 2 ? static_cast<unsigned int>(atoi(argv[2])) : 1u);
  bool is_sound = requests >= OUTAGE_EVERY;
  if (!is_sound)
    printf("fewer than %lld requests show nothing\n", static_cast<long long>(OUTAGE_EVERY));
  Footprint early;
  int64_t done = 0;
  printf("%8s %12s %12s %12s\n", "run", "requests", "resident KB", "descriptors");
  for (const int percent : {1, 10, 50, 100}) {
    const int64_t until = requests / 100 * percent;
    soak->Run(done, until);
    done = until;
    const Footprint now = Measure();
    printf("%6d %% %12lld %12ld %12ld\n", percent, static_cast<long long>(done), now.kilobytes,
           now.descriptors);
    fflush(stdout);
    if (percent == 10) early = now;
    if (percent > 10 && HasGrown(early, now)) is_sound = false;
  }
  is_sound = soak->IsSound() && is_sound;
  printf(
      "tracked %lld: answered %lld, withdrawn %lld, timed out %lld; refused %lld, late %lld\n%s\n",
      static_cast<long long>(soak->pushed), static_cast<long long>(soak->answered),
      static_cast<long long>(soak->withdrawn), static_cast<long long>(soak->timed_out),
      static_cast<long long>(soak->refused), static_cast<long long>(soak->late),
      is_sound ? "all counts agree, nothing grew" : "FAILED");
  return is_sound ? 0 : 1;
}
