// A logger that keeps every line it gets.
#ifndef KORVAIN_TESTS_RECORDING_LOGGER_H_
#define KORVAIN_TESTS_RECORDING_LOGGER_H_

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "service_api/korvain/korvain_service_log.h"

namespace test {

struct LogLine {
  int level;
  std::string func;
  std::string text;
  std::string file{};  // where it comes from, not compared
  int line = 0;

  bool operator==(const LogLine& other) const {
    return level == other.level && func == other.func && text == other.text;
  }
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.level << ' ' << line.func << ": " << line.text;
}

// A line written as printf would.
__attribute__((format(printf, 3, 4))) inline LogLine Expect(int level, const char* func,
                                                            const char* fmt, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, fmt);
  vsnprintf(text, sizeof(text), fmt, arguments);
  va_end(arguments);
  return {level, func, text};
}

using LogLines = std::vector<LogLine>;

class RecordingLogger : public KorvainService::Logger {
 public:
  void Log(KorvainService::LogLevel level, int first, int second, const char* file, int line,
           const char* func, const char* fmt, ...) override __attribute__((format(printf, 8, 9))) {
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    is_place_sound &= first == 0 && second == 0 && line > 0 && strchr(file, '/') == nullptr;
    lines.push_back({level, func, text, file, line});
  }

  bool IsPriorityEnabled(KorvainService::LogLevel level) override {
    ++priority_queries;
    return level <= enabled_level;
  }

  void* GetLoggerHandle() override { return nullptr; }

  // The lines so far, which are then forgotten.
  LogLines Take() { return std::exchange(lines, {}); }

  // The same as one text: level, function and message of each line.
  std::string TakeText() {
    std::ostringstream text;
    for (const LogLine& line : Take()) text << line << '\n';
    return text.str();
  }

  LogLines lines;
  bool is_place_sound = true;  // every line had a bare file name, a line and two zeros
  int priority_queries = 0;
  int enabled_level = KorvainService::KORVAIN_LOG_LEVEL_INFO;
};

inline constexpr int ERROR = KorvainService::KORVAIN_LOG_LEVEL_ERROR;
inline constexpr int WARN = KorvainService::KORVAIN_LOG_LEVEL_WARN;
inline constexpr int INFO = KorvainService::KORVAIN_LOG_LEVEL_INFO;
inline constexpr int DEBUG = KorvainService::KORVAIN_LOG_LEVEL_DEBUG;
inline constexpr int TRACE = KorvainService::KORVAIN_LOG_LEVEL_TRACE;

}  // namespace test

#endif  // KORVAIN_TESTS_RECORDING_LOGGER_H_
