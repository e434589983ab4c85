#include "examples/report_assembler.h"

#include <fmt/core.h>

#include <algorithm>

#include "examples/report_lines.h"
#include "examples/udp_socket.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace example {

namespace {

constexpr size_t MOST_PENDING = 64;
constexpr size_t MOST_LINES_OF_A_KIND = KorvainService::STATISTIC_MAX_ACCESS_COUNT;
constexpr std::chrono::seconds LONGEST_WAIT(1);

void AddWithin(std::vector<Line>& lines, const Line& line) {
  if (lines.size() < MOST_LINES_OF_A_KIND) lines.push_back(line);
}

}  // namespace

bool AssembledReport::IsComplete() const {
  return process && FindInteger(*process, "table_count") == static_cast<int64_t>(tables.size()) &&
         FindInteger(*process, "access_count") == static_cast<int64_t>(accesses.size());
}

std::optional<std::string> ReportAssembler::KeyOf(const sockaddr_in& from, const Line& line) {
  if (!line.timestamp_ns) return std::nullopt;
  std::string key = fmt::format("{} {}", ToUrl(from), *line.timestamp_ns);
  for (const char* name : {"set_id", "app_id", "zone_id", "ip", "pid"}) {
    const std::string* tag = FindTag(line, name);
    key += ' ' + (tag == nullptr ? "" : *tag);
  }
  return key;
}

bool ReportAssembler::Add(const sockaddr_in& from, const Line& line, TimePoint now) {
  const bool is_process = line.measurement == PROCESS_MEASUREMENT;
  const bool is_table = line.measurement == TABLE_MEASUREMENT;
  const bool is_access = line.measurement == ACCESS_MEASUREMENT;
  const std::optional<std::string> key = KeyOf(from, line);
  if (!(is_process || is_table || is_access) || !key) return false;

  if (m_pending.size() >= MOST_PENDING && m_pending.count(*key) == 0) PassOnOldest();
  const auto [report, is_new] = m_pending.try_emplace(*key);
  if (is_new) report->second.first_line_time = now;
  if (is_process) report->second.process = line;
  if (is_table) AddWithin(report->second.tables, line);
  if (is_access) AddWithin(report->second.accesses, line);
  if (report->second.IsComplete()) PassOn(report);
  return true;
}

ReportAssembler::Pending::iterator ReportAssembler::PassOn(Pending::iterator report) {
  m_on_report(report->second);
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

}  // namespace example
