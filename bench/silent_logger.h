// A logger that wants nothing below WARN.
#ifndef KORVAIN_BENCH_SILENT_LOGGER_H_
#define KORVAIN_BENCH_SILENT_LOGGER_H_

#include "service_api/korvain/korvain_service_log.h"

namespace bench {

class SilentLogger : public KorvainService::Logger {
 public:
  void Log(KorvainService::LogLevel, int, int, const char*, int, const char*, const char*,
           ...) override {}
  bool IsPriorityEnabled(KorvainService::LogLevel level) override {
    return level <= KorvainService::KORVAIN_LOG_LEVEL_WARN;
  }
  void* GetLoggerHandle() override { return nullptr; }
};

}  // namespace bench

#endif  // KORVAIN_BENCH_SILENT_LOGGER_H_
