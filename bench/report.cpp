#include "report.h"

#include <algorithm>
#include <cstdio>

namespace bench {

void Measurements::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      m_has_failed = true;
    } else if (run.run_type == Run::RT_Iteration) {
      const std::string arguments = run.run_name.args.empty() ? "" : "/" + run.run_name.args;
      const double nanoseconds =
          run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations);
      const auto entered =
          m_nanoseconds.emplace(run.run_name.function_name + arguments, nanoseconds);
      double& fastest = entered.first->second;
      fastest = std::min(fastest, nanoseconds);
    }
  }
}

std::optional<double> Measurements::Fastest(const std::string& name) const {
  const auto found = m_nanoseconds.find(name);
  if (found == m_nanoseconds.end()) return std::nullopt;
  return found->second;
}

void Measurements::Print() const {
  printf("\n%-52s %12s\n", "selected benchmarks", "time (ns)");
  for (const auto& [name, nanoseconds] : m_nanoseconds) {
    printf("%-52s %12.1f\n", name.c_str(), nanoseconds);
  }
}

std::optional<std::vector<double>> Report::BeginRow(const std::string& text,
                                                    const std::vector<std::string>& names) {
  std::vector<double> times;
  std::string absent;
  for (const std::string& name : names) {
    const std::optional<double> time = name.empty() ? 0 : m_measurements.Fastest(name);
    if (!time) absent += " " + name;
    times.push_back(time.value_or(0));
  }
  if (!absent.empty() && m_is_selection) return std::nullopt;
  if (!m_header.empty()) printf("\n%s\n", m_header.c_str());
  m_header.clear();
  printf("%-52s", text.c_str());
  if (absent.empty()) return times;
  printf("  NOT MEASURED: no benchmark%s\n", absent.c_str());
  ++m_missing;
  return std::nullopt;
}

void Report::EndRow(double ratio, double goal) {
  const bool is_met = ratio <= goal;
  if (!is_met) ++m_missed;
  printf(" %8.2fx  <= %.2fx%s\n", ratio, goal, is_met ? "" : "  NOT MET");
}

}  // namespace bench
