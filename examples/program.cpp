#include "examples/program.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>

#include "examples/udp_socket.h"

namespace example {

namespace {

constexpr int EXIT_RUNTIME_FAILURE = 1;
constexpr int EXIT_BAD_ARGUMENT = 2;

int Complain(const CLI::App& app, std::string message, int status) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  fmt::print(stderr, "{}: {}\n", app.get_name(), message);
  return status;
}

}  // namespace

int RunProgram(CLI::App& app, int argc, char** argv, const std::function<int()>& run) {
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::CallForHelp&) {
    fmt::print("{}", app.help());
    return 0;
  } catch (const CLI::ParseError& error) {
    return Complain(app, error.what(), EXIT_BAD_ARGUMENT);
  } catch (const UsageError& error) {
    return Complain(app, error.what(), EXIT_BAD_ARGUMENT);
  } catch (const std::exception& error) {
    return Complain(app, error.what(), EXIT_RUNTIME_FAILURE);
  }
}

CLI::Validator InRange(double min, double max) {
  const auto check = [min, max](const std::string& text) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    // Written so that a NaN is out of range.
    if (error == std::errc() && stop == end && value >= min && value <= max) return std::string();
    return fmt::format("'{}' is not a number from {} to {}", text, min, max);
  };
  return CLI::Validator(check, fmt::format("{}..{}", min, max));
}

CLI::Validator UdpUrl() {
  const auto check = [](const std::string& text) {
    if (ParseUdpUrl(text)) return std::string();
    return fmt::format("'{}' is not of the form udp://a.b.c.d:port", text);
  };
  return CLI::Validator(check, "udp://a.b.c.d:port");
}

CLI::Option* AddRepeatedOption(CLI::App& app, const std::string& name,
                               std::vector<std::string>& values, const std::string& description) {
  return app.add_option(name, values, description + " (may be repeated)")->allow_extra_args(false);
}

File OpenFile(const std::string& path, const char* mode) {
  if (path.empty()) return nullptr;
  File file(std::fopen(path.c_str(), mode));
  if (file == nullptr) {
    throw std::runtime_error(fmt::format("cannot open {}: {}", path, strerror(errno)));
  }
  return file;
}

void WriteThrough(FILE* file, std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fflush(file) != 0) {
    throw std::runtime_error(fmt::format("cannot write to a file: {}", strerror(errno)));
  }
}

Console::Console(std::string_view name) : m_prefix(fmt::format("[{}] ", name)) {}

void Console::PrintLines(std::string_view lines) const {
  std::string text;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    text.append(m_prefix).append(lines.substr(0, end)).append("\n");
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
}

SignalWatch::SignalWatch(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  m_fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (m_fd < 0) throw std::runtime_error(fmt::format("no signalfd: {}", strerror(errno)));
}

SignalWatch::~SignalWatch() {
  close(m_fd);
}

int SignalWatch::Wait(int fd, int timeout_ms) const {
  pollfd inputs[] = {{m_fd, POLLIN, 0}, {fd, POLLIN, 0}};
  poll(inputs, 2, timeout_ms);
  signalfd_siginfo info{};
  return read(m_fd, &info, sizeof(info)) == sizeof(info) ? static_cast<int>(info.ssi_signo) : 0;
}

}  // namespace example
