// Writes down what a record has counted before it becomes a report, for the check at the end of a
// run. One line of JSON for each report.
#ifndef KORVAIN_DEMO_JOURNAL_H_
#define KORVAIN_DEMO_JOURNAL_H_

#include <cstdint>
#include <string>

#include "demo/common/output_file.h"
#include "service_api/service_api_statistic.h"

namespace demo {

struct JournalEntry {
  std::string zone;
  int64_t time_ns;
  int64_t period_s;
  std::string server;  // to which the report went; empty: to none
  bool is_handed_over;
};

class Journal {
 public:
  Journal(const std::string& path, OutputFile::Complaint complain)
      : m_file(path, OutputFile::REPLACED, std::move(complain)) {}

  // The counts as they are before CalculateAverage, under the names of the fields in which their
  // rates and means arrive.
  static std::string CountsOf(const KorvainService::SERVICEAPISTATISTIC& record);

  void Write(const JournalEntry& entry, const std::string& counts);

  int64_t Lost() const { return m_file.Lost(); }

 private:
  OutputFile m_file;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_JOURNAL_H_
