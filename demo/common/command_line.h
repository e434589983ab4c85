// The command line of the programs: what they accept, what they say to the rest, exit statuses.
#ifndef KORVAIN_DEMO_COMMAND_LINE_H_
#define KORVAIN_DEMO_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/common/console.h"
#include "demo/common/udp_socket.h"

namespace demo {

// Something given to the program that it cannot use: an argument, or a file that it reads.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Parses the command line and then calls `run`, whose result becomes the exit status. A UsageError
// or a bad argument ends in exit status 2, any other exception from `run` in 1, each with one line
// on stderr. An unknown option is named whatever else is wrong. `add_options` comes with help that
// shows each default.
int RunProgram(int argc, char** argv, const std::string& name, const std::string& description,
               const std::function<void(CLI::App&)>& add_options, const std::function<int()>& run);

// Accepts plain decimal numbers within the limits.
CLI::Validator InRange(double min, double max = std::numeric_limits<int32_t>::max());

CLI::Validator UdpUrl(PortRule rule = PortRule::GIVEN);

// Adds an option that is given once for each of its values.
CLI::Option* AddRepeatedOption(CLI::App& app, const std::string& name,
                               std::vector<std::string>& values, const std::string& description);

void AddConsoleOptions(CLI::App& app, ConsoleOptions& options);

// How a server is found by who started it.
struct ListenOptions {
  std::string url = "udp://127.0.0.1:0";
  std::string ready_file;
};
void AddListenOptions(CLI::App& app, ListenOptions& options);

// Writes the ready file. Throws std::runtime_error.
void TellReady(const ListenOptions& options, const UdpSocket& socket, Console& console);

}  // namespace demo

#endif  // KORVAIN_DEMO_COMMAND_LINE_H_
