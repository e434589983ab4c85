#include "tests/system/verdict.h"

#include <cstddef>

namespace demo {

void Verdict::Record(bool holds, const std::string& text) {
  ++m_group_checks;
  if (!holds) m_group_failures.push_back(text);
}

void Verdict::EndGroup(const std::string& name, const std::string& summary) {
  constexpr size_t MOST_LINES = 5;
  if (m_group_checks == 0) m_group_failures.push_back("there is nothing to check");
  if (m_group_failures.empty()) fmt::print("[ ok ] {}: {}\n", name, summary);
  for (size_t i = 0; i < m_group_failures.size() && i < MOST_LINES; ++i) {
    fmt::print("[FAIL] {}: {}\n", name, m_group_failures[i]);
  }
  if (m_group_failures.size() > MOST_LINES) {
    fmt::print("[FAIL] {}: and {} more\n", name, m_group_failures.size() - MOST_LINES);
  }
  m_checks += m_group_checks;
  m_failures += static_cast<int>(m_group_failures.size());
  m_group_failures.clear();
  m_group_checks = 0;
}

bool Verdict::Conclude() const {
  const bool holds = m_checks > 0 && m_failures == 0;
  if (holds) fmt::print("verdict: everything agrees ({} checks)\n", m_checks);
  if (!holds) fmt::print("verdict: NOT everything agrees ({} failures)\n", m_failures);
  return holds;
}

}  // namespace demo
