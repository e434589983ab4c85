// What a program says, a line a message.
#ifndef KORVAIN_DEMO_CONSOLE_H_
#define KORVAIN_DEMO_CONSOLE_H_

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace demo {

// The character after the program's name says for whom a line is: '!' is a turn of the story and
// '>' the usual, both for a person who watches; ':' is for the log. Each line is one write, so that
// the lines of several programs do not tear each other. Where nobody reads standard output, lines
// are dropped: no program hangs or ends for that.
class Console {
 public:
  explicit Console(std::string_view name) : m_name(name) {}

  template <class... Args>
  void Announce(fmt::format_string<Args...> format, Args&&... args) {
    Print('!', fmt::format(format, std::forward<Args>(args)...));
  }

  template <class... Args>
  void Say(fmt::format_string<Args...> format, Args&&... args) {
    Print('>', fmt::format(format, std::forward<Args>(args)...));
  }

  template <class... Args>
  void Note(fmt::format_string<Args...> format, Args&&... args) {
    Print(':', fmt::format(format, std::forward<Args>(args)...));
  }

  int64_t Dropped() const { return m_dropped; }

 private:
  void Print(char audience, std::string_view text);

  const std::string m_name;
  int64_t m_dropped = 0;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_CONSOLE_H_
