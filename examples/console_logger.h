// Prints the lines that the statistics module logs.
#ifndef KORVAIN_EXAMPLES_CONSOLE_LOGGER_H_
#define KORVAIN_EXAMPLES_CONSOLE_LOGGER_H_

#include "examples/program.h"
#include "service_api/korvain/korvain_service_log.h"

namespace example {

// Unless verbose, leaves out what repeats with every request or report, and all DEBUG lines but
// those about the channel to the collect servers, which the module reports at no other level.
class ConsoleLogger : public KorvainService::Logger {
 public:
  ConsoleLogger(const Console& console, bool verbose) : m_console(console), m_verbose(verbose) {}

  void Log(KorvainService::LogLevel level, int, int, const char* file, int line, const char* func,
           const char* fmt, ...) override __attribute__((format(printf, 8, 9)));
  bool IsPriorityEnabled(KorvainService::LogLevel level) override;
  void* GetLoggerHandle() override { return nullptr; }

 private:
  bool IsWanted(KorvainService::LogLevel level, const char* file, const char* fmt) const;

  const Console& m_console;
  bool m_verbose;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_CONSOLE_LOGGER_H_
