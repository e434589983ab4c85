// InfluxDB line protocol: measurement,tag=value field=1i,field="text" timestamp
#ifndef KORVAIN_EXAMPLES_LINE_PROTOCOL_H_
#define KORVAIN_EXAMPLES_LINE_PROTOCOL_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace example {

using FieldValue = std::variant<int64_t, double, bool, std::string>;

struct Line {
  std::string measurement;
  std::vector<std::pair<std::string, std::string>> tags;
  std::vector<std::pair<std::string, FieldValue>> fields;
  std::optional<int64_t> timestamp_ns;
};

// Writes one line with its line end; it needs at least one field, and doubles must be finite.
//
// What the protocol cannot carry is changed: line ends become spaces, a backslash at the end of a
// measurement, key or tag value becomes a slash, and a tag without a value is left out.
std::string FormatLine(const Line& line);

// Reads one line, given without its line end. Nothing for bytes that are not a line of the
// protocol; unsigned fields (suffix u) are not part of the dialect spoken here.
std::optional<Line> ParseLine(std::string_view text);

// Null when the line has no such tag.
const std::string* FindTag(const Line& line, std::string_view key);

// Nothing when the line has no such field or it is not an integer.
std::optional<int64_t> FindInteger(const Line& line, std::string_view key);

// The lines of `text` that are not empty, without their line ends.
std::vector<std::string_view> SplitLines(std::string_view text);

struct SplitReport {
  std::vector<std::string_view> datagrams;  // whole lines with their line ends, parts of the text
  size_t lines_left_out;                    // lines that no datagram can carry
};

// Divides lines into datagrams of at most `max_size` bytes. A longer line goes alone, unless it is
// too long for any datagram.
SplitReport SplitAtLineEnds(std::string_view text, size_t max_size);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_LINE_PROTOCOL_H_
