#include "demo/common/console.h"

#include <poll.h>
#include <unistd.h>

#include <climits>

namespace demo {

void Console::Print(char audience, std::string_view text) {
  // What is longer than a pipe takes at once might wait for its reader.
  constexpr size_t MOST_CHARACTERS = PIPE_BUF / 2;
  const std::string whole = fmt::format("{}{} {}", m_name, audience, text);
  const std::string line = whole.substr(0, MOST_CHARACTERS) + '\n';
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  const bool is_writable = poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
  if (!is_writable || write(STDOUT_FILENO, line.data(), line.size()) < 0) ++m_dropped;
}

}  // namespace demo
