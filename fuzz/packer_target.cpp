// Records with any texts and counts through the packer, whose lines a strict reader takes and finds
// to say what the record holds; and any text through the splitter, beside a second one.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "input.h"
#include "line_protocol/report_packer.h"
#include "support/strict_line_reader.h"

namespace KorvainService {
namespace {

using test::IsUtf8;
using test::ReadLine;
using test::StrictLineReader;

// How a text arrives as a tag or, where backslashes and tabs are kept, as a string.
std::string Arriving(const std::string& text, bool is_string) {
  std::string arriving;
  for (size_t i = 0; i < text.size();) {
    size_t size = 1;
    while (size < 5 && (i + size > text.size() || !IsUtf8(text.substr(i, size)))) ++size;
    const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; };
    const std::string next = text.substr(i + 1, 1);
    if (size == 5) {
      arriving += '?';
      size = 1;
    } else if (is_control(text[i]) && !(is_string && text[i] == '\t')) {
      arriving += ' ';
    } else if (text[i] == '\\' && !is_string &&
               (next.empty() || is_control(next[0]) || strchr("\\ ,=\"", next[0]) != nullptr)) {
      arriving += '/';
    } else {
      arriving += text.substr(i, size);
    }
    i += size;
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
std::string TextOf(const char (&field)[SIZE]) {
  return {field, strnlen(field, SIZE)};
}

// Mostly as few as are worth reading.
int CountFrom(fuzz::Input& input) {
  const int count = input.Byte();
  return count == 255 ? 300 : count % 5 - 1;
}

void FillRecord(fuzz::Input& input, SERVICEAPISTATISTIC& record) {
  record.iSetID = input.Any<int32_t>();
  record.stProcessInfo.iPid = input.Any<int32_t>();
  Fill(record.stProcessInfo.szIP, input);
  record.nTableCount = static_cast<int16_t>(CountFrom(input));
  record.iAccessCount = CountFrom(input);
  OVERALLRUNSTATUS& overall = record.stOverallRunStatus;
  overall.dwRequestCountPerMin = input.Any<uint32_t>();
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

std::string NameOr(const std::string& name, int64_t id) {
  return Arriving(name.empty() ? std::to_string(id) : name, false);
}

std::string NameOrSlot(const std::string& name, int slot) {
  return Arriving(name.empty() ? "#" + std::to_string(slot) : name, false);
}

class ReportCheck {
 public:
  ReportCheck(fuzz::Input& input, SERVICEAPISTATISTIC& record) : m_record(record) {
    FillRecord(input, record);
    m_set_name = input.Text(20).c_str();
    m_instance = input.Text(20).c_str();
    m_field = "x" + std::string(input.Text(20).c_str());
    m_settings.set_name = m_set_name.c_str();
    m_settings.instance = m_instance.c_str();
    m_settings.period_seconds = input.Any<int64_t>();
    m_settings.timestamp_ns = input.Any<int64_t>();
    m_settings.access_fields = [this](int32_t slot, const AddField& add) { add(m_field, slot); };
  }

  std::string PackAndCheck() {
    const std::string text = PackReport(m_record, m_settings);
    const int tables = std::clamp<int>(m_record.nTableCount, 0, 256);
    const int accesses = std::clamp<int>(m_record.iAccessCount, 0, 256);
    size_t begin = 0;
    CheckOverall(Next(text, begin), tables, accesses);
    for (int slot = 0; slot < tables; ++slot) {
      const ReadLine line = Next(text, begin);
      FUZZ_CHECK(line.measurement == "korvain_table" && line.tags.size() == 5);
      const std::string name = TextOf(m_record.astTableStatistic[slot].szTableName);
      FUZZ_CHECK(line.tags.at("table") == NameOrSlot(name, slot));
    }
    for (int slot = 0; slot < accesses; ++slot) CheckAccess(Next(text, begin), slot);
    FUZZ_CHECK(begin == text.size());
    return text;
  }

 private:
  // What all lines have is checked here.
  ReadLine Next(const std::string& text, size_t& begin) const {
    const size_t end = text.find('\n', begin);
    FUZZ_CHECK(end != text.npos);
    const auto line = StrictLineReader::Read(text.substr(begin, end - begin));
    FUZZ_CHECK(line.has_value());
    begin = end + 1;
    FUZZ_CHECK(line->tags.at("set_name") == NameOr(m_set_name, m_record.iSetID));
    FUZZ_CHECK(line->tags.at("instance") == InstanceTag());
    FUZZ_CHECK(line->numbers.count("period_s") == (m_settings.period_seconds > 0 ? 1u : 0u));
    FUZZ_CHECK(line->timestamp.value_or(0) == m_settings.timestamp_ns);
    return *line;
  }

  std::string InstanceTag() const {
    if (!m_instance.empty()) return Arriving(m_instance, false);
    const std::string ip = TextOf(m_record.stProcessInfo.szIP);
    return Arriving(ip.empty() ? "" : ip + "-", false) +
           std::to_string(m_record.stProcessInfo.iPid);
  }

  void CheckOverall(const ReadLine& line, int tables, int accesses) const {
    const OVERALLRUNSTATUS& overall = m_record.stOverallRunStatus;
    FUZZ_CHECK(line.measurement == "korvain_overall" && line.tags.size() == 4);
    FUZZ_CHECK(line.numbers.at("table_lines") == tables);
    FUZZ_CHECK(line.numbers.at("access_lines") == accesses);
    FUZZ_CHECK(line.numbers.at("requests_per_min") == overall.dwRequestCountPerMin);
    const uint32_t samples = overall.dwCalculateAverageDelayResCount;
    FUZZ_CHECK(line.numbers.at("delay_samples") == samples);
    FUZZ_CHECK(line.numbers.count("delay_ms") == (samples > 0 ? 1u : 0u));
    if (samples > 0) {
      const auto delay =
          static_cast<int64_t>(std::min<uint64_t>(overall.ullAverageDelay, INT64_MAX));
      FUZZ_CHECK(line.numbers.at("delay_ms") == delay);
    }
    const std::string user_text = TextOf(overall.szUserDefinedText);
    FUZZ_CHECK(line.texts.size() == (user_text.empty() ? 0u : 1u));
    if (!user_text.empty()) FUZZ_CHECK(line.texts.at("user_text") == Arriving(user_text, true));
  }

  void CheckAccess(const ReadLine& line, int slot) const {
    const ACCESSSTATISTIC& access = m_record.astAccessStatistic[slot];
    FUZZ_CHECK(line.measurement == "korvain_access");
    FUZZ_CHECK(line.tags.at("url") == NameOrSlot(TextOf(access.stHostInfo.szUrl), slot));
    const std::string server = TextOf(access.stHostInfo.szSvrId);
    FUZZ_CHECK(line.tags.count("server") == (server.empty() ? 0u : 1u));
    if (!server.empty()) FUZZ_CHECK(line.tags.at("server") == Arriving(server, false));
    FUZZ_CHECK(line.numbers.at(Arriving(m_field, false)) == slot);
    FUZZ_CHECK(line.numbers.at("timeouts_per_min") ==
               access.stAccessRunStatus.dwTimeoutCountPerMin);
  }

  const SERVICEAPISTATISTIC& m_record;
  std::string m_set_name, m_instance, m_field;
  ReportSettings m_settings;
};

// Line by line into the datagram at hand, as long as it has room.
void CheckSplit(const std::string& text, size_t max_size) {
  const size_t limit = std::min<size_t>(max_size, 65507);
  std::vector<std::string> expected(1);
  size_t left_out = 0;
  for (size_t begin = 0, end = 0; begin < text.size(); begin = end) {
    end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    const bool is_too_long = end - begin > limit;
    if (is_too_long || expected.back().size() + end - begin > limit) expected.emplace_back();
    if (is_too_long) {
      ++left_out;
    } else {
      expected.back() += text.substr(begin, end - begin);
    }
  }
  expected.erase(std::remove(expected.begin(), expected.end(), ""), expected.end());
  const DatagramSplit split = SplitIntoDatagrams(text, max_size);
  FUZZ_CHECK(split.lines_left_out == left_out);
  FUZZ_CHECK(
      std::equal(split.datagrams.begin(), split.datagrams.end(), expected.begin(), expected.end()));
}

}  // namespace
}  // namespace KorvainService

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const auto record = std::make_unique<KorvainService::SERVICEAPISTATISTIC>();
  *record = KorvainService::SERVICEAPISTATISTIC();
  fuzz::Input input(data, size);
  const auto max_size = static_cast<size_t>(input.Any<uint16_t>());
  KorvainService::CheckSplit(KorvainService::ReportCheck(input, *record).PackAndCheck(), max_size);
  KorvainService::CheckSplit(input.Rest(), max_size % 32);
  return 0;
}
