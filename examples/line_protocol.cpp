#include "examples/line_protocol.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "examples/udp_socket.h"

namespace example {

namespace {

constexpr std::string_view MEASUREMENT_DELIMITERS = ", ";
constexpr std::string_view KEY_DELIMITERS = ",= ";
constexpr std::string_view STRING_DELIMITERS = "\"\\";

bool IsOneOf(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}

std::string WithEscapes(std::string_view text, std::string_view delimiters) {
  std::string escaped;
  for (const char c : text) {
    const char carried = c == '\n' || c == '\r' ? ' ' : c;
    if (IsOneOf(delimiters, carried)) escaped += '\\';
    escaped += carried;
  }
  return escaped;
}

// The protocol has no escape for a backslash outside strings, so a final one would take away the
// delimiter that follows.
std::string EscapeName(std::string_view text, std::string_view delimiters) {
  std::string escaped = WithEscapes(text, delimiters);
  if (!text.empty() && text.back() == '\\') escaped.back() = '/';
  return escaped;
}

std::string FormatValue(const FieldValue& value) {
  if (const auto* integer = std::get_if<int64_t>(&value)) return fmt::format("{}i", *integer);
  if (const auto* truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  if (const auto* number = std::get_if<double>(&value)) return fmt::format("{}", *number);
  return '"' + WithEscapes(std::get<std::string>(value), STRING_DELIMITERS) + '"';
}

template <class Number>
std::optional<Number> ParseWhole(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<FieldValue> ParseBare(std::string_view text) {
  if (text.empty()) return std::nullopt;
  for (const char* truth : {"t", "T", "true", "True", "TRUE"}) {
    if (text == truth) return true;
  }
  for (const char* falsehood : {"f", "F", "false", "False", "FALSE"}) {
    if (text == falsehood) return false;
  }
  if (text.back() == 'i') {
    const auto integer = ParseWhole<int64_t>(text.substr(0, text.size() - 1));
    return integer ? std::optional<FieldValue>(*integer) : std::nullopt;
  }
  const auto number = ParseWhole<double>(text);
  return number && std::isfinite(*number) ? std::optional<FieldValue>(*number) : std::nullopt;
}

class LineParser {
 public:
  explicit LineParser(std::string_view text) : m_rest(text) {}

  std::optional<Line> Parse() {
    const bool well_formed =
        TakeName(MEASUREMENT_DELIMITERS, &m_line.measurement) && TakeTags() && TakeFields();
    if (!well_formed || m_line.measurement[0] == '#') return std::nullopt;  // '#' begins a comment
    if (m_rest.empty()) return m_line;
    if (!TakeOne(' ')) return std::nullopt;
    m_line.timestamp_ns = ParseWhole<int64_t>(m_rest);
    return m_line.timestamp_ns ? std::optional<Line>(m_line) : std::nullopt;
  }

 private:
  bool TakeOne(char c) {
    if (m_rest.empty() || m_rest.front() != c) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  bool TakeName(std::string_view delimiters, std::string* name) {
    size_t i = 0;
    while (i < m_rest.size() && !IsOneOf(delimiters, m_rest[i])) {
      const bool is_escape =
          m_rest[i] == '\\' && i + 1 < m_rest.size() && IsOneOf(delimiters, m_rest[i + 1]);
      if (is_escape) ++i;
      name->push_back(m_rest[i++]);
    }
    m_rest.remove_prefix(i);
    return !name->empty();
  }

  bool TakeTags() {
    while (TakeOne(',')) {
      auto& [key, value] = m_line.tags.emplace_back();
      if (!TakeName(KEY_DELIMITERS, &key) || !TakeOne('=') || !TakeName(KEY_DELIMITERS, &value)) {
        return false;
      }
    }
    return TakeOne(' ');
  }

  bool TakeFields() {
    do {
      auto& [key, value] = m_line.fields.emplace_back();
      if (!TakeName(KEY_DELIMITERS, &key) || !TakeOne('=') || !TakeValue(&value)) return false;
    } while (TakeOne(','));
    return true;
  }

  bool TakeValue(FieldValue* value) {
    if (TakeOne('"')) return TakeRestOfString(&value->emplace<std::string>());
    const size_t end = std::min(m_rest.find_first_of(", "), m_rest.size());
    const std::optional<FieldValue> bare = ParseBare(m_rest.substr(0, end));
    m_rest.remove_prefix(end);
    if (bare) *value = *bare;
    return bare.has_value();
  }

  bool TakeRestOfString(std::string* text) {
    for (size_t i = 0; i < m_rest.size(); ++i) {
      if (m_rest[i] == '"') {
        m_rest.remove_prefix(i + 1);
        return true;
      }
      const bool is_escape =
          m_rest[i] == '\\' && i + 1 < m_rest.size() && IsOneOf(STRING_DELIMITERS, m_rest[i + 1]);
      if (is_escape) ++i;
      text->push_back(m_rest[i]);
    }
    return false;
  }

  std::string_view m_rest;
  Line m_line;
};

// The length of the first line of a text that is not empty, its line end included.
size_t FirstLineSize(std::string_view text) {
  const size_t end = text.find('\n');
  return end == std::string_view::npos ? text.size() : end + 1;
}

}  // namespace

std::string FormatLine(const Line& line) {
  std::string text = EscapeName(line.measurement, MEASUREMENT_DELIMITERS);
  for (const auto& [key, value] : line.tags) {
    if (value.empty()) continue;
    text += ',' + EscapeName(key, KEY_DELIMITERS) + '=' + EscapeName(value, KEY_DELIMITERS);
  }
  char separator = ' ';
  for (const auto& [key, value] : line.fields) {
    text += separator + EscapeName(key, KEY_DELIMITERS) + '=' + FormatValue(value);
    separator = ',';
  }
  if (line.timestamp_ns) text += fmt::format(" {}", *line.timestamp_ns);
  return text + '\n';
}

std::optional<Line> ParseLine(std::string_view text) {
  if (text.find('\n') != std::string_view::npos) return std::nullopt;
  return LineParser(text).Parse();
}

const std::string* FindTag(const Line& line, std::string_view key) {
  for (const auto& tag : line.tags) {
    if (tag.first == key) return &tag.second;
  }
  return nullptr;
}

std::optional<int64_t> FindInteger(const Line& line, std::string_view key) {
  for (const auto& [name, value] : line.fields) {
    if (name != key) continue;
    const auto* integer = std::get_if<int64_t>(&value);
    return integer == nullptr ? std::nullopt : std::optional<int64_t>(*integer);
  }
  return std::nullopt;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t size = FirstLineSize(text);
    std::string_view line = text.substr(0, size);
    if (line.back() == '\n') line.remove_suffix(1);
    if (!line.empty()) lines.push_back(line);
    text.remove_prefix(size);
  }
  return lines;
}

SplitReport SplitAtLineEnds(std::string_view text, size_t max_size) {
  SplitReport split{};
  size_t begin = 0;  // of the datagram that is being filled
  size_t end = 0;
  const auto finish_datagram = [&](size_t next_begin) {
    if (end > begin) split.datagrams.push_back(text.substr(begin, end - begin));
    begin = end = next_begin;
  };
  while (end < text.size()) {
    const size_t size = FirstLineSize(text.substr(end));
    if (size > MAX_DATAGRAM_SIZE) {
      ++split.lines_left_out;
      finish_datagram(end + size);
      continue;
    }
    if (end - begin + size > std::min(max_size, MAX_DATAGRAM_SIZE)) finish_datagram(end);
    end += size;
  }
  finish_datagram(end);
  return split;
}

}  // namespace example
