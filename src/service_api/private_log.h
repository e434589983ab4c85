// How the module's own code writes a log line. Not installed.
#ifndef KORVAIN_PRIVATE_LOG_H_
#define KORVAIN_PRIVATE_LOG_H_

#include "service_api/korvain/korvain_service_log.h"

namespace KorvainService {

// The part of a path behind its last slash: where the library was built is nobody's business.
constexpr const char* FileName(const char* path) {
  const char* name = path;
  for (const char* c = path; *c != '\0'; ++c) {
    if (*c == '/') name = c + 1;
  }
  return name;
}

}  // namespace KorvainService

// Writes one line in the name of `operation`. With a null logger the arguments are not evaluated.
#define KORVAIN_LOG_AS(operation, logger, level, ...)                                       \
  ((logger) == nullptr ? static_cast<void>(0)                                               \
                       : (logger)->Log((level), 0, 0, ::KorvainService::FileName(__FILE__), \
                                       __LINE__, (operation), __VA_ARGS__))

// Writes one line in the name of the enclosing function.
#define KORVAIN_LOG(logger, level, ...) KORVAIN_LOG_AS(__func__, logger, level, __VA_ARGS__)

// Logs like KORVAIN_LOG and yields `result`, so that a failing step is one return statement.
#define KORVAIN_FAIL(result, logger, level, ...) (KORVAIN_LOG(logger, level, __VA_ARGS__), (result))

#endif  // KORVAIN_PRIVATE_LOG_H_
