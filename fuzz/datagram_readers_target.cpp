// What the demo's programs read from the network: requests, responses and lines of reports. What
// is read is written again and must read the same; what waits for the rest of a report is bounded.
#include "demo/collect_server/report_assembler.h"
#include "demo/common/wire_format.h"
#include "input.h"

namespace {

void CheckMessages(const std::string& bytes) {
  const auto request = demo::DecodeRequest(bytes);
  if (request) FUZZ_CHECK(demo::Encode(*request) == bytes);
  const auto response = demo::DecodeResponse(bytes);
  if (response) FUZZ_CHECK(demo::Encode(*response) == bytes);
  FUZZ_CHECK(!(request && response));
}

std::string Escaped(const std::string& text, const std::string& special) {
  std::string escaped;
  for (const char c : text) {
    if (special.find(c) != std::string::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string Name(const std::string& name) {
  return Escaped(name, ",= ");
}

std::string Write(const demo::ReportLine& line) {
  std::string text = Name(line.measurement);
  for (const auto& [key, value] : line.tags) text += ',' + Name(key) + '=' + Name(value);
  char separator = ' ';
  for (const auto& [key, value] : line.integers) {
    text += separator + Name(key) + '=' + std::to_string(value) + 'i';
    separator = ',';
  }
  for (const auto& [key, value] : line.texts) {
    text += separator + Name(key) + "=\"" + Escaped(value, "\"\\") + '"';
    separator = ',';
  }
  return text + ' ' + std::to_string(line.timestamp_ns);
}

void CheckLine(const demo::ReportLine& line) {
  FUZZ_CHECK(line.tags.size() <= demo::MOST_TAGS);
  const size_t fields = line.integers.size() + line.texts.size();
  FUZZ_CHECK(fields >= 1 && fields <= demo::MOST_FIELDS);
  const auto again = demo::ReadReportLine(Write(line));
  FUZZ_CHECK(again && again->measurement == line.measurement && again->tags == line.tags);
  FUZZ_CHECK(again->integers == line.integers && again->texts == line.texts);
  FUZZ_CHECK(again->timestamp_ns == line.timestamp_ns);
}

// Feeds an assembler and sees to it that every byte it takes is passed on once.
class Collector {
 public:
  void Take(const demo::ReportLine& line, size_t size, int seconds) {
    m_now += std::chrono::seconds(seconds);
    if (m_assembler.Add(line.Tag("zone"), line, size, m_now)) m_taken += size;
    FUZZ_CHECK(m_assembler.BytesHeld() <= demo::ReportAssembler::MOST_BYTES);
    FUZZ_CHECK(m_assembler.BytesHeld() + m_passed_on == m_taken);
    m_assembler.PassOnOverdue(m_now);
  }

  void Finish() {
    m_assembler.PassOnAll();
    FUZZ_CHECK(m_assembler.BytesHeld() == 0);
    FUZZ_CHECK(m_passed_on == m_taken);
  }

 private:
  size_t m_taken = 0;
  size_t m_passed_on = 0;
  demo::ReportAssembler::TimePoint m_now{};
  demo::ReportAssembler m_assembler{
      [this](const demo::AssembledReport& report) { m_passed_on += report.bytes; }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const int seconds = input.Below(3);
  // Lines are short here; as if they were long, they fill what an assembler holds.
  const auto weight = size_t{1} << input.Below(20);
  const std::string datagram = input.Rest();
  CheckMessages(datagram);
  Collector collector;
  for (const std::string_view text : demo::SplitLines(datagram)) {
    const auto line = demo::ReadReportLine(text);
    if (!line) continue;
    CheckLine(*line);
    collector.Take(*line, text.size() * weight, seconds);
  }
  collector.Finish();
  return 0;
}
