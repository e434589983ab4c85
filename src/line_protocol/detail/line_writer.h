// Writes lines of line protocol: measurement,tag=value field=1i,field="text" timestamp. Not
// installed.
#ifndef KORVAIN_LINE_WRITER_H_
#define KORVAIN_LINE_WRITER_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace KorvainService::detail {

std::string Decimal(int64_t number);

// Appends to a text of the caller's. Tags come before fields, and a line needs a field. Measurement
// and keys of the program's own are taken as they are; values, and names given to NamedField, come
// from elsewhere and are escaped.
class LineWriter {
 public:
  explicit LineWriter(std::string& text) : m_text(text) {}

  // `tags` are those that a writer has written to another text.
  void Begin(std::string_view measurement, std::string_view tags);
  void Tag(std::string_view key, std::string_view value);  // the value is not empty
  void Field(std::string_view key, int64_t value);
  void NamedField(std::string_view name, int64_t value);  // the name is not empty
  void TextField(std::string_view key, std::string_view value);
  void End(int64_t timestamp_ns);  // 0: no timestamp

 private:
  void BeginField();

  std::string& m_text;
  char m_separator = ' ';  // before the next field
};

}  // namespace KorvainService::detail

#endif  // KORVAIN_LINE_WRITER_H_
