// Collects the lines of a report, which come in several datagrams, until it is complete.
#ifndef KORVAIN_DEMO_REPORT_ASSEMBLER_H_
#define KORVAIN_DEMO_REPORT_ASSEMBLER_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "demo/common/report_line.h"

namespace demo {

struct AssembledReport {
  std::optional<ReportLine> overall;
  std::vector<ReportLine> tables;
  std::vector<ReportLine> accesses;
  size_t bytes = 0;  // of the lines as they came
  std::chrono::steady_clock::time_point first_line_time;

  bool IsComplete() const;
};

// Nothing from the network makes it wait or grow without limit: a report is passed on when it is
// complete or has waited for a second, and the oldest one when too much waits.
class ReportAssembler {
 public:
  static constexpr size_t MOST_PENDING = 64;
  static constexpr size_t MOST_BYTES = 1 << 20;

  using TimePoint = std::chrono::steady_clock::time_point;
  using Callback = std::function<void(const AssembledReport&)>;

  explicit ReportAssembler(Callback on_report) : m_on_report(std::move(on_report)) {}

  // Takes a line of `size` bytes. False for one that belongs to no report.
  bool Add(const std::string& from, const ReportLine& line, size_t size, TimePoint now);

  void PassOnOverdue(TimePoint now);
  void PassOnAll();

  size_t BytesHeld() const { return m_bytes_held; }
  // Reports that were passed on early, to make room.
  size_t PassedOnEarly() const { return m_passed_on_early; }

 private:
  using Pending = std::map<std::string, AssembledReport>;

  Pending::iterator PassOn(Pending::iterator report);
  void PassOnOldest();
  void MakeRoom();

  Callback m_on_report;
  Pending m_pending;
  size_t m_bytes_held = 0;
  size_t m_passed_on_early = 0;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_REPORT_ASSEMBLER_H_
