// A logger that keeps all that it gets as one text.
#ifndef KORVAIN_TESTS_RECORDING_LOGGER_H_
#define KORVAIN_TESTS_RECORDING_LOGGER_H_

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "service_api/korvain/korvain_service_log.h"

namespace test {

inline constexpr auto ERROR = KorvainService::KORVAIN_LOG_LEVEL_ERROR;
inline constexpr auto WARN = KorvainService::KORVAIN_LOG_LEVEL_WARN;
inline constexpr auto INFO = KorvainService::KORVAIN_LOG_LEVEL_INFO;
inline constexpr auto DEBUG = KorvainService::KORVAIN_LOG_LEVEL_DEBUG;
inline constexpr auto TRACE = KorvainService::KORVAIN_LOG_LEVEL_TRACE;

class RecordingLogger : public KorvainService::Logger {
 public:
  void Log(KorvainService::LogLevel level, int first, int second, const char* file, int line,
           const char* func, const char* fmt, ...) override __attribute__((format(printf, 8, 9))) {
    char message[1024];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(message, sizeof(message), fmt, arguments);
    va_end(arguments);
    text += std::to_string(level) + ' ' + func + ": " + message + '\n';
    is_place_sound &= first == 0 && second == 0 && line > 0 && strchr(file, '/') == nullptr;
    last_file = file;
    last_line = line;
    is_debug_only &= level == DEBUG;
  }

  bool IsPriorityEnabled(KorvainService::LogLevel level) override {
    ++priority_queries;
    return level <= enabled_level;
  }

  void* GetLoggerHandle() override { return nullptr; }

  // Level, function and message of each line so far, which are then forgotten.
  std::string TakeText() { return std::exchange(text, {}); }

  std::string text;
  bool is_place_sound = true;  // every line had a bare file name, a line and two zeros
  const char* last_file = "";
  int last_line = 0;
  bool is_debug_only = true;
  int priority_queries = 0;
  int enabled_level = INFO;
};

}  // namespace test

#endif  // KORVAIN_TESTS_RECORDING_LOGGER_H_
