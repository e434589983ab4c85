// Takes the lines that the statistics module logs.
#ifndef KORVAIN_DEMO_MODULE_LOGGER_H_
#define KORVAIN_DEMO_MODULE_LOGGER_H_

#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "demo/common/console.h"
#include "service_api/korvain/korvain_service_log.h"

namespace demo {

// Leaves out what repeats with every request or datagram.
class ModuleLogger : public KorvainService::Logger {
 public:
  explicit ModuleLogger(Console& console) : m_console(console) {}

  void Log(KorvainService::LogLevel level, int, int, const char* file, int line, const char* func,
           const char* fmt, ...) override __attribute__((format(printf, 8, 9))) {
    const std::string_view wording = fmt;
    if (wording.rfind("it is timeout", 0) == 0 || wording.rfind("it send success", 0) == 0) return;
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    std::vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    m_console.Note("module, level {}, {}:{} {}: {}", static_cast<int>(level), file, line, func,
                   text);
  }

  // The lines of each request, which the module does not even write then.
  bool IsPriorityEnabled(KorvainService::LogLevel level) override {
    return level < KorvainService::KORVAIN_LOG_LEVEL_DEBUG;
  }

  void* GetLoggerHandle() override { return nullptr; }

 private:
  Console& m_console;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_MODULE_LOGGER_H_
