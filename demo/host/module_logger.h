// Takes the lines that the statistics module logs.
#ifndef KORVAIN_DEMO_MODULE_LOGGER_H_
#define KORVAIN_DEMO_MODULE_LOGGER_H_

#include "demo/common/console.h"
#include "service_api/korvain/korvain_service_log.h"

namespace demo {

// Leaves out DEBUG lines but those of the transport, which has no others, and what repeats with
// every request or datagram.
class ModuleLogger : public KorvainService::Logger {
 public:
  explicit ModuleLogger(Console& console) : m_console(console) {}

  void Log(KorvainService::LogLevel level, int, int, const char* file, int line, const char* func,
           const char* fmt, ...) override __attribute__((format(printf, 8, 9)));
  bool IsPriorityEnabled(KorvainService::LogLevel level) override;
  void* GetLoggerHandle() override { return nullptr; }

 private:
  Console& m_console;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_MODULE_LOGGER_H_
