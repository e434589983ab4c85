// The log sink that a service API implements and hands to every class of the module.
#ifndef KORVAIN_SERVICE_LOG_H_
#define KORVAIN_SERVICE_LOG_H_

#include "service_api/korvain/korvain_service_nonecopyable.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// Severity of a line; the lower the value, the graver the line.
enum LogLevel {
  KORVAIN_LOG_LEVEL_FATAL = 0,
  KORVAIN_LOG_LEVEL_ALERT = 100,
  KORVAIN_LOG_LEVEL_CRIT = 200,
  KORVAIN_LOG_LEVEL_ERROR = 300,
  KORVAIN_LOG_LEVEL_WARN = 400,
  KORVAIN_LOG_LEVEL_NOTICE = 500,
  KORVAIN_LOG_LEVEL_INFO = 600,
  KORVAIN_LOG_LEVEL_DEBUG = 700,
  KORVAIN_LOG_LEVEL_TRACE = 800,
};

// A Logger outlives every object that it was given to. It is called synchronously, on the thread
// and from within the operation that reports, so it must not call back into the reporting object.
// Every class of the module takes a null Logger as well and is then silent; results are the same.
// Lines come at every level and mostly unasked, so an implementation filters for itself: a proxy
// that goes down writes an ERROR line for each of its requests that times out.
class Logger : public NoneCopyable {
 public:
  // Writes one line; some of the texts end in a line end of their own. `fmt` and what follows are
  // as for printf; `file`, `line` and `func` name the place and operation that report and, like all
  // texts, are valid during the call only. The two unnamed numbers are 0 in every line of this
  // module.
  virtual void Log(LogLevel level, int, int, const char* file, int line, const char* func,
                   const char* fmt, ...) __attribute__((format(printf, 8, 9))) = 0;

  // Whether a line of this level would be written. Asked only by LatencyDataMgr::PushBack, before
  // its line at DEBUG.
  virtual bool IsPriorityEnabled(LogLevel level) = 0;

  // For the service API's own use; the module never asks for it.
  virtual void* GetLoggerHandle() = 0;
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_SERVICE_LOG_H_
