// One operation, done a given number of times among few or many others of its kind, whose
// instructions scripts/bench.sh counts as those of the instruction probe.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "accesses.h"
#include "fake_clocks.h"
#include "judged.h"
#include "reporting_zones.h"
#include "spaced_ids.h"

namespace bench {
namespace {

void RestartZones(int zones, long steps) {
  ReportingZones reporting(zones);
  for (long i = 0; i < steps; ++i) reporting.RestartNextZone();
}

// Each step is two seconds of cycles, in the second of which every pair's clean-up is due.
void CleanUpAll(int pairs, long steps) {
  Judged judged(pairs, 256);
  *wall_seconds = 0;
  for (long i = 0; i < 2 * steps; ++i) {
    *wall_seconds += Judged::CLEAN_UP_INTERVAL / 2;
    judged.CountRequests();
    judged.UpdateAll();
  }
}

// Of the wanted spacings each as often as another.
void LookUpSpaced(VariedIds varied, int first_shift, int last_shift, long steps) {
  for (int shift = first_shift; shift <= last_shift; ++shift) {
    SpacedRecords records(SpacedPairs(varied, shift, 256));
    const void* volatile found = nullptr;
    for (long i = 0; i < steps; ++i) found = records.LookUpNext();
    if (found == nullptr) fprintf(stderr, "a record is missing\n");
  }
}

void SendSpaced(VariedIds varied, int first_shift, int last_shift, long steps) {
  for (int shift = first_shift; shift <= last_shift; ++shift) {
    SpacedRequests requests(SpacedPairs(varied, shift, 64));
    for (long i = 0; i < steps; ++i) requests.SendNextAndAnswer();
  }
}

bool Run(int argc, char** argv) {
  const std::string operation = argv[1];
  const long steps = atol(argv[argc - 1]);
  if (operation == "restart" && argc == 4) {
    RestartZones(atoi(argv[2]), steps);
  } else if (operation == "clean-up" && argc == 4) {
    CleanUpAll(atoi(argv[2]), steps);
  } else if (operation == "look-up" && argc == 6) {
    LookUpSpaced(static_cast<VariedIds>(atoi(argv[2])), atoi(argv[3]), atoi(argv[4]), steps);
  } else if (operation == "request" && argc == 6) {
    SendSpaced(static_cast<VariedIds>(atoi(argv[2])), atoi(argv[3]), atoi(argv[4]), steps);
  } else {
    return false;
  }
  return true;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc >= 2 && bench::Run(argc, argv)) return 0;
  fprintf(stderr,
          "usage: %s restart|clean-up ZONES STEPS\n"
          "       %s look-up|request 0|1|2 FIRST_SHIFT LAST_SHIFT STEPS\n"
          "       0, 1, 2: zone ids, application ids, both are spaced\n",
          argv[0], argv[0]);
  return 2;
}
