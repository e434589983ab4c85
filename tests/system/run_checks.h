// Compares what the programs of a run have written down. Each function is one group of checks.
#ifndef KORVAIN_RUN_CHECKS_H_
#define KORVAIN_RUN_CHECKS_H_

#include <set>
#include <string>

#include "tests/system/recorded_run.h"
#include "tests/system/verdict.h"

namespace demo {

// Each line that arrived follows from the raw counts in the journal.
void CheckContents(const RecordedRun& run, Verdict& verdict);

// In the journal's order each zone has reports at one server, then at most one lost report, then
// reports at another. Nothing else is missing, nothing came twice.
void CheckDelivery(const RecordedRun& run, Verdict& verdict);

// The module's counts, the host's own and those of the proxies agree.
void CheckCounts(const RecordedRun& run, Verdict& verdict);

// The mean delay of each proxy is about the time that it held the requests: longer by at most
// `tolerance_ms`, which the way there and back may take.
void CheckDelays(const RecordedRun& run, double clock_speed, double tolerance_ms, Verdict& verdict);

// Exactly these proxies were judged unavailable, and each is in service again.
void CheckJudgements(const RecordedRun& run, const std::set<std::string>& expected,
                     Verdict& verdict);

}  // namespace demo

#endif  // KORVAIN_RUN_CHECKS_H_
