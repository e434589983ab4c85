// Records with any texts and counts through the packer, whose lines a strict reader takes and finds
// to say what the record holds; and any text through the splitter, beside a second one.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "input.h"
#include "line_protocol/report_packer.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

using test::ReadLine;

// How a text arrives as a tag or, where backslashes and tabs are kept, as a string.
std::string Arriving(std::string_view text, bool is_string = false) {
  std::string arriving;
  for (size_t size = 1; !text.empty(); text.remove_prefix(std::max<size_t>(size, 1))) {
    size = test::Utf8Size(text);
    const char next = text.size() > 1 ? text[1] : '\n';
    if (test::IsControl(text[0]) && !(is_string && text[0] == '\t')) {
      arriving += ' ';
    } else if (text[0] == '\\' && !is_string &&
               (test::IsControl(next) || strchr("\\ ,=\"", next) != nullptr)) {
      arriving += '/';
    } else {
      arriving += size == 0 ? "?" : text.substr(0, size);
    }
  }
  return arriving;
}

template <size_t SIZE>
void Fill(char (&field)[SIZE], fuzz::Input& input) {
  const std::string text = input.Text(static_cast<int>(std::min<size_t>(SIZE, 40)));
  memcpy(field, text.data(), text.size());
  if (input.Below(8) == 0) memset(field, '\\', SIZE);  // without a NUL
}

template <size_t SIZE>
std::string TextOf(const char (&field)[SIZE], const std::string& substitute = "") {
  const std::string text(field, strnlen(field, SIZE));
  return text.empty() ? substitute : text;
}

std::string Number(int64_t number) {
  return std::to_string(number) + 'i';
}

void FillRecord(fuzz::Input& input, SERVICEAPISTATISTIC& record) {
  record.iSetID = input.Any<int32_t>();
  record.stProcessInfo.iPid = input.Any<int32_t>();
  Fill(record.stProcessInfo.szIP, input);
  record.nTableCount = static_cast<int16_t>(input.Below(5) - 1);
  record.iAccessCount = input.Below(5) - 1;
  OVERALLRUNSTATUS& overall = record.stOverallRunStatus;
  overall.dwMaxCallOnUpdateInterval = input.Any<uint32_t>();
  overall.ullAverageDelay = input.Any<uint64_t>();
  overall.dwCalculateAverageDelayResCount = static_cast<uint32_t>(input.Below(3));
  Fill(overall.szUserDefinedText, input);
  for (int i = 0; i < 3; ++i) {
    Fill(record.astTableStatistic[i].szTableName, input);
    Fill(record.astAccessStatistic[i].stHostInfo.szUrl, input);
    Fill(record.astAccessStatistic[i].stHostInfo.szSvrId, input);
    record.astAccessStatistic[i].stAccessRunStatus.dwTimeoutCountPerMin = input.Any<uint32_t>();
  }
}

std::vector<ReadLine> LinesOfAnEmptyRecord() {
  const auto record = std::make_unique<SERVICEAPISTATISTIC>();
  record->nTableCount = 1;
  record->iAccessCount = 1;
  return test::ReadLines(PackReport(*record, {})).value();
}

// What an empty record's lines say and, before that, what the record does.
std::vector<ReadLine> ExpectedLines(const SERVICEAPISTATISTIC& record,
                                    const ReportSettings& settings, const std::string& field) {
  static const std::vector<ReadLine> empty = LinesOfAnEmptyRecord();
  const std::string pid = std::to_string(record.stProcessInfo.iPid);
  const std::string ip = TextOf(record.stProcessInfo.szIP);
  const std::string own_instance = ip.empty() ? pid : ip + '-' + pid;
  const std::string set_id = std::to_string(record.iSetID);
  ReadLine common = {{"set_name", Arriving(*settings.set_name ? settings.set_name : set_id)},
                     {"instance", Arriving(*settings.instance ? settings.instance : own_instance)}};
  if (settings.period_seconds > 0) common["period_s"] = Number(settings.period_seconds);
  if (settings.timestamp_ns != 0) common["_time"] = std::to_string(settings.timestamp_ns);
  std::vector<ReadLine> lines;
  const auto add = [&](size_t kind, ReadLine line) {
    line.insert(common.begin(), common.end());
    line.insert(empty[kind].begin(), empty[kind].end());
    lines.push_back(std::move(line));
  };
  const int tables = std::max<int>(record.nTableCount, 0);
  const int accesses = std::max<int>(record.iAccessCount, 0);
  const OVERALLRUNSTATUS& status = record.stOverallRunStatus;
  const int64_t samples = status.dwCalculateAverageDelayResCount;
  const uint64_t delay = std::min<uint64_t>(status.ullAverageDelay, INT64_MAX);
  ReadLine overall = {{"pid", pid + 'i'},
                      {"table_lines", Number(tables)},
                      {"access_lines", Number(accesses)},
                      {"delay_samples", Number(samples)},
                      {"max_update_interval", Number(status.dwMaxCallOnUpdateInterval)}};
  if (samples > 0) overall["delay_ms"] = Number(static_cast<int64_t>(delay));
  const std::string user_text = Arriving(TextOf(status.szUserDefinedText), true);
  if (!user_text.empty()) overall["user_text"] = '"' + user_text + '"';
  add(0, overall);
  for (int i = 0; i < tables; ++i) {
    const TABLESTATISTIC& table = record.astTableStatistic[i];
    add(1, {{"table", Arriving(TextOf(table.szTableName, '#' + std::to_string(i)))}});
  }
  for (int i = 0; i < accesses; ++i) {
    const ACCESSSTATISTIC& access = record.astAccessStatistic[i];
    const std::string server = Arriving(TextOf(access.stHostInfo.szSvrId));
    ReadLine line = {{"url", Arriving(TextOf(access.stHostInfo.szUrl, '#' + std::to_string(i)))},
                     {"timeouts_per_min", Number(access.stAccessRunStatus.dwTimeoutCountPerMin)},
                     {Arriving(field), Number(i)}};
    if (!server.empty()) line["server"] = server;
    add(2, line);
  }
  return lines;
}

// Line by line into the datagram at hand, as long as it has room.
void CheckSplit(std::string_view text, size_t max_size) {
  const DatagramSplit split = SplitIntoDatagrams(text, max_size);
  const size_t limit = std::min<size_t>(max_size, 65507);
  std::vector<std::string> expected(1);
  size_t left_out = 0;
  for (size_t size = 0; !text.empty(); text.remove_prefix(size)) {
    size = std::min(text.find('\n'), text.size() - 1) + 1;
    if (expected.back().size() + size > limit) expected.emplace_back();
    if (size > limit) ++left_out;
    if (size <= limit) expected.back() += text.substr(0, size);
  }
  expected.erase(std::remove(expected.begin(), expected.end(), ""), expected.end());
  FUZZ_CHECK(split.lines_left_out == left_out);
  FUZZ_CHECK(std::vector<std::string>(split.datagrams.begin(), split.datagrams.end()) == expected);
}

}  // namespace
}  // namespace KorvainService

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace KorvainService;
  fuzz::Input input(data, size);
  const auto max_size = static_cast<size_t>(input.Any<uint16_t>());
  static const auto record = std::make_unique<SERVICEAPISTATISTIC>();
  *record = SERVICEAPISTATISTIC();
  FillRecord(input, *record);
  const std::string set_name = input.Text(20), instance = input.Text(20);
  const std::string field = 'x' + input.Text(20);
  const AccessFields add_slot = [&](int32_t slot, const AddField& add) { add(field, slot); };
  const auto period = input.Any<int64_t>(), time = input.Any<int64_t>();
  const ReportSettings settings{set_name.c_str(), nullptr, nullptr, instance.c_str(),
                                period,           time,    add_slot};
  const std::string text = PackReport(*record, settings);
  FUZZ_CHECK(test::ReadLines(text) == ExpectedLines(*record, settings, field));
  CheckSplit(text, max_size);
  std::string lines = input.Rest();
  std::replace_if(
      lines.begin(), lines.end(), [](char c) { return c % 4 == 0; }, '\n');
  CheckSplit(lines, max_size % 32);
  return 0;
}
