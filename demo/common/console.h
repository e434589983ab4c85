// What a program says: to the person who watches, and to a log.
#ifndef KORVAIN_DEMO_CONSOLE_H_
#define KORVAIN_DEMO_CONSOLE_H_

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "demo/common/output_file.h"

namespace demo {

struct ConsoleOptions {
  std::string name;
  std::string log_path;  // empty: no log
  bool is_verbose = false;
};

// Every message, of one line or several, is one write, so that the lines of several programs do not
// tear each other; only a message of more than a pipe takes at once goes in several, each of whole
// lines. Where nobody reads standard output, lines are dropped: no program hangs for that.
class Console {
 public:
  // Throws std::runtime_error when the log cannot be opened.
  explicit Console(const ConsoleOptions& options);

  // A turn of the story, set off from other lines on a terminal.
  template <class... Args>
  void Announce(fmt::format_string<Args...> format, Args&&... args) {
    Print(fmt::format(format, std::forward<Args>(args)...), Audience::PERSON_AT_ONCE);
  }

  // For the person as well.
  template <class... Args>
  void Say(fmt::format_string<Args...> format, Args&&... args) {
    Print(fmt::format(format, std::forward<Args>(args)...), Audience::PERSON);
  }

  // For the log, and for the person who asked for everything.
  template <class... Args>
  void Note(fmt::format_string<Args...> format, Args&&... args) {
    Print(fmt::format(format, std::forward<Args>(args)...), Audience::LOG);
  }

  // For files that cannot be written.
  OutputFile::Complaint Complainer() {
    return [this](const std::string& complaint) { Announce("{}", complaint); };
  }

  // Messages that standard output did not take.
  int64_t Dropped() const { return m_dropped; }

 private:
  enum class Audience { PERSON_AT_ONCE, PERSON, LOG };

  void Print(std::string_view text, Audience audience);

  const std::string m_prefix;
  const bool m_is_verbose;
  const bool m_is_terminal;
  int64_t m_dropped = 0;
  OutputFile m_log;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_CONSOLE_H_
