// What a time series database gives back of reports, as the lines that they were.
#ifndef KORVAIN_DEMO_STORED_LINES_H_
#define KORVAIN_DEMO_STORED_LINES_H_

#include <map>
#include <string>

#include "tests/system/recorded_run.h"

namespace demo {

// By instance. The file is what /api/v1/export answers: a series a line, in JSON. There each field
// is a series of its own, named measurement_field, with stamps in milliseconds; a text field is
// kept as 0. What belongs to no report is counted as unusable. Throws UsageError.
std::map<std::string, CollectedFile> ReadStoredLines(const std::string& path);

}  // namespace demo

#endif  // KORVAIN_DEMO_STORED_LINES_H_
