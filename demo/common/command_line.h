// The command line of the programs: what they accept, what they say to the rest, exit statuses.
#ifndef KORVAIN_DEMO_COMMAND_LINE_H_
#define KORVAIN_DEMO_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace demo {

// Parses the command line and then calls `run`. The exit status: 0, or 2 for an argument that the
// program cannot use, or 1 for any other exception, the last two with one line on stderr. An
// unknown option is named whatever else is wrong. `add_options` comes with help that shows each
// default.
int RunProgram(int argc, char** argv, const std::string& name, const std::string& description,
               const std::function<void(CLI::App&)>& add_options, const std::function<void()>& run);

// An option with a number from `least` to `most`.
template <class Number>
void AddNumber(CLI::App& app, const std::string& name, Number& value, int least, int most,
               const std::string& description) {
  app.add_option(name, value, description)->check(CLI::Range(least, most));
}

CLI::Validator UdpUrl();

// What the program calls itself in its lines; it has a default.
void AddNameOption(CLI::App& app, std::string& name);

}  // namespace demo

#endif  // KORVAIN_DEMO_COMMAND_LINE_H_
