// A report record as line protocol: how reports travel to the collect servers.
#ifndef KORVAIN_EXAMPLES_REPORT_LINES_H_
#define KORVAIN_EXAMPLES_REPORT_LINES_H_

#include <cstdint>
#include <string>

#include "service_api/service_api_statistic.h"

namespace example {

inline constexpr char PROCESS_MEASUREMENT[] = "korvain_process";
inline constexpr char TABLE_MEASUREMENT[] = "korvain_table";
inline constexpr char ACCESS_MEASUREMENT[] = "korvain_access";

// Null or empty names are left out.
struct ReportNames {
  const char* set = nullptr;
  const char* app = nullptr;
  const char* zone = nullptr;
};

// One line for the process, one for each table and one for each access in use. Counts outside of
// the record's arrays are taken for the nearest possible ones.
//
// The values are those of the record: after CalculateAverage counts are per minute and delay_ms is
// a mean, before it they are plain counts and a sum. Every InfluxDB has signed integers but not
// every one has unsigned ones, so a delay_ms beyond INT64_MAX becomes INT64_MAX.
std::string PackReport(const KorvainService::SERVICEAPISTATISTIC& record, const ReportNames& names,
                       int64_t timestamp_ns);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_REPORT_LINES_H_
