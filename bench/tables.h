// The tables of the report, by subject.
#ifndef KORVAIN_BENCH_TABLES_H_
#define KORVAIN_BENCH_TABLES_H_

#include "report.h"

namespace bench {

// Beside what others do. Without goals: such ratios of times differ from machine to machine.
void PrintComparisons(Report& report);

// Growth, where a ratio of times says how the code behaves whatever the machine.
void PrintScaling(Report& report);

}  // namespace bench

#endif  // KORVAIN_BENCH_TABLES_H_
