// How the module's own code writes a log line. Not installed.
#ifndef KORVAIN_DETAIL_LOG_H_
#define KORVAIN_DETAIL_LOG_H_

#include "service_api/korvain/korvain_service_log.h"

namespace KorvainService::detail {

// The part of a path behind its last slash: where the library was built is nobody's business.
constexpr const char* FileName(const char* path) {
  const char* name = path;
  for (const char* c = path; *c != '\0'; ++c) {
    if (*c == '/') name = c + 1;
  }
  return name;
}

}  // namespace KorvainService::detail

// Writes one line in the name of `operation`. With a null logger the arguments are not evaluated.
#define KORVAIN_LOG_AS(operation, logger, level, ...)                                         \
  ((logger) == nullptr                                                                        \
       ? static_cast<void>(0)                                                                 \
       : (logger)->Log((level), 0, 0, ::KorvainService::detail::FileName(__FILE__), __LINE__, \
                       (operation), __VA_ARGS__))

// Writes one line in the name of the enclosing function.
#define KORVAIN_LOG(logger, level, ...) KORVAIN_LOG_AS(__func__, logger, level, __VA_ARGS__)

// Log likewise and yield `result`, so that a failing step is one return statement.
#define KORVAIN_FAIL_AS(operation, result, logger, level, ...) \
  (KORVAIN_LOG_AS(operation, logger, level, __VA_ARGS__), (result))
#define KORVAIN_FAIL(result, logger, level, ...) \
  KORVAIN_FAIL_AS(__func__, result, logger, level, __VA_ARGS__)

#endif  // KORVAIN_DETAIL_LOG_H_
