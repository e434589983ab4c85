#include "demo/common/report_line.h"

#include <algorithm>
#include <charconv>

namespace demo {

namespace {

bool IsOneOf(std::string_view characters, char c) {
  return characters.find(c) != std::string_view::npos;
}

// Reads from the front of a line. Each step says whether the line has what it reads.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : m_rest(text) {}

  bool Read(ReportLine& line) {
    if (!TakeName(line.measurement)) return false;
    while (Take(',')) {
      if (line.tags.size() >= MOST_TAGS || !TakeTag(line)) return false;
    }
    if (!Take(' ')) return false;
    do {
      if (line.integers.size() + line.texts.size() >= MOST_FIELDS || !TakeField(line)) return false;
    } while (Take(','));
    return Take(' ') && TakeInteger(line.timestamp_ns) && m_rest.empty();
  }

 private:
  bool Take(char c) {
    if (m_rest.empty() || m_rest.front() != c) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  // A backslash stands for itself unless it is before one of the characters that end a name.
  bool TakeName(std::string& name) {
    constexpr std::string_view DELIMITERS = ",= ";
    while (!m_rest.empty() && !IsOneOf(DELIMITERS, m_rest.front())) {
      if (m_rest.front() == '\\' && m_rest.size() > 1 && IsOneOf(DELIMITERS, m_rest[1])) {
        m_rest.remove_prefix(1);
      }
      name += m_rest.front();
      m_rest.remove_prefix(1);
    }
    return !name.empty();
  }

  bool TakeTag(ReportLine& line) {
    std::string key;
    std::string value;
    return TakeName(key) && Take('=') && TakeName(value) && line.tags.emplace(key, value).second;
  }

  bool TakeField(ReportLine& line) {
    std::string key;
    if (!TakeName(key) || !Take('=')) return false;
    if (line.integers.count(key) + line.texts.count(key) > 0) return false;
    return Take('"') ? TakeText(line.texts[key]) : TakeInteger(line.integers[key]) && Take('i');
  }

  bool TakeText(std::string& text) {
    while (!m_rest.empty() && m_rest.front() != '"') {
      if (m_rest.front() == '\\' && m_rest.size() > 1 && IsOneOf("\"\\", m_rest[1])) {
        m_rest.remove_prefix(1);
      }
      text += m_rest.front();
      m_rest.remove_prefix(1);
    }
    return Take('"');
  }

  bool TakeInteger(int64_t& number) {
    const char* const end = m_rest.data() + m_rest.size();
    const auto [stop, error] = std::from_chars(m_rest.data(), end, number);
    m_rest.remove_prefix(static_cast<size_t>(stop - m_rest.data()));
    return error == std::errc();
  }

  std::string_view m_rest;
};

}  // namespace

const std::string& ReportLine::Tag(const std::string& key) const {
  static const std::string NONE;
  const auto tag = tags.find(key);
  return tag == tags.end() ? NONE : tag->second;
}

std::optional<int64_t> ReportLine::Integer(const std::string& key) const {
  const auto field = integers.find(key);
  return field == integers.end() ? std::nullopt : std::optional<int64_t>(field->second);
}

std::optional<ReportLine> ReadReportLine(std::string_view text) {
  ReportLine line;
  if (!LineReader(text).Read(line)) return std::nullopt;
  return line;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace demo
