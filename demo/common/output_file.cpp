#include "demo/common/output_file.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace demo {

OutputFile::OutputFile(const std::string& path, Beginning beginning, Complaint complain)
    : m_path(path), m_complain(std::move(complain)) {
  if (path.empty()) return;
  const int mode = beginning == REPLACED ? O_TRUNC : 0;
  m_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | mode, 0666);
  if (m_fd < 0) throw std::runtime_error(fmt::format("cannot open {}: {}", path, strerror(errno)));
}

OutputFile::~OutputFile() {
  if (m_fd >= 0) close(m_fd);
}

void OutputFile::Write(std::string_view lines) {
  if (m_fd < 0 || lines.empty()) return;
  // What follows a line that went in part must not become part of it.
  const std::string text = m_is_line_torn ? '\n' + std::string(lines) : std::string(lines);
  const ssize_t written = write(m_fd, text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) {
    m_is_line_torn = false;
    return;
  }
  m_is_line_torn = m_is_line_torn || written > 0;
  const char* const reason = written < 0 ? strerror(errno) : "no space for all of it";
  if (m_lost++ == 0) {
    m_complain(fmt::format("cannot write to {}: {}; what is lost is counted", m_path, reason));
  }
}

}  // namespace demo
