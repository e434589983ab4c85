// What all programs here share: command line and exit statuses, output lines, signals.
#ifndef KORVAIN_EXAMPLES_PROGRAM_H_
#define KORVAIN_EXAMPLES_PROGRAM_H_

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace example {

// An argument whose fault shows only beside the other arguments.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Parses the command line and then calls `run`, whose result becomes the exit status. A bad
// argument ends in exit status 2, an exception from `run` in 1, each with one line on stderr.
int RunProgram(CLI::App& app, int argc, char** argv, const std::function<int()>& run);

// Accepts plain decimal numbers within the limits.
CLI::Validator InRange(double min, double max = std::numeric_limits<int32_t>::max());

CLI::Validator UdpUrl();

// Adds an option that is given once for each of its values.
CLI::Option* AddRepeatedOption(CLI::App& app, const std::string& name,
                               std::vector<std::string>& values, const std::string& description);

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens for writing as fopen does. Throws std::runtime_error. An empty path gives a null file.
File OpenFile(const std::string& path, const char* mode);

// Writes all of `text` through to the file at once. Throws std::runtime_error.
void WriteThrough(FILE* file, std::string_view text);

// Prints lines with the program's name in front, each line in one piece.
class Console {
 public:
  explicit Console(std::string_view name);

  template <class... Args>
  void Print(fmt::format_string<Args...> format, Args&&... args) const {
    PrintLines(fmt::format(format, std::forward<Args>(args)...));
  }

  void PrintLines(std::string_view lines) const;

 private:
  std::string m_prefix;
};

// Takes signals out of the hands of the default action; they are waited for like input.
class SignalWatch {
 public:
  explicit SignalWatch(std::initializer_list<int> signals);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

  // Waits until `fd` has input, a signal has come or the time is over. Returns the signal or 0.
  int Wait(int fd, int timeout_ms) const;

 private:
  int m_fd;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_PROGRAM_H_
