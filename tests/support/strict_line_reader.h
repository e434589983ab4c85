// Reads line protocol as the strictest of its common readers would. Where readers differ, as on a
// backslash before another one, it refuses, so that what it takes means the same to all of them.
#ifndef KORVAIN_TESTS_STRICT_LINE_READER_H_
#define KORVAIN_TESTS_STRICT_LINE_READER_H_

#include <gtest/gtest.h>

#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KorvainService::test {

struct ReadLine {
  std::string measurement;
  std::map<std::string, std::string> tags;
  std::map<std::string, int64_t> numbers;
  std::map<std::string, std::string> texts;
  std::optional<int64_t> timestamp;
};

inline bool IsUtf8(std::string_view text) {
  constexpr uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
  for (size_t i = 0; i < text.size();) {
    const uint32_t lead = static_cast<unsigned char>(text[i]);
    const size_t size = lead < 0x80       ? 1
                        : lead >> 5 == 6  ? 2
                        : lead >> 4 == 14 ? 3
                        : lead >> 3 == 30 ? 4
                                          : 0;
    if (size == 0 || i + size > text.size()) return false;
    uint32_t point = size == 1 ? lead : lead & (0x7Fu >> size);
    for (size_t k = 1; k < size; ++k) {
      const uint32_t byte = static_cast<unsigned char>(text[i + k]);
      if (byte >> 6 != 2) return false;
      point = point << 6 | (byte & 0x3F);
    }
    if (point < LEAST[size] || point > 0x10FFFF || point >> 11 == 0x1B) return false;
    i += size;
  }
  return true;
}

class StrictLineReader {
 public:
  // The line comes without its line end.
  static std::optional<ReadLine> Read(std::string_view line) {
    StrictLineReader reader{line, {}};
    const bool good = IsUtf8(line) && reader.TakeName(&reader.m_line.measurement) &&
                      reader.TakeTags() && reader.TakeFields() && reader.TakeTimestamp();
    return good ? std::optional<ReadLine>(reader.m_line) : std::nullopt;
  }

 private:
  StrictLineReader(std::string_view rest, ReadLine line) : m_rest(rest), m_line(std::move(line)) {}

  static bool IsIn(std::string_view set, char c) { return set.find(c) != std::string_view::npos; }
  static bool IsControl(char c) { return (c >= 0 && c < ' ') || c == 0x7F; }

  bool Take(char c) {
    if (m_rest.empty() || m_rest[0] != c) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  bool TakeName(std::string* name) {
    while (!m_rest.empty() && !IsIn(",= ", m_rest[0])) {
      if (IsControl(m_rest[0])) return false;
      if (m_rest[0] == '\\') {
        if (m_rest.size() == 1 || IsIn("\\\"", m_rest[1])) return false;
        if (IsIn(",= ", m_rest[1])) m_rest.remove_prefix(1);
      }
      *name += m_rest[0];
      m_rest.remove_prefix(1);
    }
    return !name->empty();
  }

  bool TakeTags() {
    while (Take(',')) {
      std::string key, value;
      if (!TakeName(&key) || !Take('=') || !TakeName(&value)) return false;
      if (!m_line.tags.emplace(key, value).second) return false;
    }
    return Take(' ');
  }

  bool TakeFields() {
    do {
      std::string key;
      if (!TakeName(&key) || !Take('=')) return false;
      if (m_line.numbers.count(key) + m_line.texts.count(key) > 0) return false;
      if (Take('"') ? !TakeString(&m_line.texts[key]) : !TakeInteger(&m_line.numbers[key], "i")) {
        return false;
      }
    } while (Take(','));
    return true;
  }

  bool TakeInteger(int64_t* number, std::string_view suffix) {
    const char* const end = m_rest.data() + m_rest.size();
    const auto [stop, error] = std::from_chars(m_rest.data(), end, *number);
    m_rest.remove_prefix(static_cast<size_t>(stop - m_rest.data()));
    if (error != std::errc() || m_rest.substr(0, suffix.size()) != suffix) return false;
    m_rest.remove_prefix(suffix.size());
    return true;
  }

  bool TakeString(std::string* text) {
    while (!m_rest.empty() && m_rest[0] != '"') {
      if (IsControl(m_rest[0]) && m_rest[0] != '\t') return false;
      if (Take('\\') && (m_rest.empty() || !IsIn("\\\"", m_rest[0]))) return false;
      *text += m_rest[0];
      m_rest.remove_prefix(1);
    }
    return Take('"');
  }

  bool TakeTimestamp() {
    if (m_rest.empty()) return true;
    return Take(' ') && TakeInteger(&m_line.timestamp.emplace(), "") && m_rest.empty();
  }

  std::string_view m_rest;
  ReadLine m_line;
};

// The lines of a text, each of which must have a line end; one that is not well-formed fails the
// test and comes empty.
inline std::vector<ReadLine> ReadLines(std::string_view text) {
  std::vector<ReadLine> lines;
  for (size_t end = 0; !text.empty(); text.remove_prefix(end + 1)) {
    end = text.find('\n');
    const auto line = StrictLineReader::Read(text.substr(0, end));
    EXPECT_TRUE(line && end < text.size()) << text.substr(0, end);
    lines.push_back(line.value_or(ReadLine{}));
    if (end == text.npos) break;
  }
  return lines;
}

}  // namespace KorvainService::test

#endif  // KORVAIN_TESTS_STRICT_LINE_READER_H_
