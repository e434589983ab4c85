#include "demo/common/command_line.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>

#include "demo/common/output_file.h"

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

}  // namespace

int RunProgram(int argc, char** argv, const std::string& name, const std::string& description,
               const std::function<void(CLI::App&)>& add_options, const std::function<int()>& run) {
  CLI::App app(description, name);
  app.option_defaults()->always_capture_default();
  add_options(app);
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::CallForHelp&) {
    fmt::print("{}", app.help());
    return 0;
  } catch (const CLI::ParseError& error) {
    return Complain(app, Describe(app, error), EXIT_UNUSABLE_INPUT);
  } catch (const UsageError& error) {
    return Complain(app, error.what(), EXIT_UNUSABLE_INPUT);
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

CLI::Validator UdpUrl(PortRule rule) {
  const auto check = [rule](const std::string& text) {
    if (ParseUdpUrl(text, rule)) return std::string();
    return fmt::format("'{}' is not of the form udp://a.b.c.d:port", text);
  };
  return CLI::Validator(check, "udp://a.b.c.d:port");
}

CLI::Option* AddRepeatedOption(CLI::App& app, const std::string& name,
                               std::vector<std::string>& values, const std::string& description) {
  return app.add_option(name, values, description + " (may be repeated)")->allow_extra_args(false);
}

void AddConsoleOptions(CLI::App& app, ConsoleOptions& options) {
  app.add_option("--name", options.name, "what the program calls itself in its lines");
  app.add_option("--log", options.log_path,
                 "file to which all lines are appended; none by default");
  app.add_flag("--verbose", options.is_verbose, "print all lines, not only those for a person");
}

void AddListenOptions(CLI::App& app, ListenOptions& options) {
  app.add_option("--listen", options.url, "where to receive; port 0: a free one")
      ->check(UdpUrl(PortRule::OR_ZERO));
  app.add_option("--ready-file", options.ready_file,
                 "file that gets the URL once the program receives there; none by default");
}

void TellReady(const ListenOptions& options, const UdpSocket& socket, Console& console) {
  console.Note("receiving on {}", socket.LocalUrl());
  OutputFile file(options.ready_file, OutputFile::REPLACED, console.Complainer());
  file.Write(socket.LocalUrl() + '\n');
}

}  // namespace demo
