// What the programs of one run have written down.
#ifndef KORVAIN_EXAMPLES_RECORDED_RUN_H_
#define KORVAIN_EXAMPLES_RECORDED_RUN_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "examples/line_protocol.h"

namespace example {

using ReportId = std::pair<int64_t, std::string>;  // timestamp, zone id
using LinesByKey = std::map<std::string, Line>;  // by measurement and what distinguishes its lines
using LineByUrl = std::map<std::string, Line>;

// One report as the service API wrote it down: raw counts and sums.
struct JournalReport {
  ReportId id;
  int64_t period_s;
  bool is_handed_over;
  LinesByKey lines;
};

struct CollectedFile {
  std::string name;  // without directories
  std::map<ReportId, LinesByKey> reports;
  size_t unusable = 0;  // lines
  size_t repeated = 0;
};

struct RecordedRun {
  std::vector<JournalReport> journal;  // in the order of writing
  std::vector<CollectedFile> collected;
  Line service;          // the service API's own counts
  LineByUrl by_service;  // the same for each proxy
  LineByUrl by_proxies;  // what each proxy counted itself
  size_t unusable = 0;   // lines of journal and summaries
};

struct RunFiles {
  std::string journal;
  std::string service_summary;
  std::vector<std::string> collected;
  std::vector<std::string> proxy_summaries;
};

// Throws std::runtime_error for a file that cannot be read; lines that make no sense are counted.
RecordedRun ReadRun(const RunFiles& files);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_RECORDED_RUN_H_
