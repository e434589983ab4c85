// Gathers what the checks find and prints it: a line for each group that holds, a line for each
// check that does not.
#ifndef KORVAIN_VERDICT_H_
#define KORVAIN_VERDICT_H_

#include <fmt/core.h>

#include <string>
#include <utility>
#include <vector>

namespace demo {

class Verdict {
 public:
  // A check of the group at hand; the text says what was compared, with the numbers.
  template <class... Args>
  void Check(bool holds, fmt::format_string<Args...> format, Args&&... args) {
    Record(holds, fmt::format(format, std::forward<Args>(args)...));
  }

  // Ends the group. `summary` is printed when all its checks hold, and there was one.
  void EndGroup(const std::string& name, const std::string& summary);

  // Prints the final line. Whether every check held, and there was one.
  bool Conclude() const;

 private:
  void Record(bool holds, const std::string& text);

  std::vector<std::string> m_group_failures;
  int m_group_checks = 0;
  int m_checks = 0;
  int m_failures = 0;
};

}  // namespace demo

#endif  // KORVAIN_VERDICT_H_
