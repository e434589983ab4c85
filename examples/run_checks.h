// Compares what the programs of a run have written down independently of each other.
#ifndef KORVAIN_EXAMPLES_RUN_CHECKS_H_
#define KORVAIN_EXAMPLES_RUN_CHECKS_H_

#include <fmt/core.h>

#include <set>
#include <string>
#include <utility>

#include "examples/recorded_run.h"

namespace example {

// Prints one line per check and remembers whether all held.
class Verdict {
 public:
  template <class... Args>
  void Check(bool holds, fmt::format_string<Args...> format, Args&&... args) {
    Record(holds, fmt::format(format, std::forward<Args>(args)...));
  }

  // Prints the final line. Whether every check held, and there was one.
  bool Conclude() const;

 private:
  void Record(bool holds, const std::string& text);

  int m_checks = 0;
  int m_failures = 0;
};

// Each line that arrived follows from the raw counts in the journal.
void CheckContents(const RecordedRun& run, Verdict& verdict);

// In the journal's order: reports at one server, then perhaps some lost ones, then reports at the
// other. Nothing else is missing, nothing came twice.
void CheckDelivery(const RecordedRun& run, Verdict& verdict);

// The module's counts, the service API's own and those of the proxies agree.
void CheckCounts(const RecordedRun& run, Verdict& verdict);

// The mean delay of each proxy is about the time that it held the requests.
void CheckDelays(const RecordedRun& run, double clock_speed, Verdict& verdict);

// Exactly these proxies were judged unavailable, and each is in service again.
void CheckJudgements(const RecordedRun& run, const std::set<std::string>& expected,
                     Verdict& verdict);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_RUN_CHECKS_H_
