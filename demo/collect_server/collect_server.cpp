// A collect server: keeps the lines of reports as they come.
#include <csignal>
#include <cstdint>
#include <string>

#include "demo/common/command_line.h"
#include "demo/common/console.h"
#include "demo/common/output_file.h"
#include "demo/common/signals.h"
#include "demo/common/udp_socket.h"

namespace demo {

namespace {

struct CollectOptions {
  std::string name = "collect-server";
  uint16_t port = 0;
  std::string file;
};

void AddOptions(CLI::App& app, CollectOptions& options) {
  app.footer("SIGINT or SIGTERM ends the program.");
  AddNameOption(app, options.name);
  AddNumber(app, "--port", options.port, 0, UINT16_MAX,
            "where to receive on 127.0.0.1; 0: a free one");
  app.add_option("--file", options.file,
                 "file to which the lines are appended as they come; none by default");
}

void Collect(const CollectOptions& options) {
  constexpr int LONGEST_WAIT_MS = 50;
  Console console(options.name);
  const Signals signals({SIGINT, SIGTERM});
  OutputFile file(options.file, console);
  UdpSocket socket(options.port);
  console.Note("receiving on {}", socket.LocalUrl());
  int64_t datagrams = 0;
  for (bool is_stopped = false; !is_stopped;) {
    is_stopped = signals.Take() > 0;
    socket.Wait(LONGEST_WAIT_MS);
    socket.TakeWaiting([&](const Datagram& datagram) {
      ++datagrams;
      file.Write(datagram.bytes);
    });
  }
  console.Note("{} datagrams, {} of them not kept, {} messages that nobody read", datagrams,
               file.Lost(), console.Dropped());
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::CollectOptions options;
  return demo::RunProgram(
      argc, argv, "collect_server", "Receives reports as UDP datagrams and keeps their lines.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { demo::Collect(options); });
}
