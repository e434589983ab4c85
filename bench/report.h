// Tables of what the benchmarks measured, and the account of what is missing from them.
#ifndef KORVAIN_BENCH_REPORT_H_
#define KORVAIN_BENCH_REPORT_H_

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Keeps nanoseconds by the name of the benchmark, without the suffixes that name its settings.
class Measurements : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override;

  // The fastest repetition, since whatever else the machine does can only add to it; nothing when
  // the benchmark was not run.
  std::optional<double> Fastest(const std::string& name) const;

  // One line a benchmark.
  void Print() const;

  bool IsEmpty() const { return m_nanoseconds.empty(); }
  bool HasFailed() const { return m_has_failed; }

 private:
  std::map<std::string, double> m_nanoseconds;
  bool m_has_failed = false;
};

class Report {
 public:
  // A row that lacks a measurement is left out where the user has chosen among the benchmarks, and
  // is a fault otherwise: its benchmark has been renamed or removed.
  Report(const Measurements& measurements, bool is_selection)
      : m_measurements(measurements), m_is_selection(is_selection) {}

  // The header is printed when the table's first row is.
  void BeginTable(const std::string& header) { m_header = header; }

  // Prints the beginning of a row and returns the times of the named benchmarks, 0 for an empty
  // name. Without all of them the row has ended, and there is nothing.
  std::optional<std::vector<double>> BeginRow(const std::string& text,
                                              const std::vector<std::string>& names);

  // Ends a row with a ratio that should be `goal` or less.
  void EndRow(double ratio, double goal);

  int RowsMissing() const { return m_missing; }
  int GoalsMissed() const { return m_missed; }

 private:
  const Measurements& m_measurements;
  bool m_is_selection;
  std::string m_header;
  int m_missing = 0;
  int m_missed = 0;
};

}  // namespace bench

#endif  // KORVAIN_BENCH_REPORT_H_
