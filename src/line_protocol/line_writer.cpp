#include "line_protocol/detail/line_writer.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>

namespace KorvainService::detail {

namespace {

constexpr std::string_view NAME_DELIMITERS = ",= ";

bool IsOneOf(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Bytes of the UTF-8 character that `text`, which is not empty, begins with; 0 when it begins with
// none. The range of the second byte excludes overlong forms (after E0 and F0), surrogates (ED) and
// what is beyond U+10FFFF (F4).
size_t Utf8CharacterSize(std::string_view text) {
  const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() < size) return 0;
  const unsigned lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (size_t i = 2; i < size; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  }
  return size;
}

// Calls `take` with each character and the text behind it. Readers refuse a whole datagram for one
// broken byte, such as a character cut in two where a name was too long for its array.
template <class Take>
void ForEachCharacter(std::string_view text, Take take) {
  while (!text.empty()) {
    const size_t size = Utf8CharacterSize(text);
    const std::string_view character = size == 0 ? "?" : text.substr(0, size);
    text.remove_prefix(character.size());
    take(character, text);
  }
}

// Outside of strings some readers know an escaped backslash and some do not, and some drop the
// backslash before a quote. Only before other characters do all take it for itself.
bool IsBackslashSafeBefore(std::string_view rest) {
  return !rest.empty() && !IsControl(rest[0]) && !IsOneOf(",= \\\"", rest[0]);
}

void AppendName(std::string& text, std::string_view name) {
  ForEachCharacter(name, [&text](std::string_view character, std::string_view rest) {
    if (IsControl(character[0])) character = " ";
    if (character == "\\" && !IsBackslashSafeBefore(rest)) character = "/";
    if (IsOneOf(NAME_DELIMITERS, character[0])) text += '\\';
    text += character;
  });
}

// A tab is the one control character that every reader takes in a string.
void AppendString(std::string& text, std::string_view value) {
  text += '"';
  ForEachCharacter(value, [&text](std::string_view character, std::string_view) {
    if (IsControl(character[0]) && character[0] != '\t') character = " ";
    if (IsOneOf("\"\\", character[0])) text += '\\';
    text += character;
  });
  text += '"';
}

}  // namespace

std::string Decimal(int64_t number) {
  char digits[20];  // of the longest, -9223372036854775808
  return {digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr};
}

void LineWriter::Begin(std::string_view measurement, std::string_view tags) {
  m_text += measurement;
  m_text += tags;
  m_separator = ' ';
}

void LineWriter::Tag(std::string_view key, std::string_view value) {
  m_text += ',';
  m_text += key;
  m_text += '=';
  AppendName(m_text, value);
}

void LineWriter::BeginField() {
  m_text += m_separator;
  m_separator = ',';
}

void LineWriter::Field(std::string_view key, int64_t value) {
  BeginField();
  m_text += key;
  m_text += '=';
  m_text += Decimal(value);
  m_text += 'i';
}

void LineWriter::NamedField(std::string_view name, int64_t value) {
  std::string key;
  AppendName(key, name);
  Field(key, value);
}

void LineWriter::TextField(std::string_view key, std::string_view value) {
  BeginField();
  m_text += key;
  m_text += '=';
  AppendString(m_text, value);
}

void LineWriter::End(int64_t timestamp_ns) {
  if (timestamp_ns != 0) {
    m_text += ' ';
    m_text += Decimal(timestamp_ns);
  }
  m_text += '\n';
}

}  // namespace KorvainService::detail
