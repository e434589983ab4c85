// A report as aligned tables that a person can read.
#ifndef KORVAIN_EXAMPLES_REPORT_TABLE_H_
#define KORVAIN_EXAMPLES_REPORT_TABLE_H_

#include <string>
#include <string_view>

#include "examples/report_assembler.h"

namespace example {

// Bytes other than printable ASCII become '?', and what is very long is cut: a terminal must not
// obey what comes from the network.
std::string Printable(std::string_view text);

// One line: when, who and where.
std::string FormatTitle(const AssembledReport& report);

// The lines of the tables; counts are per minute.
std::string FormatTables(const AssembledReport& report);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_REPORT_TABLE_H_
