// One workload, run for a given number of requests, whose instructions scripts/bench.sh counts: it
// subtracts two runs of different length from each other, and the same for no tracker.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "silent_logger.h"
#include "trackers/none.h"
#include "trackers/own.h"
#include "workloads.h"

namespace bench {
namespace {

template <class Tracker>
void RunRandomOrder(Tracker& tracker, const Accesses& accesses, long requests) {
  RandomOrder<Tracker> workload(tracker, accesses, 1000);
  for (long i = 0; i < requests; ++i) workload.Step();
}

template <class Tracker>
void RunAllTimeOut(Tracker& tracker, const Accesses& accesses, long requests) {
  AllTimeOut<Tracker> workload(tracker, accesses);
  for (long i = 0; i < requests / SWEEP_LIMIT; ++i) workload.Step();
}

template <class Tracker>
int Run(Tracker& tracker, const Accesses& accesses, const std::string& workload, long requests) {
  if (workload == "random") {
    RunRandomOrder(tracker, accesses, requests);
  } else if (workload == "expire") {
    RunAllTimeOut(tracker, accesses, requests);
  } else {
    fprintf(stderr, "no such workload: %s\n", workload.c_str());
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc != 6) {
    fprintf(stderr, "usage: %s own|logged|none random|expire ZONES PER_ZONE REQUESTS\n", argv[0]);
    return 2;
  }
  const std::string tracker_name = argv[1];
  const bench::Accesses accesses = bench::MakeAccesses(atoi(argv[3]), atoi(argv[4]));
  const long requests = atol(argv[5]);
  if (tracker_name == "none") {
    bench::NoTracker tracker(accesses);
    return bench::Run(tracker, accesses, argv[2], requests);
  }
  bench::SilentLogger logger;
  bench::OwnTracker tracker(accesses, tracker_name == "logged" ? &logger : nullptr);
  return bench::Run(tracker, accesses, argv[2], requests);
}
