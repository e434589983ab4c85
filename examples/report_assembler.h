// Collects the lines of a report, which come in several datagrams, until it is complete.
#ifndef KORVAIN_EXAMPLES_REPORT_ASSEMBLER_H_
#define KORVAIN_EXAMPLES_REPORT_ASSEMBLER_H_

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "examples/line_protocol.h"

namespace example {

struct AssembledReport {
  std::optional<Line> process;
  std::vector<Line> tables;
  std::vector<Line> accesses;
  std::chrono::steady_clock::time_point first_line_time;

  bool IsComplete() const;
};

// Nothing from the network makes it wait or grow without limit: a report is passed on when it is
// complete or has waited for a second, earlier when too many others wait, and surplus lines go.
class ReportAssembler {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Callback = std::function<void(const AssembledReport&)>;

  explicit ReportAssembler(Callback on_report) : m_on_report(std::move(on_report)) {}

  // False for a line that belongs to no report.
  bool Add(const sockaddr_in& from, const Line& line, TimePoint now);

  void PassOnOverdue(TimePoint now);
  void PassOnAll();

 private:
  using Pending = std::map<std::string, AssembledReport>;

  static std::optional<std::string> KeyOf(const sockaddr_in& from, const Line& line);
  Pending::iterator PassOn(Pending::iterator report);
  void PassOnOldest();

  Callback m_on_report;
  Pending m_pending;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_REPORT_ASSEMBLER_H_
