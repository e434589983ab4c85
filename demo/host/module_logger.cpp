#include "demo/host/module_logger.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace demo {

using namespace KorvainService;

namespace {

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool IsWanted(LogLevel level, std::string_view file, std::string_view text) {
  if (StartsWith(text, "it is timeout") || StartsWith(text, "it send success")) return false;
  return level < KORVAIN_LOG_LEVEL_DEBUG || StartsWith(file, "udp_client");
}

}  // namespace

void ModuleLogger::Log(LogLevel level, int, int, const char* file, int line, const char* func,
                       const char* fmt, ...) {
  if (!IsWanted(level, file, fmt)) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, fmt);
  std::vsnprintf(text, sizeof(text), fmt, arguments);
  va_end(arguments);
  m_console.Note("module, level {}, {}:{} {}: {}", static_cast<int>(level), file, line, func, text);
}

bool ModuleLogger::IsPriorityEnabled(LogLevel level) {
  return level < KORVAIN_LOG_LEVEL_DEBUG;
}

}  // namespace demo
