// What a simulated proxy counts, for the check at the end of a run.
#ifndef KORVAIN_DEMO_PROXY_COUNTS_H_
#define KORVAIN_DEMO_PROXY_COUNTS_H_

#include <cstdint>
#include <string>

namespace demo {

struct ProxyCounts {
  int64_t received = 0;
  int64_t dropped = 0;
  int64_t answered = 0;
  int64_t errors = 0;   // of those answered
  int64_t held_us = 0;  // sum of the times between request and answer
  int64_t unsent = 0;
  int64_t malformed = 0;
};

// One line of JSON.
std::string ToSummary(const ProxyCounts& counts, const std::string& url);

}  // namespace demo

#endif  // KORVAIN_DEMO_PROXY_COUNTS_H_
