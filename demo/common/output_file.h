// A file that a program writes and can do without when it must.
#ifndef KORVAIN_DEMO_OUTPUT_FILE_H_
#define KORVAIN_DEMO_OUTPUT_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "demo/common/console.h"

namespace demo {

// Each write is appended at once. One that fails, on a full disk for example, is complained of the
// first time and counted every time; the program goes on.
class OutputFile {
 public:
  // An empty path stands for no file: all writes are nothing. Throws std::runtime_error, which
  // names the file, when it cannot be opened.
  OutputFile(const std::string& path, Console& console);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Ends the last line where `lines` do not: what a stranger sends may lack it.
  void Write(std::string_view lines);

  int64_t Lost() const { return m_lost; }  // writes

 private:
  const std::string m_path;
  Console& m_console;
  int m_fd = -1;
  bool m_is_line_torn = false;
  int64_t m_lost = 0;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_OUTPUT_FILE_H_
