// What the demo's programs read from the network: requests, responses and lines of reports. A
// message is written again and must be the same, lines are read beside the strict reader, and what
// waits for the rest of a report is bounded.
#include <string>

#include "demo/collect_server/report_assembler.h"
#include "demo/common/wire_format.h"
#include "input.h"
#include "support/strict_line_reader.h"

namespace {

void CheckMessages(const std::string& bytes) {
  const auto request = demo::DecodeRequest(bytes);
  if (request) FUZZ_CHECK(demo::Encode(*request) == bytes);
  const auto response = demo::DecodeResponse(bytes);
  if (response) FUZZ_CHECK(demo::Encode(*response) == bytes);
}

// The demo's reader takes what the strict one does, if there is a timestamp, and as the same.
void CheckLine(std::string_view text, const std::optional<demo::ReportLine>& line) {
  const size_t fields = line ? line->integers.size() + line->texts.size() : 1;
  FUZZ_CHECK(fields >= 1 && fields <= demo::MOST_FIELDS);
  if (line) FUZZ_CHECK(line->tags.size() <= demo::MOST_TAGS);
  const auto strict = KorvainService::test::StrictLineReader(text).Read();
  if (!strict || strict->count("_time") == 0 || strict->size() > demo::MOST_TAGS) return;
  FUZZ_CHECK(line);
  KorvainService::test::ReadLine flat(line->tags.begin(), line->tags.end());
  flat["_measurement"] = line->measurement;
  flat["_time"] = std::to_string(line->timestamp_ns);
  for (const auto& [key, value] : line->integers) flat[key] = std::to_string(value) + 'i';
  for (const auto& [key, value] : line->texts) flat[key] = '"' + value + '"';
  FUZZ_CHECK(flat == *strict);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const int seconds = input.Below(3);
  // Lines are short here; as if they were long, they fill what an assembler holds.
  const auto weight = size_t{1} << input.Below(20);
  const std::string datagram = input.Rest();
  CheckMessages(datagram);
  size_t taken = 0, passed_on = 0;
  demo::ReportAssembler::TimePoint now{};
  demo::ReportAssembler assembler(
      [&passed_on](const demo::AssembledReport& report) { passed_on += report.bytes; });
  for (const std::string_view text : demo::SplitLines(datagram)) {
    const auto line = demo::ReadReportLine(text);
    CheckLine(text, line);
    if (!line) continue;
    now += std::chrono::seconds(seconds);
    const size_t bytes = text.size() * weight;
    if (assembler.Add(line->Tag("zone"), *line, bytes, now)) taken += bytes;
    FUZZ_CHECK(assembler.BytesHeld() <= demo::ReportAssembler::MOST_BYTES);
    FUZZ_CHECK(assembler.BytesHeld() + passed_on == taken);
    assembler.PassOnOverdue(now);
  }
  assembler.PassOnAll();
  FUZZ_CHECK(assembler.BytesHeld() == 0 && passed_on == taken);
  return 0;
}
