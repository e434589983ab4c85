// The millisecond clock of the service API, read by the module.
#ifndef KORVAIN_SERVICE_CLOCK_H_
#define KORVAIN_SERVICE_CLOCK_H_

#include <cstdint>

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// The current time in milliseconds. Its whole seconds must agree with the times that the caller
// gives to the report schedule, and send and receive times of requests must be read from it. The
// proxy judge does not read it: its seconds are those of the wall clock.
//
// The library's own definition is the wall clock (milliseconds since the epoch) and is a weak
// symbol: a service API with a clock of its own defines this function and thereby replaces it.
int64_t GetCurrentMilliseconds();

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_SERVICE_CLOCK_H_
