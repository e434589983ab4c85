#include "demo/common/console.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace demo {

namespace {

// Each line with `prefix` before it and a line end.
std::string Prefixed(std::string_view prefix, std::string_view lines) {
  std::string text;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    text.append(prefix).append(lines.substr(0, end)).append("\n");
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return text;
}

// The first lines that a pipe takes in one piece, at least one.
std::string_view FirstPiece(std::string_view lines) {
  if (lines.size() <= PIPE_BUF) return lines;
  const size_t last_end = lines.rfind('\n', PIPE_BUF - 1);
  return lines.substr(0, last_end == std::string_view::npos ? PIPE_BUF : last_end + 1);
}

bool WriteWithoutWaiting(std::string_view lines) {
  while (!lines.empty()) {
    const std::string_view piece = FirstPiece(lines);
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) return false;
    if (write(STDOUT_FILENO, piece.data(), piece.size()) < 0) return false;
    lines.remove_prefix(piece.size());
  }
  return true;
}

}  // namespace

Console::Console(const ConsoleOptions& options)
    : m_prefix(fmt::format("[{}] ", options.name)),
      m_is_verbose(options.is_verbose),
      m_is_terminal(isatty(STDOUT_FILENO) == 1),
      m_log(options.log_path, OutputFile::APPENDED,
            [](const std::string& complaint) { WriteWithoutWaiting(complaint + '\n'); }) {}

void Console::Print(std::string_view text, Audience audience) {
  if (text.empty()) return;
  const std::string logged = Prefixed(m_prefix, text);
  m_log.Write(logged);
  if (audience == Audience::LOG && !m_is_verbose) return;
  std::string printed = m_is_verbose ? logged : Prefixed("", text);
  if (m_is_terminal && audience == Audience::PERSON_AT_ONCE) {
    printed.insert(printed.size() - 1, "\033[0m");
    printed.insert(0, "\033[1m");
  }
  if (!WriteWithoutWaiting(printed)) ++m_dropped;
}

}  // namespace demo
