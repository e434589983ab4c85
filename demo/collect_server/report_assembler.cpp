#include "demo/collect_server/report_assembler.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace demo {

namespace {

constexpr std::chrono::seconds LONGEST_WAIT(1);

// What all lines of a report have in common.
std::string KeyOf(const std::string& from, const ReportLine& line) {
  return from + ' ' + std::to_string(line.timestamp_ns) + ' ' + line.Tag("instance") + ' ' +
         line.Tag("zone");
}

}  // namespace

bool AssembledReport::IsComplete() const {
  return overall && overall->Integer("table_lines") == static_cast<int64_t>(tables.size()) &&
         overall->Integer("access_lines") == static_cast<int64_t>(accesses.size());
}

bool ReportAssembler::Add(const std::string& from, const ReportLine& line, size_t size,
                          TimePoint now) {
  const bool is_overall = line.measurement == "korvain_overall";
  const bool is_table = line.measurement == "korvain_table";
  const bool is_access = line.measurement == "korvain_access";
  if (!(is_overall || is_table || is_access)) return false;

  const auto [report, is_new] = m_pending.try_emplace(KeyOf(from, line));
  AssembledReport& lines = report->second;
  if (is_new) lines.first_line_time = now;
  if (is_overall) lines.overall = line;
  if (is_table) lines.tables.push_back(line);
  if (is_access) lines.accesses.push_back(line);
  lines.bytes += size;
  m_bytes_held += size;
  if (lines.IsComplete()) PassOn(report);
  MakeRoom();
  return true;
}

void ReportAssembler::MakeRoom() {
  while (m_pending.size() > MOST_PENDING || m_bytes_held > MOST_BYTES) {
    PassOnOldest();
    ++m_passed_on_early;
  }
}

ReportAssembler::Pending::iterator ReportAssembler::PassOn(Pending::iterator report) {
  m_on_report(report->second);
  m_bytes_held -= report->second.bytes;
  return m_pending.erase(report);
}

void ReportAssembler::PassOnOldest() {
  PassOn(std::min_element(m_pending.begin(), m_pending.end(),
                          [](const Pending::value_type& left, const Pending::value_type& right) {
                            return left.second.first_line_time < right.second.first_line_time;
                          }));
}

void ReportAssembler::PassOnOverdue(TimePoint now) {
  for (auto report = m_pending.begin(); report != m_pending.end();) {
    const bool is_overdue = now - report->second.first_line_time >= LONGEST_WAIT;
    report = is_overdue ? PassOn(report) : std::next(report);
  }
}

void ReportAssembler::PassOnAll() {
  while (!m_pending.empty()) PassOnOldest();
}

}  // namespace demo
