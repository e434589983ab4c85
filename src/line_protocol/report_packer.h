// A report record as InfluxDB line protocol, the text that InfluxDB, VictoriaMetrics, vmagent and
// Telegraf take over UDP, and the division of that text into datagrams:
//
//   const std::string text = PackReport(record, settings);
//   for (const std::string_view datagram : SplitIntoDatagrams(text, 1400).datagrams) {
//     channel.Update();  // so that a server that has gone costs one datagram
//     channel.Send(datagram.data(), static_cast<int>(datagram.size()));
//   }
//
// The functions keep nothing between calls, so threads may call them at once; nobody may write to
// the record meanwhile.
//
// A report is one line korvain_overall, then one korvain_table for each table and one
// korvain_access for each access in use, at most 256 of each whatever the record's counts say.
//
// Tags of all lines are set_name, app, zone and instance. Table lines have table, access lines url
// and server, which is left out when the record has none. An empty table or url becomes "#" and the
// slot in the record, so that two of them are two series. Two entries with the same names are one
// series, in which the later line replaces the earlier.
//
// All fields but user_text are signed 64-bit integers:
//
//   requests_per_min, timeouts_per_min, ...  all lines: every PerMin counter, a rate
//   period_s                                 all lines: seconds; rate * period_s / 60 is the total,
//                                            or a little less, since rates are rounded down
//   delay_samples                            overall, access: the requests whose delay was taken
//   delay_ms                                 overall, access: their mean delay, left out when there
//                                            are none; what is beyond INT64_MAX becomes INT64_MAX
//   known_accesses, max_update_interval      overall: nAccessCount and dwMaxCallOnUpdateInterval,
//                                            as the service API keeps them, no rates
//   table_lines, access_lines                overall: lines of the report, to notice lost datagrams
//   pid                                      overall: the reporting process
//   user_text                                overall: the user-defined text unless it is empty
//
// Texts are read no further than their field of the record. As tag or field name a text arrives as
// it is but for what line protocol, as its common readers take it, cannot carry there:
//
//   a control character (below 0x20, and 0x7F)         a blank
//   a backslash before a backslash, blank, control     a slash
//     character, comma, equals sign, double quote
//     or the end of the text
//   a byte that is not part of well-formed UTF-8       a question mark
//
// In user_text backslashes and tabs arrive, too. Texts that differ in nothing else become the same.
#ifndef KORVAIN_REPORT_PACKER_H_
#define KORVAIN_REPORT_PACKER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "service_api/service_api_statistic.h"

#pragma GCC visibility push(default)

namespace KorvainService {

// Adds an integer field to the line being written. The name is copied; it must be none of the
// line's other field names, nor "time", which InfluxDB refuses. An empty one adds nothing.
using AddField = std::function<void(std::string_view name, int64_t value)>;

// Adds fields of the caller's own to the line of one access, given its slot in the record. The
// AddField is for use during the call only.
using AccessFields = std::function<void(int32_t slot, const AddField& add)>;

// What the record does not know. Texts are borrowed for the length of a call.
struct ReportSettings {
  const char* set_name = nullptr;  // null or empty: the id, likewise for the next two
  const char* app_name = nullptr;
  const char* zone_name = nullptr;

  // Names the process among those that report the same. Null or empty: host address and process
  // id, as in 10.0.0.1-4711 (4711 where the record has no address), so that each restart begins new
  // series.
  const char* instance = nullptr;

  // Seconds that the record covers: from the last report to the time given to CalculateAverage.
  // Below 1 it counts as unknown and there is no period_s.
  int64_t period_seconds = 0;

  // Nanoseconds since the epoch, the same in all lines. At 0 there is none, and the receiver takes
  // the time of arrival.
  int64_t timestamp_ns = 0;

  AccessFields access_fields;  // empty: no fields but those above
};

// The report of a record that CalculateAverage has rewritten, each line with its line end. Throws
// nothing but std::bad_alloc and what `access_fields` throws.
std::string PackReport(const SERVICEAPISTATISTIC& record, const ReportSettings& settings);

// The same, appended to a text whose memory is used again from report to report. When it throws,
// the text ends in an unfinished report.
void AppendReport(const SERVICEAPISTATISTIC& record, const ReportSettings& settings,
                  std::string& text);

// Most bytes that one UDP datagram carries over IPv4.
inline constexpr size_t MAX_UDP_PAYLOAD = 65507;

struct DatagramSplit {
  std::vector<std::string_view> datagrams;  // parts of the text, in its order, none empty
  size_t lines_left_out = 0;                // longer than `max_size` by themselves
};

// Divides a text at its line ends into datagrams of at most `max_size` bytes, line ends included,
// each filled with as many whole lines as follow one another and fit. A size above MAX_UDP_PAYLOAD
// counts as that. The datagrams are views into the text and live as long as it does.
//
// 1400 passes common networks unfragmented. It takes the overall line with 511 characters of user
// text and 200 of names, where a double quote or backslash counts twice. With short names a line
// has 300 to 600 bytes.
DatagramSplit SplitIntoDatagrams(std::string_view text, size_t max_size);
DatagramSplit SplitIntoDatagrams(const std::string&& text, size_t max_size) = delete;

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_REPORT_PACKER_H_
