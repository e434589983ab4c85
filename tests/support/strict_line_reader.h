// Reads line protocol as the strictest of its common readers would. Where readers differ, as on a
// backslash before another one, it refuses, so that what it takes means the same to all of them.
#ifndef KORVAIN_TESTS_STRICT_LINE_READER_H_
#define KORVAIN_TESTS_STRICT_LINE_READER_H_

#include <charconv>
#include <cstdint>
#include <cwchar>
#include <locale>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KorvainService::test {

// Tags and fields under their keys, numbers as in 12i and texts in double quotes; the measurement
// under _measurement and a timestamp under _time: databases keep such keys for themselves, too.
using ReadLine = std::map<std::string, std::string>;

inline bool IsControl(char c) {
  return (c >= 0 && c < ' ') || c == 0x7F;
}

// Bytes of the UTF-8 character that `text` begins with; 0 when it begins with none.
inline size_t Utf8Size(std::string_view text) {
  const bool is_surrogate = text.size() > 1 && text[0] == '\xED' && text[1] >= '\xA0';
  if (is_surrogate) return 0;  // some standard libraries take it
  using Utf8 = std::codecvt<char32_t, char, std::mbstate_t>;
  const auto& utf8 = std::use_facet<Utf8>(std::locale::classic());
  std::mbstate_t state{};
  return static_cast<size_t>(utf8.length(state, text.data(), text.data() + text.size(), 1));
}

class StrictLineReader {
 public:
  explicit StrictLineReader(std::string_view line) : m_rest(line) {}

  // The line comes without its line end.
  std::optional<ReadLine> Read() {
    bool is_good = TakeText(NAME_ENDS, m_line["_measurement"]);
    while (is_good && Take(',')) is_good = TakeTagOrField(true);
    is_good = is_good && Take(' ') && TakeTagOrField(false);
    while (is_good && Take(',')) is_good = TakeTagOrField(false);
    if (is_good && Take(' ')) is_good = TakeInteger(m_line["_time"]);
    return is_good && m_rest.empty() ? std::optional(m_line) : std::nullopt;
  }

 private:
  static constexpr std::string_view NAME_ENDS = ",= ";
  static constexpr std::string_view STRING_END = "\"";

  bool TakeTagOrField(bool is_tag) {
    std::string key, value;
    if (!TakeText(NAME_ENDS, key) || key[0] == '_' || !Take('=')) return false;
    if (is_tag) {
      if (!TakeText(NAME_ENDS, value)) return false;
    } else if (Take('"')) {
      if (!TakeText(STRING_END, value) || !Take('"')) return false;
      value = '"' + value + '"';
    } else {
      if (!TakeInteger(value) || !Take('i')) return false;
      value += 'i';
    }
    return m_line.emplace(key, value).second;
  }

  bool Take(char c) {
    if (m_rest.empty() || m_rest[0] != c) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  bool TakeText(std::string_view ends, std::string& text) {
    const bool is_string = ends == STRING_END;
    const auto is_in = [](std::string_view set, char c) { return set.find(c) != set.npos; };
    while (!m_rest.empty() && !is_in(ends, m_rest[0])) {
      if (IsControl(m_rest[0]) && !(is_string && m_rest[0] == '\t')) return false;
      if (m_rest[0] == '\\') {
        if (m_rest.size() == 1 || is_in("\"\\", m_rest[1]) != is_string) return false;
        if (is_string || is_in(ends, m_rest[1])) m_rest.remove_prefix(1);
      }
      const size_t size = Utf8Size(m_rest);
      if (size == 0) return false;
      text += m_rest.substr(0, size);
      m_rest.remove_prefix(size);
    }
    return is_string || !text.empty();
  }

  bool TakeInteger(std::string& text) {
    int64_t number = 0;
    const auto [stop, error] = std::from_chars(m_rest.data(), m_rest.end(), number);
    m_rest.remove_prefix(static_cast<size_t>(stop - m_rest.data()));
    text = std::to_string(number);
    return error == std::errc();
  }

  std::string_view m_rest;
  ReadLine m_line;
};

// The lines of a text, each of which must be well-formed and have a line end; else nothing.
inline std::optional<std::vector<ReadLine>> ReadLines(std::string_view text) {
  std::vector<ReadLine> lines;
  for (size_t end = 0; !text.empty(); text.remove_prefix(end + 1)) {
    end = text.find('\n');
    const auto line = StrictLineReader(text.substr(0, end)).Read();
    if (!line || end == text.npos) return std::nullopt;
    lines.push_back(*line);
  }
  return lines;
}

}  // namespace KorvainService::test

#endif  // KORVAIN_TESTS_STRICT_LINE_READER_H_
