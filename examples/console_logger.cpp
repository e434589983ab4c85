#include "examples/console_logger.h"

#include <cstdarg>
#include <string_view>

namespace example {

using namespace KorvainService;

namespace {

const char* LevelName(LogLevel level) {
  constexpr const char* NAMES[] = {"FATAL",  "ALERT", "CRIT",  "ERROR", "WARN",
                                   "NOTICE", "INFO",  "DEBUG", "TRACE"};
  return NAMES[level / 100];
}

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

}  // namespace

bool ConsoleLogger::IsWanted(LogLevel level, const char* file, const char* fmt) const {
  if (m_verbose) return true;
  if (StartsWith(fmt, "it is timeout") || StartsWith(fmt, "it send success")) return false;
  return level < KORVAIN_LOG_LEVEL_DEBUG || StartsWith(file, "udp_client");
}

void ConsoleLogger::Log(LogLevel level, int, int, const char* file, int line, const char* func,
                        const char* fmt, ...) {
  if (!IsWanted(level, file, fmt)) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, fmt);
  std::vsnprintf(text, sizeof(text), fmt, arguments);
  va_end(arguments);
  m_console.Print("module {} {}:{} {}: {}", LevelName(level), file, line, func, text);
}

bool ConsoleLogger::IsPriorityEnabled(LogLevel level) {
  return m_verbose || level < KORVAIN_LOG_LEVEL_DEBUG;
}

}  // namespace example
