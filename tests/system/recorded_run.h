// What the programs of one run have written down, independently of each other.
#ifndef KORVAIN_RECORDED_RUN_H_
#define KORVAIN_RECORDED_RUN_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "demo/common/report_line.h"

namespace demo {

using ReportId = std::pair<std::string, int64_t>;  // zone, time

// Numbers by name; 0 where there is none. Small enough for the sums of any run.
using Numbers = std::map<std::string, int64_t>;
inline constexpr int64_t GREATEST_NUMBER = int64_t{1} << 40;
int64_t NumberOf(const Numbers& numbers, const std::string& name);

// One report as the host wrote it down: raw counts and sums.
struct JournalReport {
  std::string instance;
  ReportId id;
  int64_t period_s;    // 1 to INT32_MAX
  std::string server;  // to which the end of it went; empty: to none
  bool is_handed_over;
  std::map<std::string, Numbers> lines;  // by measurement and what distinguishes its lines
};

struct CollectedFile {
  std::string name;  // without directories
  std::map<ReportId, std::map<std::string, ReportLine>> reports;
  size_t lines = 0;
  size_t unusable = 0;  // lines
  size_t repeated = 0;
};

struct RecordedRun {
  std::vector<JournalReport> journal;  // in the order of writing
  std::vector<CollectedFile> collected;
  // By URL, of the same proxies: what the host counted of each, and what it counted itself.
  std::map<std::string, Numbers> by_host;
  std::map<std::string, Numbers> by_proxies;
};

struct RunFiles {
  std::string journal;
  std::string host_summary;
  std::vector<std::string> collected;
  std::vector<std::string> proxy_summaries;
};

// Throws UsageError, which names the file and where it can the line, for a file that cannot be read
// and for journals and summaries that make no sense. Collected lines that make none are counted:
// they come from the network.
RecordedRun ReadRun(const RunFiles& files);

// The parts of that.
void ReadJsonLines(const std::string& path, const std::function<void(const nlohmann::json&)>& take);
std::vector<JournalReport> ReadJournal(const std::string& path);

// By what a report's lines are told apart; nothing for lines of no report.
std::optional<std::string> KeyOf(const ReportLine& line);

}  // namespace demo

#endif  // KORVAIN_RECORDED_RUN_H_
