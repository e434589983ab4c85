#include "demo/common/command_line.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "demo/common/udp_socket.h"

namespace demo {

namespace {

constexpr int EXIT_RUNTIME_FAILURE = 1;
constexpr int EXIT_UNUSABLE_INPUT = 2;

int Complain(const CLI::App& app, std::string message, int status) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  fmt::print(stderr, "{}: {}\n", app.get_name(), message);
  return status;
}

// The parser looks for what is missing before it looks for what is too much.
std::string Describe(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unknown = app.remaining();
  if (unknown.empty()) return error.what();
  return fmt::format("unknown argument {} (see --help)", unknown.front());
}

// What a program opens must not take the place of a standard stream that it was started without.
void FillStandardStreams() {
  int descriptor = 0;
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
  close(descriptor);
}

}  // namespace

int RunProgram(int argc, char** argv, const std::string& name, const std::string& description,
               const std::function<void(CLI::App&)>& add_options,
               const std::function<void()>& run) {
  FillStandardStreams();
  CLI::App app(description, name);
  app.option_defaults()->always_capture_default();
  add_options(app);
  try {
    app.parse(argc, argv);
    run();
    return 0;
  } catch (const CLI::CallForHelp&) {
    fmt::print("{}", app.help());
    return 0;
  } catch (const CLI::ParseError& error) {
    return Complain(app, Describe(app, error), EXIT_UNUSABLE_INPUT);
  } catch (const std::exception& error) {
    return Complain(app, error.what(), EXIT_RUNTIME_FAILURE);
  }
}

CLI::Validator UdpUrl() {
  const auto check = [](const std::string& text) {
    if (ParseUdpUrl(text)) return std::string();
    return fmt::format("'{}' is not of the form udp://a.b.c.d:port", text);
  };
  return CLI::Validator(check, "udp://a.b.c.d:port");
}

void AddNameOption(CLI::App& app, std::string& name) {
  app.add_option("--name", name, "what the program calls itself in its lines");
}

}  // namespace demo
