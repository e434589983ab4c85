#include "demo/common/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace demo {

OutputFile::OutputFile(const std::string& path, Console& console)
    : m_path(path), m_console(console) {
  if (path.empty()) return;
  m_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (m_fd < 0) throw std::runtime_error(fmt::format("cannot open {}: {}", path, strerror(errno)));
}

OutputFile::~OutputFile() {
  if (m_fd >= 0) close(m_fd);
}

void OutputFile::Write(std::string_view lines) {
  if (m_fd < 0 || lines.empty()) return;
  // What follows a line that went in part must not become part of it.
  std::string text = m_is_line_torn ? "\n" : "";
  text += lines;
  if (lines.back() != '\n') text += '\n';
  const ssize_t written = write(m_fd, text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) {
    m_is_line_torn = false;
    return;
  }
  const char* const reason = written < 0 ? strerror(errno) : "no space for all of it";
  m_is_line_torn = m_is_line_torn || written > 0;
  if (m_lost++ > 0) return;
  m_console.Announce("cannot write to {}: {}; what is lost is counted", m_path, reason);
}

}  // namespace demo
