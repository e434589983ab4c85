// Compares what a database holds with what the hosts have journalled. Each function is one group of
// checks.
#ifndef KORVAIN_DEMO_DATABASE_CHECKS_H_
#define KORVAIN_DEMO_DATABASE_CHECKS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/system/recorded_run.h"
#include "tests/system/verdict.h"

namespace demo {

// One host: its journal, and its lines in the database.
void CheckArrival(const RecordedRun& host, const std::string& killed_url, Verdict& verdict);

// Fields that no host counts in are in every line of their kind or in none.
void CheckFields(const std::vector<RecordedRun>& hosts, Verdict& verdict);

// The answer to a query that sums what all hosts say of a proxy.
struct Sums {
  int64_t time_s;
  std::map<std::string, int64_t> requests_per_min;  // by the proxy's URL
};

// The sums at that time of each zone's latest report, which is at most `window_s` old.
void CheckSums(const std::vector<RecordedRun>& hosts, const Sums& sums, int64_t window_s,
               Verdict& verdict);

}  // namespace demo

#endif  // KORVAIN_DEMO_DATABASE_CHECKS_H_
