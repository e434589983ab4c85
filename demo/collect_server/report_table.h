// A report as aligned tables that a person can read.
#ifndef KORVAIN_DEMO_REPORT_TABLE_H_
#define KORVAIN_DEMO_REPORT_TABLE_H_

#include <string>
#include <string_view>

#include "demo/collect_server/report_assembler.h"

namespace demo {

// Bytes other than printable ASCII become '?', and what is very long is cut: a terminal must not
// obey what comes from the network.
std::string Printable(std::string_view text);

// One line: who, where and for how long.
std::string FormatTitle(const AssembledReport& report);

// The lines of the tables; counts are per minute.
std::string FormatTables(const AssembledReport& report);

}  // namespace demo

#endif  // KORVAIN_DEMO_REPORT_TABLE_H_
