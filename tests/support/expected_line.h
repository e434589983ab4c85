// A log line that is expected, written as printf would.
#ifndef KORVAIN_TESTS_EXPECTED_LINE_H_
#define KORVAIN_TESTS_EXPECTED_LINE_H_

#include <cstdarg>
#include <cstdio>

#include "support/recording_logger.h"

namespace test {

__attribute__((format(printf, 3, 4))) inline LogLine Expect(int level, const char* func,
                                                            const char* fmt, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, fmt);
  vsnprintf(text, sizeof(text), fmt, arguments);
  va_end(arguments);
  return {level, func, text};
}

}  // namespace test

#endif  // KORVAIN_TESTS_EXPECTED_LINE_H_
